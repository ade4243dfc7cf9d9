#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes a Debian package of the weights of the face networks.
cd "$(dirname "$0")/.."
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: scripts/models-package.sh [package.tgz] folder

Writes rvowebsocketserver-models_VERSION_all.deb into the folder: the weights that scripts/fetch-face-models.sh
installs, for terminals that can't fetch them. They come from the npm package that it names, from this file, or
from build/release/models, where they may be already. VERSION is the npm package's.
TEXT
}

fetch=()
case "${1:-}" in
--help | -h) usage; exit 0 ;;
*.tgz) fetch=(--from "$1"); shift ;;
esac
[ $# -eq 1 ] || { usage >&2; exit 2; }
output=$1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
weights=$work/usr/lib/rvowebsocketserver/models
documents=$work/usr/share/doc/rvowebsocketserver-models
mkdir -p "$work/DEBIAN" "$weights" "$documents"
if [ ${#fetch[@]} -eq 0 ] && [ -d build/release/models ]; then
    cp build/release/models/*_model* "$weights/" # checked by what follows
fi
scripts/fetch-face-models.sh "${fetch[@]}" "$weights"

version=$(sed -n 's/^package=.*@\([0-9.]*\).*/\1/p' scripts/fetch-face-models.sh)
maintainer=$(sed -n 's/^Maintainer: //p' debian/control)
date=$(dpkg-parsechangelog -S Date)
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -S Timestamp)
export SOURCE_DATE_EPOCH
sed -e 's|^Upstream-Name: .*|Upstream-Name: @vladmandic/face-api\nSource: https://www.npmjs.com/package/@vladmandic/face-api|' \
    -e 's/^Copyright: .*/Copyright: 2018 Vincent Mühler, Vladimir Mandic/' debian/copyright >"$documents/copyright"
gzip -9n >"$documents/changelog.gz" <<TEXT
rvowebsocketserver-models ($version) unstable; urgency=medium

  * The weights as the npm package has them.

 -- $maintainer  $date
TEXT
find "$work" -type d -exec chmod 755 {} + -o -exec chmod 644 {} +
(cd "$work" && find usr -type f -printf '%P\n' | sort | sed 's|^|usr/|' | xargs md5sum >DEBIAN/md5sums)
cat >"$work/DEBIAN/control" <<TEXT
Package: rvowebsocketserver-models
Version: $version
Architecture: all
Maintainer: $maintainer
Installed-Size: $(du -sk "$work/usr" | cut -f1)
Depends: rvowebsocketserver
Section: misc
Priority: optional
Description: weights of the face networks for rvowebsocketserver
 By these the portable device library of rvowebsocketserver finds and compares
 faces and watches for signs of life. Without them these functions fail, with a
 reason in the log.
 .
 They are those of the npm package @vladmandic/face-api.
TEXT
package=$output/rvowebsocketserver-models_${version}_all.deb
dpkg-deb --root-owner-group -b "$work" "$package" >/dev/null
say "$(basename "$package"): $(($(stat -c %s "$package") / 1024)) KiB, unpacked $(dpkg-deb -f "$package" Installed-Size) KiB"
