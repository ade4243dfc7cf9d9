#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tries the Debian packages in a minimal system: installation, use, upgrade, removal.
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/minimal-system.sh

usage() {
    cat <<'TEXT'
usage: scripts/try-package.sh [option]

Installs the packages of build/packages/ (scripts/package.sh) in a minimal Debian in a folder of its own,
starts the server there as a plain user, connects a page, asks devicectl, upgrades, downgrades, removes and
purges, and says at each step what doesn't hold. Then the same with what app stores get, and a device library
built with -dev as docs/maker.md says. Prints what has to be downloaded and unpacked, and keeps what the page was
answered in build/packages/. Needs root.

  --suite NAME    the release of Debian (default: bookworm)
  --arch NAME     the architecture (default: this machine's). Elsewhere arm64 is emulated: slowly, and without
                  what finds processes by their program, which for the kernel is the emulator
  --mirror URL    where it comes from (default: http://deb.debian.org/debian)
  --no-install    do not install packages on this machine
  --help          show this text
TEXT
}

read_options "$@"
[ "$install" = no ] || ! is_foreign "$architecture" || install_packages arm64
enter_namespace "$install" package "$@"

server=$(find build/packages -name "rvowebsocketserver_*_$architecture.deb" 2>/dev/null | sort -V | tail -n 1)
[ -n "$server" ] || fail "no package in build/packages: run scripts/package.sh"
version=$(dpkg-deb -f "$server" Version)
modules=(build/packages/rvowebsocketserver-{imgcodecs,video}_"${version}_$architecture.deb")
policy=build/packages/rvowebsocketserver-policy_${version}_all.deb
dev=build/packages/rvowebsocketserver-dev_${version}_all.deb
models=$(find build/packages -name 'rvowebsocketserver-models_*_all.deb' | sort -V | tail -n 1)
answers=$PWD/build/packages/answers-$suite-$architecture.txt

work=$(mktemp -d --tmpdir rvo-try-XXXXXX)
root=$work/root
trap 'stop_emulating; remove_system "$work"' EXIT
patience=30 # seconds
faults='' # that doctor may find
if is_foreign "$architecture"; then
    patience=300
    faults='server|port 1818|single instance' # which look for the server's process
fi

step() { printf '\n'; say "$* ($(($(date +%s) - begin)) s)"; }
# check WHAT COMMAND...: fails with the text if the command does.
check() {
    local what=$1
    shift
    "$@" || fail "$what"
    say "  ok: $what"
}
apt() { inside apt-get -q -y -o Dpkg::Use-Pty=0 -o Dpkg::Options::=--force-confold "$@"; }

# files: all of the system but its users' own, what it downloads, and what the next start empties.
files() {
    find "$root" \( -path "$root/proc" -o -path "$root/home" -o -path "$root/tmp" -o -path "$root/run" -o -path "$root/var/cache/apt" \) -prune -o -print | sort
}

# sizes OPTION...: what apt would download and unpack.
sizes() { inside apt-get -q --assume-no "$@" 2>&1 | grep -E '^(Need to get|After this operation|[0-9]+ upgraded)' || true; }

# on_its_own FOLDER COMMANDS: shell commands on a network of their own, in which "start" is the server in that
# folder and "expect" devicectl, both for a plain user.
on_its_own() {
    # shellcheck disable=SC2016 # for the other shell
    root=$root scripts=$PWD/scripts/try-package folder=$1 patience=$patience answers=$answers faults=$faults \
        unshare --net bash -eu -c '
        ip link set lo up
        clerk() {
            exec chroot --userspec=clerk:clerk "$root" env -i HOME=/home/clerk PATH="/usr/bin:/bin:$folder" LC_ALL=C.UTF-8 \
                QT_QPA_PLATFORM=offscreen "$@"
        }
        start() { clerk "$folder/rvowebSocketServer" "$@"; }
        # expect STATUS VERB...: devicectl ends with that status.
        expect() {
            local expected=$1 result=0
            shift
            output=$(clerk devicectl "$@" 2>&1) || result=$?
            [ "$result" -eq "$expected" ] && return
            echo "devicectl $*: $result instead of $expected"
            echo "$output"
            exit 1
        }'"
        $2"
}

# use_server RECORDS [FOLDER]: a server, a page and a technician that use it. Whether it can record, which depends
# on -video; where it is.
use_server() {
    # shellcheck disable=SC2016 # for the other shell
    on_its_own "${2:-/usr/lib/rvowebsocketserver}" "records=$1"'
        start --simulate >"$root/tmp/output.log" 2>&1 &
        server=$!
        python3 "$scripts/page.py" "$patience" /home/clerk/scan || { cat "$root/tmp/output.log"; exit 1; }
        python3 "$scripts/answers.py" "$patience" "$root" /home/clerk/scan >"$answers"
        second=$(start 2>&1) || { echo "the second server ended with $?"; exit 1; }
        case "$second" in *"is already running"*) ;; *) echo "the second server: $second"; exit 1 ;; esac
        expect 0 status --json
        case "$output" in *"\"pid\": $server"* | *"\"pid\":$server"*) ;; *) echo "status: $output"; exit 1 ;; esac
        expect 0 call --frame /home/clerk/scan/frame.jpg bStartPlay
        expect 0 call --before bStartPlay bSaveJPG /home/clerk/scan capture2
        expect "$([ "$records" = true ] && echo 0 || echo 1)" \
            call --before bStartPlay bStartRec /home/clerk/scan/video.mp4
        expect 0 call --before bStartPlay sGetJpgBase64
        sleep 2 # until the preview has ended
        expect "$([ -n "$faults" ] && echo 1 || echo 0)" doctor
        echo "devicectl doctor: $(grep -c ^ok <<<"$output") checks are ok; others:"
        grep -v ^ok <<<"$output" || true
        ! grep ^fault <<<"$output" | grep -qvE "^fault +(${faults:-none}):" || exit 1
        kill "$server"
        wait "$server" || true
        expect 3 status
        expect 1 doctor'
    rm -f "$root/home/clerk/scan/video.mp4"
    rm "$root"/home/clerk/scan/{answer,capture,capture2,frame}.jpg "$root/home/clerk/scan/answer.pdf" \
        || fail "there is no capture"
}

