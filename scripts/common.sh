# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Functions shared by the scripts, which source it from the root of the tree.
set -eu

say() { printf '==> %s\n' "$*"; }
fail() { printf 'error: %s\n' "$*" >&2; exit 1; }

# install_packages GROUP...: installs the missing Debian packages of these groups (packages.txt).
install_packages() {
    local group package program missing=''
    command -v dpkg-query >/dev/null || fail "this needs a Debian-family system (no dpkg-query found)"
    for group in "$@"; do
        while read -r package program; do
            [ -z "$program" ] || ! command -v "$program" >/dev/null || continue
            dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed \
                || missing="$missing $package"
        done < <(awk -v group="$group" '$1 == group { print $2, $3 }' scripts/packages.txt)
    done
    [ -n "$missing" ] || return 0

    say "installing packages:$missing"
    local root=''
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "neither root nor sudo available: install them manually, then run this again"
        root=sudo
    fi
    $root apt-get -q update
    # shellcheck disable=SC2086 # a list of words
    $root env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends $missing
}

# install_npm_packages FOLDER: installs the npm packages of this folder, as its lock file specifies.
install_npm_packages() {
    local lock=$1/package-lock.json installed=$1/node_modules/.installed-lock.json
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

# build NAME TARGET [cmake option ...]: builds the target in build/NAME.
build() {
    local name=$1 target=$2 type=Debug
    shift 2
    [ "$name" != release ] || type=Release
    say "building $target in build/$name"
    cmake -S . -B "build/$name" -G Ninja -DCMAKE_BUILD_TYPE="$type" -DWARNINGS_AS_ERRORS=ON \
        --log-level=WARNING "$@"
    cmake --build "build/$name" --target "$target"
}
