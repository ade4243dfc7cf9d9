#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tries what devicectl's doctor says of the services and programs that a terminal has besides the server.
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/minimal-system.sh

usage() {
    cat <<'TEXT'
usage: scripts/try-doctor.sh [option]

Installs the packages of build/packages/ (scripts/package.sh) in a minimal Debian in a folder of its own, and
asks devicectl there: without other services; with pcscd and a virtual reader, CUPS and a printer that makes PDF
files, an X server and Chromium; and with each of them failing. Says at each step what doesn't hold. Needs root.

  --suite NAME    the release of Debian (default: bookworm)
  --mirror URL    where it comes from (default: http://deb.debian.org/debian)
  --no-install    do not install packages on this machine
  --help          show this text
TEXT
}

read_options "$@"
! is_foreign "$architecture" || fail "this runs programs of this machine's architecture only"
enter_namespace "$install" package "$@"

server=$(find build/packages -name "rvowebsocketserver_*_$architecture.deb" 2>/dev/null | sort -V | tail -n 1)
[ -n "$server" ] || fail "no package in build/packages: run scripts/package.sh"
work=$(mktemp -d --tmpdir rvo-doctor-XXXXXX)
root=$work/root
trap 'remove_system "$work"' EXIT

# take PACKAGE...: installs them, without what they recommend.
take() {
    inside apt-get -q -y -o Dpkg::Use-Pty=0 install --no-install-recommends "$@" >"$work/install.log" 2>&1 \
        || { tail "$work/install.log" >&2; fail "installing $*"; }
}
session() { unshare --net scripts/try-doctor/session.sh "$root" "$1"; }

say "making a minimal $suite"
minimal_system "$suite" "$mirror" "$root" "$architecture"
inside apt-get -q -q update
mkdir "$root/packages"
cp "$server" "$root/packages/server.deb"
cp "build/packages/rvowebsocketserver-policy_$(dpkg-deb -f "$server" Version)_all.deb" "$root/packages/policy.deb"
take /packages/server.deb /packages/policy.deb
inside useradd --create-home clerk

say "without other services"
session without
say "installing pcscd, CUPS, an X server and Chromium"
take pcscd vsmartcard-vpcd cups cups-client printer-driver-cups-pdf xvfb chromium
say "with them, and with each failing"
session with
say "everything holds"
