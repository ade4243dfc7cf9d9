#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# usage: session.sh ROOT without|with
# Runs a server of the user clerk in ROOT, and services if they are installed; stops with a reason when the level
# that devicectl doctor gives a check isn't the expected one. Expects a network of its own.
cd "$(dirname "$0")/../.."
. scripts/common.sh
root=$1
ip link set lo up
findings=$root/tmp/findings.json
trap 'kill $(jobs -p) 2>/dev/null || true' EXIT

# Not functions: a job that they start is the program itself, and can be ended.
admin=(chroot "$root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8)
clerk=(chroot --userspec=clerk:clerk "$root" env -i HOME=/home/clerk PATH=/usr/bin:/bin LC_ALL=C.UTF-8 DISPLAY=:77)

# wait_for COMMAND...: for at most 60 s.
wait_for() {
    for _ in $(seq 300); do
        ! "$@" >/dev/null 2>&1 || return 0
        sleep 0.2
    done
    fail "in vain: $*"
}

# end PROCESS [SIGNAL]: ends a job of this shell, if it still runs.
end() {
    kill "-${2:-TERM}" "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

# examine [OPTION...]: asks the doctor; a fault, as there is no camera, makes its status 1.
examine() {
    local result=0
    "${clerk[@]}" devicectl doctor --json "$@" >"$findings" || result=$?
    [ "$result" -le 1 ] || fail "devicectl doctor: $result"
}

# expect LEVEL CHECK [TEXT]: what the latest examination has found, and a part of how it says so.
expect() {
    python3 - "$findings" "$@" <<'TEXT'
import json
import sys

name, level, check, *text = sys.argv[1:]
finding = next(each for each in json.load(open(name)) if each["id"] == check)
good = finding["level"] == level and all(part in finding["meaning"] for part in text)
print(f"{'  ok' if good else '  NOT AS EXPECTED'}: {check} is {finding['level']}: {finding['meaning']}")
sys.exit(0 if good else 1)
TEXT
}

# start_server: without a camera; $server is its process.
start_server() {
    "${clerk[@]}" /usr/lib/rvowebsocketserver/rvowebSocketServer --simulate >"$root/tmp/server.log" 2>&1 &
    server=$!
    wait_for "${clerk[@]}" devicectl status
}

if [ "$2" = without ]; then
    start_server
    examine
    for check in pcscd card-reader cups printer browser; do
        expect warning "$check"
    done
    expect warning display "can't use its display"
    expect warning browser-policy "sample page"
    expect ok camera-frames "no preview runs"
    examine --measure
    expect ok camera-frames "frames a second"
    end "$server"
    exit 0
fi

mkdir -p "$root/run/pcscd" "$root/run/cups" "$root/tmp/.X11-unix"
chmod 1777 "$root/tmp/.X11-unix"
sed -i 's|https://counter.bank.example|https://counter.test|' \
    "$root/etc/chromium/policies/managed/rvowebsocketserver.json" "$root/etc/rvowebsocketserver/access.ini"
polkit=''
! "${admin[@]}" pcscd --help | grep -q disable-polkit || polkit=--disable-polkit
# shellcheck disable=SC2086 # empty: no word
"${admin[@]}" pcscd --foreground $polkit >"$root/tmp/pcscd.log" 2>&1 &
pcscd=$!
"${admin[@]}" cupsd -f >"$root/tmp/cupsd.log" 2>&1 &
cupsd=$!
"${clerk[@]}" Xvfb :77 -nolisten tcp >"$root/tmp/xvfb.log" 2>&1 &
display=$!
wait_for "${admin[@]}" lpstat -r
wait_for test -S "$root/tmp/.X11-unix/X77" -a -S "$root/run/pcscd/pcscd.comm"
start_server

examine
expect ok pcscd
expect ok card-reader "Virtual PCD"
expect ok cups
expect warning printer "no default printer"
expect ok display :77
expect ok browser chromium
expect ok browser-policy https://counter.test

ppd=$("${admin[@]}" lpinfo -m | awk '/[Cc][Uu][Pp][Ss]-PDF/ { print $1; exit }')
"${admin[@]}" lpadmin -p counter -E -v cups-pdf:/ -m "$ppd" 2>/dev/null
"${admin[@]}" lpadmin -d counter
examine
expect ok printer counter
"${admin[@]}" cupsdisable counter
examine
expect warning printer stopped
"${admin[@]}" cupsenable counter
"${admin[@]}" cupsreject counter
examine
expect warning printer "takes no jobs"

sed -i 's|https://counter.test|https://other.test|' "$root/etc/rvowebsocketserver/access.ini"
for process in "$pcscd" "$cupsd" "$display"; do
    end "$process" KILL # their sockets stay
done
"${admin[@]}" apt-get -q -q -y remove chromium >/dev/null 2>&1
examine
expect warning pcscd
expect warning card-reader
expect warning cups
expect warning printer "no print service"
expect warning display "nobody answers"
expect warning browser
expect warning browser-policy https://other.test
end "$server"
