#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the server for a long time under 200 clients, with faults, and prints what it used and lost.
cd "$(dirname "$0")/.."
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: scripts/soak.sh [--tsan | --asan] [minutes]

Builds the server and lets 200 clients work with it for so many minutes (default 10): preview for
all, commands from 20 of them, clients that come and go, one that never reads; the camera vanishes
and returns, companions are killed, and as root the disk is full for a minute. Prints memory,
descriptors, threads and log size at the start, the middle and the end, replies sent for and lost,
and the frames a second. Fails when the server ends, a reply is lost, or a descriptor or thread is
left over. Needs port 1818.
TEXT
}

name=release
minutes=10
for option in "$@"; do
    case "$option" in
    --tsan) name=tsan ;;
    --asan) name=asan ;;
    [0-9]*) minutes=$option ;;
    --help | -h) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
    esac
done

install_packages build run
case "$name" in
release) build release product ;;
tsan) build tsan product -DSANITIZE=thread ;;
asan) build asan product -DSANITIZE=address ;;
esac
cmake --build "build/$name" --target soak

# A folder whose path the single-instance check counts: no "sh" or "txt" in it.
folder=/tmp/rvo-soak-$$
mkdir -m 700 "$folder"
if [ "$(id -u)" -eq 0 ] && mount -t tmpfs -o size=1500m,mode=700 soak "$folder" 2>/dev/null; then
    trap 'umount -l "$folder"; rmdir "$folder"' EXIT
else
    say "not root: the disk is not filled"
    trap 'rm -rf "$folder"' EXIT
fi
for file in rvowebSocketServer devicehost libdevicestub.so libdoccamera.so libcardreader.so \
    libportabledoccamera.so libportablecardreader.so libportabledocuments.so libportablefaces.so \
    libportabletransfer.so libportablevideo.so libimageencoder.so barcodeworker fingerworker elecsign webbrowser run-elecsign.sh run-webbrowser.sh; do
    cp "build/$name/$file" "$folder/"
done
mkdir "$folder/pictures" "$folder/out"
printf '[cameras]\n1=folder:%s\n[playback]\nsecondsPerPicture=1\n' "$folder/pictures" >"$folder/devices.ini"

choose_platform
export QT_QPA_PLATFORM=offscreen TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1"
status=0
"build/$name/tests/soak/soak" "$folder" "$minutes" || status=$?
if [ "$status" -ne 0 ]; then
    tail -n 40 "$folder/output.txt"
    cp "$folder/output.txt" "build/$name/tests/soak/" 2>/dev/null || true
fi
exit "$status"
