#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the package that app stores of the target desktops take from the server's Debian package.
cd "$(dirname "$0")/.."
. scripts/common.sh

id=example.rvowebsocketserver # of the publisher's domain; no part may hold "sh" or "txt"

usage() {
    cat <<TEXT
usage: scripts/store-layout.sh rvowebsocketserver_VERSION_ARCHITECTURE.deb

Writes the same programs as ${id}_VERSION_ARCHITECTURE.deb beside it: everything is below
/opt/apps/$id/ (entries, files, info), and there are no maintainer scripts. The settings
that a package has in /etc are beside the program, where it looks for them last.
TEXT
}

case "${1:-}" in
--help | -h) usage; exit 0 ;;
*.deb) package=$1 ;;
*) usage >&2; exit 2 ;;
esac
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dpkg-deb -R "$package" "$work/from"
version=$(dpkg-deb -f "$package" Version)
architecture=$(dpkg-deb -f "$package" Architecture)
app=$work/to/opt/apps/$id
mkdir -p "$work/to/DEBIAN" "$app/entries/autostart"
cp -a "$work/from/usr/lib/rvowebsocketserver" "$app/files"
cp -a "$work/from/usr/bin/devicectl" "$app/files/"
cp -a "$work/from"/etc/rvowebsocketserver/*.ini "$app/files/"
cp -a "$work/from/usr/share/doc/rvowebsocketserver" "$app/files/doc"
sed "s|/usr/lib/rvowebsocketserver|/opt/apps/$id/files|" \
    "$work/from/etc/xdg/autostart/rvowebsocketserver.desktop" >"$app/entries/autostart/$id.desktop"
cat >"$app/info" <<TEXT
{
  "appid": "$id",
  "name": "rvowebsocketserver",
  "version": "$version",
  "arch": ["$architecture"],
  "permissions": {
    "autostart": true, "notification": false, "trayicon": false, "clipboard": false, "account": false,
    "bluetooth": false, "camera": true, "audio_record": false, "installed_apps": false
  }
}
TEXT
size=$(du -sk "$work/to" | cut -f1)
sed -n -e "s/^Package: .*/Package: $id/" -e "s/^Installed-Size: .*/Installed-Size: $size/" -e p \
    "$work/from/DEBIAN/control" >"$work/to/DEBIAN/control"
output=$(dirname "$package")/${id}_${version}_$architecture.deb
dpkg-deb --root-owner-group -b "$work/to" "$output" >/dev/null
say "$(basename "$output"): $(($(stat -c %s "$output") / 1024)) KiB"
