#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the package that app stores of the target desktops take from the Debian packages.
cd "$(dirname "$0")/.."
. scripts/common.sh

id=example.rvowebsocketserver # of the publisher's domain; no part may hold "sh" or "txt"

usage() {
    cat <<TEXT
usage: scripts/store-layout.sh rvowebsocketserver_VERSION_ARCHITECTURE.deb [another.deb...]

Writes the same programs as ${id}_VERSION_ARCHITECTURE.deb beside it, with what the other
packages add to them: the modules (-imgcodecs, -video) and the weights of the face networks (-models).
Everything is below /opt/apps/$id/ (entries, files, info), and there are no
maintainer scripts. The settings that a package has in /etc are beside the program, where it looks for
them last. It takes the place of the server's Debian package.
TEXT
}

packages=()
for argument; do
    case "$argument" in
    --help | -h) usage; exit 0 ;;
    *.deb) packages+=("$argument") ;;
    *) usage >&2; exit 2 ;;
    esac
done
[ ${#packages[@]} -gt 0 ] || { usage >&2; exit 2; }

# The packages that are in this one, and what only maintainer scripts need.
inside='rvowebsocketserver($| |-imgcodecs|-video|-models)|init-system-helpers'
field() { dpkg-deb -f "${packages[0]}" "$1"; }
# asked_for FIELD PACKAGE...: what else these ask for.
asked_for() {
    local field=$1 package
    shift
    for package; do
        dpkg-deb -f "$package" "$field" | sed 's/, */\n/g'
    done | grep -vE "^($inside)" | sort -u | paste -sd, | sed 's/,/, /g'
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for package in "${packages[@]}"; do
    dpkg-deb -x "$package" "$work/from"
done
version=$(field Version)
architecture=$(field Architecture)
app=$work/to/opt/apps/$id
mkdir -p "$work/to/DEBIAN" "$app"/entries/{applications,autostart}
cp -a "$work/from/usr/lib/rvowebsocketserver" "$app/files"
cp -a "$work/from/usr/bin/devicectl" "$app/files/"
cp -a "$work/from"/etc/rvowebsocketserver/*.ini "$app/files/"
cp -a "$work/from/usr/share/doc/rvowebsocketserver" "$app/files/doc"
cp -a "$work/from/usr/share/man" "$app/files/man"
sed "s|devicectl completion|/opt/apps/$id/files/&|" \
    "$work/from/usr/share/bash-completion/completions/devicectl" >"$app/files/devicectl.bash"
sed "s|/usr/lib/rvowebsocketserver|/opt/apps/$id/files|" \
    "$work/from/etc/xdg/autostart/rvowebsocketserver.desktop" >"$app/entries/autostart/$id.desktop"
# Among the applications, where a click starts the server, so that nobody has to log in again.
sed 's/^NoDisplay=.*/Categories=Utility;/' "$app/entries/autostart/$id.desktop" >"$app/entries/applications/$id.desktop"
cat >"$app/info" <<TEXT
{
  "appid": "$id",
  "name": "rvowebsocketserver",
  "version": "$version",
  "arch": ["$architecture"],
  "permissions": {
    "autostart": true, "notification": false, "trayicon": false, "clipboard": false, "account": false,
    "bluetooth": false, "camera": true, "audio_record": true, "installed_apps": false
  }
}
TEXT
cat >"$work/to/DEBIAN/control" <<TEXT
Package: $id
Version: $version
Architecture: $architecture
Maintainer: $(field Maintainer)
Installed-Size: $(du -sk "$work/to" | cut -f1)
Depends: $(asked_for Depends "${packages[@]}")
Recommends: $(asked_for Recommends "${packages[0]}")
Suggests: $(asked_for Suggests "${packages[0]}")
Conflicts: rvowebsocketserver
Provides: rvowebsocketserver
Section: $(field Section)
Priority: $(field Priority)
Description: $(field Description)
TEXT
output=$(dirname "${packages[0]}")/${id}_${version}_$architecture.deb
dpkg-deb --root-owner-group -b "$work/to" "$output" >/dev/null
say "$(basename "$output"): $(($(stat -c %s "$output") / 1024)) KiB"
