#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs missing packages, checks layout and includes, builds, runs every test.
[ -n "${BASH_VERSION:-}" ] || exec bash "$0" "$@" # as in: sh test.sh
cd "$(dirname "$0")"
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: ./test.sh [option]

Installs missing Debian packages (as root or with sudo) and the npm packages of the web tests
(tests/web/) and of the documents (site/), checks the layout of the sources and the direction of their
includes, builds the site of the documents and checks its links, builds, and runs the tests.

  --sanitizers   also run them with the address and thread sanitizers, then each fuzz target for
                 half a minute
  --lint         run clang-tidy, shellcheck and style checks instead; any finding fails
  --build-only   install and build only
  --no-install   do not install Debian or npm packages
  --help         show this text

To run one test: build/release/tests/log/tst_log [function]   (QT_QPA_PLATFORM=offscreen without a display)
TEXT
}

install=yes
lint=no
start=yes
fuzz=no
builds=release
for option in "$@"; do
    case "$option" in
    --sanitizers)
        builds="release asan tsan"
        fuzz=yes
        ;;
    --lint) lint=yes ;;
    --build-only) start=no ;;
    --no-install) install=no ;;
    --help | -h) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
    esac
done

if [ "$lint" = yes ]; then
    [ "$install" = no ] || install_packages build bench lint
    exec scripts/lint.sh
fi
if [ "$install" = yes ]; then
    install_packages build run test format
    [ "$fuzz" = no ] || install_packages fuzz
    install_npm_packages tests/web
    install_npm_packages site
fi
if [ -e .git ]; then
    say "checking layout and includes"
    scripts/format.sh --check
    scripts/check-includes.sh
else
    say "not a git checkout: layout and includes are not checked"
fi
choose_platform
if [ -d site/node_modules ]; then
    scripts/docs.sh --no-install
else
    say "the site of the documents is not built: the npm packages of site/ are not installed"
fi
for name in $builds; do
    case "$name" in
    release) build release all ;;
    asan) build asan all -DSANITIZE=address ;;
    tsan) build tsan all -DSANITIZE=thread ;;
    esac
    scripts/fetch-face-models.sh "build/$name/models" || true # without them the face tests are skipped
    [ "$start" = yes ] || continue
    say "testing build/$name"
    (cd "build/$name" && ctest -j"$(($(nproc) + 1))" --output-on-failure)
done
[ "$fuzz$start" != yesyes ] || scripts/fuzz.sh --no-install all 0.5
