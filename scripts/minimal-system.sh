# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# A minimal Debian in a folder, for the scripts that try something there. They source it after common.sh,
# run as root, and have mounts of their own.

# read_options ARGUMENT...: sets $suite, $mirror and $install from the options of a script that tries one system.
# shellcheck disable=SC2034 # that script uses them
read_options() {
    install=yes
    suite=bookworm
    mirror=http://deb.debian.org/debian
    while [ $# -gt 0 ]; do
        case "$1" in
        --suite) [ $# -ge 2 ] || { usage >&2; exit 2; }; suite=$2; shift ;;
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

# minimal_system SUITE MIRROR FOLDER: a minimal Debian in that folder, made once and kept as an archive.
minimal_system() {
    local kept=$PWD/build/systems/$1.tar log
    mkdir -p "$(dirname "$kept")" "$3"
    if [ ! -e "$kept" ]; then
        say "making a minimal $1"
        log=$PWD/build/systems/$1.log
        debootstrap --variant=minbase "$1" "$3" "$2" >"$log" 2>&1 \
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

# remove_system FOLDER: takes it away again.
remove_system() {
    local mounted
    mount | awk -v root="$1/" 'index($3, root) == 1 { print $3 }' | sort -r | while read -r mounted; do
        umount "$mounted"
    done
    rm -rf --one-file-system "$1"
}