# check_libraries FOLDER [PROGRAM]: what the programs there, and this one, are linked with is installed.
check_libraries() {
    local program
    for program in "$root$1"/{rvowebSocketServer,devicehost,barcodeworker,fingerworker,elecsign,webbrowser,*.so} "$root${2:-$1/devicectl}"; do
        check "libraries of $(basename "$program")" bash -c "! chroot '$root' ldd '${program#"$root"}' | grep 'not found'"
    done
}

# repack VERSION: the server package as an earlier one, whose settings have other defaults.
repack() {
    rm -rf "$work/old"
    dpkg-deb -R "$server" "$work/old"
    sed -i "s/^Version: .*/Version: $1/" "$work/old/DEBIAN/control"
    echo '; an earlier default' >>"$work/old/etc/rvowebsocketserver/devices.ini"
    echo '; an earlier default' >>"$work/old/etc/rvowebsocketserver/server.ini"
    dpkg-deb --root-owner-group -Znone -b "$work/old" "$root/packages/old.deb" >/dev/null
}

begin=$(date +%s)
step "making a minimal $suite for $architecture"
emulate "$architecture"
minimal_system "$suite" "$mirror" "$root" "$architecture"
mkdir "$root/packages"
cp "$server" "$root/packages/server.deb"
cp "$policy" "$root/packages/policy.deb"
cp "$dev" "$root/packages/dev.deb"
cp "${modules[@]}" "$root/packages/"
managed=(/packages/server.deb /packages/policy.deb)
if [ -n "$models" ]; then
    cp "$models" "$root/packages/models.deb"
    managed+=(/packages/models.deb)
fi
repack "$version~before"
inside useradd --create-home clerk
inside install -d -o clerk -g clerk /home/clerk/scan
apt update >/dev/null

step "sizes in a minimal $suite"
size() {
    local what=$1
    shift
    say "$what: $(sizes install --no-install-recommends "$@" | tr '\n' ' ')"
}
module() { printf '/packages/rvowebsocketserver-%s_%s_%s.deb' "$1" "$version" "$architecture"; }
size "Qt 5 with windows, which a desktop has" libqt5widgets5 libqt5websockets5
size "the server alone" /packages/server.deb
size "with -video" /packages/server.deb "$(module video)"
size "with -imgcodecs" /packages/server.deb "$(module imgcodecs)"
say "with all that is recommended, the browser among it:"
sizes install /packages/server.deb "$(module video)" "$(module imgcodecs)"
apt install --no-install-recommends systemd udev >/dev/null 2>&1 || fail "systemd, for the user unit and udev's rules"
files >"$work/before"

