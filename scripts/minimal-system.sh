# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# A minimal Debian in a folder, for the scripts that try something there. They source it after common.sh,
# run as root, and have mounts of their own.

# read_options ARGUMENT...: sets $suite, $architecture, $mirror and $install from the options of a script that tries
# one system.
# shellcheck disable=SC2034 # that script uses them
read_options() {
    install=yes
    suite=bookworm
    architecture=$(dpkg --print-architecture)
    mirror=http://deb.debian.org/debian
    while [ $# -gt 0 ]; do
        case "$1" in
        --suite) [ $# -ge 2 ] || { usage >&2; exit 2; }; suite=$2; shift ;;
        --arch) [ $# -ge 2 ] || { usage >&2; exit 2; }; architecture=$2; shift ;;
        --mirror) [ $# -ge 2 ] || { usage >&2; exit 2; }; mirror=$2; shift ;;
        --no-install) install=no ;;
        --help | -h) usage; exit 0 ;;
        *) usage >&2; exit 2 ;;
        esac
        shift
    done
}

# enter_namespace INSTALL GROUP ARGUMENT...: starts the script again, with these arguments and with mounts and
# processes of its own: all of them end with it. Before, unless INSTALL is "no", it installs the packages of
# GROUP.
enter_namespace() {
    [ "$(id -u)" -eq 0 ] || fail "this needs root, for chroot"
    [ -z "${IN_NAMESPACE:-}" ] || return 0
    [ "$1" = no ] || install_packages "$2"
    IN_NAMESPACE=yes exec unshare --mount --pid --fork --kill-child --mount-proc "$0" "${@:3}"
}

# is_foreign ARCHITECTURE: whether this machine's programs are of another one.
is_foreign() { [ "$1" != "$(dpkg --print-architecture)" ]; }

handlers=/proc/sys/fs/binfmt_misc # of the kernel, for all of the machine
handler=''

# emulate ARCHITECTURE: from here on programs of that architecture run, by QEMU, until stop_emulating.
emulate() {
    local emulator magic mask
    is_foreign "$1" || return 0
    [ "$1" = arm64 ] || fail "programs of $1 can't run here"
    emulator=$(command -v qemu-aarch64-static || command -v qemu-aarch64) || fail "this needs qemu-user-static"
    # How an ELF program of ARM64 begins; the last byte of the mask takes both fixed and movable ones.
    magic='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
    mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    mountpoint -q "$handlers" || mount -t binfmt_misc binfmt_misc "$handlers" \
        || fail "the kernel has no binfmt_misc, so programs of $1 can't run here"
    handler=rvo-$1-$(date +%s%N)
    # F: the emulator is opened now, so it needn't be in the other system.
    printf '%s' ":$handler:M::$magic:$mask:$emulator:F" >"$handlers/register"
}

stop_emulating() {
    [ -z "$handler" ] || echo -1 >"$handlers/$handler"
    handler=''
}

# minimal_system SUITE MIRROR FOLDER [ARCHITECTURE]: a minimal Debian in that folder, made once and kept as an
# archive.
minimal_system() {
    local kept=$PWD/build/systems/$1.tar log architecture=${4:-$(dpkg --print-architecture)}
    ! is_foreign "$architecture" || kept=$PWD/build/systems/$1-$architecture.tar
    mkdir -p "$(dirname "$kept")" "$3"
    if [ ! -e "$kept" ]; then
        say "making a minimal $1 for $architecture"
        log=${kept%.tar}.log
        debootstrap --variant=minbase --arch="$architecture" "$1" "$3" "$2" >"$log" 2>&1 \
            || { tail -n 5 "$log" >&2; fail "debootstrap, see $log"; }
        rm -f "$3"/var/cache/apt/archives/*.deb
        tar -cf "$kept.new" -C "$3" .
        mv "$kept.new" "$kept"
    else
        tar -xf "$kept" -C "$3"
    fi
    mount --types proc proc "$3/proc"
    mkdir -p "$PWD/build/systems/archives-$1/partial" # what was downloaded before
    mount --bind "$PWD/build/systems/archives-$1" "$3/var/cache/apt/archives"
    cp --dereference /etc/resolv.conf "$3/etc/resolv.conf"
    local file
    for file in /etc/apt/apt.conf /etc/apt/apt.conf.d/*proxy*; do
        [ ! -e "$file" ] || cp "$file" "$3/etc/apt/apt.conf.d/"
    done
    printf '#!/bin/sh\nexit 101\n' >"$3/usr/sbin/policy-rc.d" # no services
    chmod +x "$3/usr/sbin/policy-rc.d"
    echo force-unsafe-io >"$3/etc/dpkg/dpkg.cfg.d/unsafe" # it is thrown away
}

# inside COMMAND...: in the system at $root, with nothing of this machine's environment but $environment.
environment=()
root=${root:-}
inside() {
    chroot "$root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        "${environment[@]}" "$@"
}

# use_ccache NAME: keeps what is compiled in the system at $root, in build/systems/NAME.ccache.
use_ccache() {
    inside apt-get -q -q -y install ccache >/dev/null 2>&1 || return 1
    mkdir -p "$PWD/build/systems/$1.ccache" "$root/var/cache/ccache"
    mount --bind "$PWD/build/systems/$1.ccache" "$root/var/cache/ccache"
    environment+=(PATH=/usr/lib/ccache:/usr/sbin:/usr/bin:/sbin:/bin CCACHE_DIR=/var/cache/ccache
        CCACHE_COMPILERCHECK=content)
}

# Lines of answers.py for codes that not every ZXing reads: DataBar Expanded, MaxiCode, Micro QR.
# shellcheck disable=SC2034 # those scripts use it
not_everywhere='^code (31|57|97) of .*: $'

# remove_system FOLDER: takes it away again. What still runs there, such as a browser's helper, holds its /dev; it
# ends with this script.
remove_system() {
    local mounted
    mount | awk -v root="$1/" 'index($3, root) == 1 { print $3 }' | sort -r | while read -r mounted; do
        umount --lazy "$mounted"
    done
    rm -rf --one-file-system "$1"
}
