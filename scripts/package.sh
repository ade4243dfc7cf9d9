#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian packages from a clean checkout of the latest commit.
cd "$(dirname "$0")/.."
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: scripts/package.sh [option] [amd64|arm64]

Builds the Debian packages of the latest commit into build/packages/ and checks them with lintian. What
isn't committed is left out. The default architecture is this machine's; another one is built across and
needs its libraries (dpkg --add-architecture).

  --version TEXT  a version other than that of debian/changelog
  --store         also the layout of app stores, /opt/apps/<id>/{entries,files,info}, as an archive
  --no-install    do not install packages
  --help          show this text
TEXT
}

install=yes
store=no
version=''
architecture=$(dpkg --print-architecture)
while [ $# -gt 0 ]; do
    case "$1" in
    --no-install) install=no ;;
    --store) store=yes ;;
    --version) [ $# -ge 2 ] || { usage >&2; exit 2; }; version=$2; shift ;;
    --help | -h) usage; exit 0 ;;
    amd64 | arm64) architecture=$1 ;;
    *) usage >&2; exit 2 ;;
    esac
    shift
done
[ "$install" = no ] || install_packages build package

output=$PWD/build/packages
source=$output/source # always the same, so that a compiler cache knows it again
rm -rf "$source"
mkdir -p "$source"
git archive HEAD | tar -xC "$source"
if [ -n "$version" ]; then
    sed -i "1s/([^)]*)/($version)/" "$source/debian/changelog"
else
    version=$(dpkg-parsechangelog -l "$source/debian/changelog" -S Version)
fi

say "building rvowebsocketserver $version for $architecture"
cross=()
if [ "$architecture" != "$(dpkg --print-architecture)" ]; then
    cross=(--host-arch "$architecture" '--build-profiles=cross,nocheck')
fi
# Without debugging symbols, which would be most of the work and of the size.
export DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-} noautodbgsym" DEB_CFLAGS_STRIP=-g DEB_CXXFLAGS_STRIP=-g
(cd "$source" && dpkg-buildpackage --build=binary --no-sign "${cross[@]}") >"$output/build.log" 2>&1 \
    || { tail -n 40 "$output/build.log" >&2; fail "the build failed, see $output/build.log"; }

say "checking the packages"
lintian --fail-on error,warning --tag-display-limit 0 --no-cfg \
    "$output/rvowebsocketserver_${version}_$architecture.changes" \
    || fail "lintian has found something; what is right as it is goes into debian/*.lintian-overrides, with its reason"
if [ "$store" = yes ]; then
    scripts/store-layout.sh "$output/rvowebsocketserver_${version}_$architecture.deb"
fi
rm -rf "$source"
for file in "$output"/*_"${version}"_*.deb; do
    say "$(basename "$file"): $(($(stat -c %s "$file") / 1024)) KiB, unpacked $(dpkg-deb -f "$file" Installed-Size) KiB"
done