step "installing $version~before"
apt install --no-install-recommends /packages/old.deb >"$work/install.log" 2>&1 || { tail "$work/install.log"; fail "installation"; }
find "$root/usr/lib/rvowebsocketserver" -maxdepth 1 -printf '%f ' && echo
check_libraries /usr/lib/rvowebsocketserver /usr/bin/devicectl

step "using it as a plain user"
use_server false
data=$root/home/clerk/.local/state/rvowebsocketserver
check "the data folder is the user's alone" test "$(stat -c '%a %U' "$data")" = "700 $(stat -c %U "$root/home/clerk")"
check "the log says where it is" grep -q 'data folder: "/home/clerk/.local/state/rvowebsocketserver"' "$data"/log/vx_log_*.txt
check "nothing is written beside the program" test ! -e "$root/usr/lib/rvowebsocketserver/log"

step "upgrading to $version with changed settings"
echo '; mine' >>"$root/etc/rvowebsocketserver/devices.ini"
apt install --no-install-recommends "${managed[@]}" "$(module video)" "$(module imgcodecs)" \
    >"$work/upgrade.log" 2>&1 || { tail "$work/upgrade.log"; fail "upgrade"; }
check "the changed settings are kept" grep -q '^; mine' "$root/etc/rvowebsocketserver/devices.ini"
check "the others are the new ones" bash -c "! grep -q 'earlier default' '$root/etc/rvowebsocketserver/server.ini'"
check "the policy is installed" test -e "$root/etc/rvowebsocketserver/access.ini"
use_server true
check "the policy reports" grep -q 'access:' "$data"/log/vx_log_*.txt
check "each code is read" bash -c "! grep '^code .*: \$' '$answers' | grep -vE '$not_everywhere'"
if [ -n "$models" ]; then
    check "the face networks find no face on a paper" grep -q '^lImageMatch(.*: -2$' "$answers"
else
    say "  no package of the face networks (scripts/package.sh --models): not tried"
fi
if inside udevadm verify --help >/dev/null 2>&1; then
    check "the udev rules" inside udevadm verify /usr/lib/udev/rules.d/70-rvowebsocketserver.rules
else
    say "  the udev rules were not checked: that takes systemd 254, as Debian 13 has"
fi
result=77
is_foreign "$architecture" || { result=0; scripts/try-package/user-unit.sh "$root" clerk || result=$?; }
if [ "$result" -eq 77 ]; then
    say "  no service manager can run here: the user unit was only checked"
else
    check "the user unit" test "$result" -eq 0
fi

step "downgrading"
apt install --no-install-recommends --allow-downgrades /packages/old.deb >"$work/downgrade.log" 2>&1 || { tail "$work/downgrade.log"; fail "downgrade"; }
check "the changed settings are kept" grep -q '^; mine' "$root/etc/rvowebsocketserver/devices.ini"
use_server false

step "upgrading and removing while it runs"
runs() { inside pgrep -f ^/usr/lib/rvowebsocketserver/ >/dev/null; }
if ! is_foreign "$architecture"; then
    unshare --net chroot --userspec=clerk:clerk "$root" env -i HOME=/home/clerk PATH=/usr/bin:/bin QT_QPA_PLATFORM=offscreen \
        /usr/lib/rvowebsocketserver/rvowebSocketServer >/dev/null 2>&1 &
    for _ in $(seq 100); do ! runs || break; sleep 0.1; done
fi
apt install --no-install-recommends /packages/server.deb >"$work/upgrade.log" 2>&1 || { tail "$work/upgrade.log"; fail "upgrade"; }
# shellcheck disable=SC2016 # for eval
is_foreign "$architecture" || check "it runs on, which apt says" eval 'runs && grep -q "before is still running" "$work/upgrade.log"'
apt remove rvowebsocketserver >"$work/remove.log" 2>&1 || { tail "$work/remove.log"; fail "removal"; }
for _ in $(seq 100); do runs || break; sleep 0.1; done
check "it has ended" eval '! runs'
check "the program is gone" test ! -e "$root/usr/lib/rvowebsocketserver"
check "the settings are kept" grep -q '^; mine' "$root/etc/rvowebsocketserver/devices.ini"

