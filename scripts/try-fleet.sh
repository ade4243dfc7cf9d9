#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tries what docs/fleet.md says: repository, upgrades, settings, logs and figures of many terminals.
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/minimal-system.sh

usage() {
    cat <<'TEXT'
usage: scripts/try-fleet.sh [option]

Sets up a minimal Debian in a folder of its own as terminal, repository, log collector and Prometheus at once,
with the programs of Debian and the files of docs/examples/fleet, and the packages of build/packages/
(scripts/package.sh): installs from a signed repository, upgrades unattended, configures with Ansible,
forwards the log, scrapes the figures. Says at each step what doesn't hold. Needs root. Nothing of this machine
is changed, and no service stays behind.

  --suite NAME    the release of Debian (default: bookworm)
  --mirror URL    where it comes from (default: http://deb.debian.org/debian)
  --no-install    do not install packages on this machine
  --help          show this text
TEXT
}

read_options "$@"
enter_namespace "$install" package "$@"

server=$(find build/packages -name "rvowebsocketserver_*_$(dpkg --print-architecture).deb" 2>/dev/null | sort -V | tail -n 1)
[ -n "$server" ] || fail "no package in build/packages: run scripts/package.sh"
version=$(dpkg-deb -f "$server" Version)
modules=(build/packages/rvowebsocketserver-{imgcodecs,video}_"${version}_$(dpkg --print-architecture)".deb)

work=$(mktemp -d --tmpdir rvo-fleet-XXXXXX)
root=$work/root
trap 'remove_system "$work"' EXIT
inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }

minimal_system "$suite" "$mirror" "$root"
say "installing the programs"
programs="ansible-core curl gnupg openssl prometheus prometheus-node-exporter python3-apt reprepro rsyslog-relp systemd unattended-upgrades"
{
    inside apt-get -q update
    # shellcheck disable=SC2086 # a list of words
    inside apt-get -q -y -o Dpkg::Use-Pty=0 install --no-install-recommends $programs
    for package in "$server" "${modules[@]}"; do
        inside apt-get -q -y -o Dpkg::Use-Pty=0 satisfy --no-install-recommends \
            "$(dpkg-deb -f "$package" Depends | sed 's/rvowebsocketserver ([^)]*), //')"
    done
} >"$work/install.log" 2>&1 || { tail "$work/install.log" >&2; fail "the programs can't be installed"; }

# The packages, and a later version of the server, whose settings have other defaults, and of its modules.
mkdir -p "$root/packages/later"
cp build/packages/rvowebsocketserver{,-*}_"${version}"_*.deb "$root/packages/"
rm -f "$root"/packages/*-dev_*
for package in "$server" "${modules[@]}"; do
    rm -rf "$work/later"
    dpkg-deb -R "$package" "$work/later"
    sed -i -e "s/^Version: .*/Version: $version+later/" -e "s/(= $version)/(= $version+later)/" "$work/later/DEBIAN/control"
    for settings in "$work"/later/etc/rvowebsocketserver/*.ini; do
        [ ! -e "$settings" ] || echo '; a later default' >>"$settings"
    done
    dpkg-deb --root-owner-group -Znone -b "$work/later" "$root/packages/later/$(basename "$package")" >/dev/null
done
inside useradd --create-home clerk

# A network of its own: the ports are free, and nothing but the bank's repository can be reached.
unshare --net scripts/try-fleet/steps.sh "$root" "$version"
