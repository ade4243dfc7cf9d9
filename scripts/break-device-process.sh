#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Kills and stops the device process at random moments under a client that sends commands.
cd "$(dirname "$0")/.."
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: scripts/break-device-process.sh [rounds]

Builds the server and starts it, with preview, captures, PDF, recording, card reads and uploads going
on, and so many times (default 200, 25 minutes) ends its device process by SIGKILL or SIGSTOP at a
random moment. Fails when a command isn't answered, the picture takes longer than 3 s to come back, or
no device process runs when a round begins.
Needs port 1818, Node and the npm packages of tests/web.
TEXT
}

rounds=200
for option in "$@"; do
    case "$option" in
    [0-9]*) rounds=$option ;;
    --help | -h) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
    esac
done

install_packages build run test
install_npm_packages tests/web
build release product
choose_platform
folder=$(mktemp -d)
(cd build/release && exec ./rvowebSocketServer --simulate) >"$folder/server.txt" 2>&1 &
server=$!
trap 'kill "$server"; rm -rf "$folder"' EXIT
sleep 2
node tests/deviceprocess/break.mjs "$folder" "$rounds"