step "purging"
apt purge rvowebsocketserver rvowebsocketserver-policy >"$work/purge.log" 2>&1 || { tail "$work/purge.log"; fail "purge"; }
check "it names the user's data" grep -q 'kept.* /home/clerk/.local/state/rvowebsocketserver' "$work/purge.log"
apt autoremove --purge >/dev/null 2>&1
files >"$work/after"
left=$(comm -13 "$work/before" "$work/after" | sed "s|^$root||" | grep -i rvowebsocket || true)
check "nothing else is left${left:+: $left}" test -z "$left"
others=$(comm -13 "$work/before" "$work/after" | wc -l)
say "  (the packages that it needed leave $others files behind, such as caches)"

step "the package of app stores"
scripts/store-layout.sh "$root/packages/server.deb" "$root$(module video)" "$root$(module imgcodecs)"
store=$(find "$root/packages" -name '*.rvowebsocketserver_*.deb')
id=$(dpkg-deb -f "$store" Package)
folder=/opt/apps/$id/files
others=$(dpkg-deb -f "$store" Depends Recommends | grep -o 'rvowebsocketserver[^ ,]*' || true)
check "it asks for no other package of ours${others:+: $others}" test -z "$others"
check "it has no maintainer scripts" test "$(dpkg-deb --ctrl-tarfile "$store" | tar -t | grep -c '^\./.')" = 1
check "all of it is in its folder" bash -c "! dpkg-deb --fsys-tarfile '$store' | tar -t | grep -v '/$' | grep -v '^\./opt/apps/$id/'"
apt install --no-install-recommends "${store#"$root"}" >"$work/store.log" 2>&1 || { tail "$work/store.log"; fail "installation"; }
check_libraries "$folder"
for entry in applications autostart; do
    program=$(sed -n 's/^Exec=//p' "$root/opt/apps/$id/entries/$entry/$id.desktop")
    check "the program of its entry in $entry" test "$program" = "$folder/rvowebSocketServer"
done
use_server true "$folder"
check "nothing is written beside the program" test ! -e "$root$folder/log"
apt purge "$id" >"$work/store.log" 2>&1 || { tail "$work/store.log"; fail "removal"; }
check "nothing of it is left" test ! -e "$root/opt/apps"

if is_foreign "$architecture"; then
    say "no device library was built for $architecture: compiling takes too long in the emulator"
else
    step "a maker's device library, as docs/maker.md says"
    guide=docs/maker.md
    tools=$(sed -n 's|^    sudo apt install ./rvowebsocketserver-dev_\*.deb ||p' "$guide")
    # make is among what is recommended.
    # shellcheck disable=SC2086 # a list of words
    apt install --no-install-recommends /packages/server.deb /packages/dev.deb $tools make >"$work/dev.log" 2>&1 \
        || { tail "$work/dev.log"; fail "installation"; }
    sed -n '/^    cp -r .*examples.library/,/^    cmake/s/^    //p' "$guide" >"$root/tmp/build"
    sed -n '/^    \[library\]/,/^    camera=/s/^    //p' "$guide" | sed 's|/home/me/|/home/clerk/|' >"$data/devices.ini"
    # shellcheck disable=SC2016 # for the other shell
    on_its_own /usr/lib/rvowebsocketserver '
        (clerk bash -eu -c "cd; . /tmp/build") >"$root/tmp/build.log" 2>&1 || { tail "$root/tmp/build.log"; exit 1; }
        start >"$root/tmp/output.log" 2>&1 &
        server=$!
        for _ in $(seq "$((patience * 10))"); do ! (clerk devicectl status) >/dev/null 2>&1 || break; sleep 0.1; done
        expect 0 call --frame /home/clerk/scan/blue.jpg bStartPlay
        expect 1 call bSaveJPG /home/clerk/scan blue
        kill "$server"
        wait "$server" || true' || fail "it doesn't run"
    check "it builds, and the server takes frames from it" test -s "$root/home/clerk/scan/blue.jpg"
    # On standard error, for the device process starts before the log is open.
    check "the server says what it doesn't have" grep -q "the library doesn't have bStartPlay2" "$root/tmp/output.log"
fi
step "everything holds"
