# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Functions shared by the scripts, which source it from the root of the tree.
set -eu

say() { printf '==> %s\n' "$*"; }
fail() { printf 'error: %s\n' "$*" >&2; exit 1; }

# is_installed PACKAGE: whether it is installed, or another one of those that | separates.
is_installed() {
    local name
    for name in ${1//|/ }; do
        ! dpkg-query -W -f='${db:Status-Status}\n' "$name" 2>/dev/null | grep -qx installed || return 0
    done
    return 1
}

# known_package PACKAGE: the first of its names that this system's archive has; as it is if it has none.
known_package() {
    local name
    for name in ${1//|/ }; do
        [ -z "$(apt-cache --quiet=0 show "$name" 2>/dev/null)" ] || { echo "$name"; return 0; }
    done
    echo "${1%%|*}"
}

# install_packages GROUP...: installs the missing Debian packages of these groups (packages.txt).
install_packages() {
    local group package program missing='' names=''
    command -v dpkg-query >/dev/null || fail "this needs a Debian-family system (no dpkg-query found)"
    for group in "$@"; do
        while read -r package program; do
            [ -z "$program" ] || ! command -v "$program" >/dev/null || continue
            is_installed "$package" || missing="$missing $package"
        done <<<"$(awk -v group="$group" '$1 == group { print $2, $3 }' scripts/packages.txt)"
    done
    [ -n "$missing" ] || return 0

    local root=''
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "packages are missing, and there is no sudo. As root, run
    apt-get update && apt-get install --no-install-recommends$(for package in $missing; do printf ' %s' "$(known_package "$package")"; done)
then run this again."
        root=sudo
    fi
    say "packages are missing:$missing"
    $root apt-get -q -q update
    for package in $missing; do
        names="$names $(known_package "$package")"
    done
    # shellcheck disable=SC2086 # lists of words
    {
        # --print-uris: nothing is installed, nor locked, which only root could do.
        LC_ALL=C apt-get -q --print-uris --assume-yes install --no-install-recommends $names \
            | sed -n -e 's/^Need to get \(.*\) of archives\.$/==> to be downloaded: \1/p' \
                -e 's/^After this operation, \(.*\) of additional disk space will be used\.$/==> to be installed: \1/p'
        $root env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends $names
    }
}

# install_npm_packages FOLDER: installs the npm packages of this folder, as its lock file specifies.
install_npm_packages() {
    local lock=$1/package-lock.json installed=$1/node_modules/.installed-lock.json
    if [ "$(node -p 'Number(process.versions.node.split(".")[0]) >= 18')" != true ]; then
        say "node $(node -v) is too old for the npm packages of $1: what needs them will be skipped"
        return 0
    fi
    ! cmp -s "$lock" "$installed" || return 0
    say "installing the npm packages of $1"
    (cd "$1" && npm ci --no-audit --no-fund) || fail "npm could not install them (use --no-install to do without)"
    cp "$lock" "$installed"
}

# Makes Qt render to memory if there is no display, and sets a runtime directory if there is none.
choose_platform() {
    if [ -z "${DISPLAY:-}" ]; then
        say "no X display: running headless"
        export QT_QPA_PLATFORM="${QT_QPA_PLATFORM:-offscreen}"
    fi
    if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
        XDG_RUNTIME_DIR="${TMPDIR:-/tmp}/runtime-$(id -u)"
        (umask 077 && mkdir -p "$XDG_RUNTIME_DIR")
        export XDG_RUNTIME_DIR
    fi
}

# build NAME TARGET [cmake option ...]: builds the target in build/NAME. A warning stops it only where that
# is asked for: other systems' compilers warn of more.
build() {
    local name=$1 target=$2 type=Debug program
    shift 2
    [ "$name" != release ] || type=Release
    for program in cmake ninja c++; do
        command -v "$program" >/dev/null || fail "$program is not installed (without --no-install it would be)"
    done
    say "building $target in build/$name"
    cmake -S . -B "build/$name" -G Ninja -DCMAKE_BUILD_TYPE="$type" --log-level=WARNING \
        ${WARNINGS_AS_ERRORS:+-DWARNINGS_AS_ERRORS="$WARNINGS_AS_ERRORS"} "$@"
    cmake --build "build/$name" --target "$target"
}
