#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs missing packages, builds, starts the server.
[ -n "${BASH_VERSION:-}" ] || exec bash "$0" "$@" # as in: sh run.sh
cd "$(dirname "$0")"
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: ./run.sh [option]

Installs missing Debian packages (as root or with sudo), builds the server and its companions into
build/release/ and starts the server. Press Ctrl-C to stop it.

  --build-only      install and build only
  --no-install      do not install packages
  --no-simulation   no test scene, card and finger where the machine has no device
  --help            show this text

If the display can't be reached: QT_QPA_PLATFORM=offscreen ./run.sh

To use a maker's device library:
  cmake -S . -B build/release -G Ninja -DDEVICE_LIBRARIES="/path/libdoccamera.so;/path/libcardreader.so"
or start the built program with LD_LIBRARY_PATH set to that library's folder.
TEXT
}

start=yes
install=yes
simulate=--simulate
for option in "$@"; do
    case "$option" in
    --build-only) start=no ;;
    --no-install) install=no ;;
    --no-simulation) simulate= ;;
    --help | -h) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
    esac
done

[ "$install" = no ] || install_packages build run
# Not every system has the package, and another browser works too.
if [ "$install" = yes ] && ! command -v chromium chromium-browser uos-browser \
    google-chrome-stable google-chrome microsoft-edge-stable >/dev/null; then
    (install_packages browser) || say "no browser installed: counter pages will not work"
fi
build release product
scripts/fetch-face-models.sh build/release/models || true # the rest works without
program=$PWD/build/release/rvowebSocketServer
if [ "$start" = no ]; then
    say "built: $program"
    exit 0
fi

choose_platform
say "server:       ws://127.0.0.1:1818 (all addresses)"
say "console page: file://$PWD/console/index.html"
say "log:          $PWD/build/release/log/vx_log_$(date +%F).txt (has the reason if pages can't connect)"
if [ -n "$simulate" ]; then
    say "simulation:   on: a test scene, cards and a finger are made up where no device is (--no-simulation)"
fi
exec "$program" ${simulate:+"$simulate"}
