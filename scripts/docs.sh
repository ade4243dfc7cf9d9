#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the documents as a site that is read without a server.
cd "$(dirname "$0")/.."
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: scripts/docs.sh [option]

Builds the documents, in English and Chinese, into build/site (open build/site/index.html; no server and no
network is needed) and checks that no link is dead and nothing is loaded from elsewhere. Fails when the
generated reference is out of date.

  --no-install    do not install the npm packages of site/
  --help          show this text
TEXT
}

install=yes
for option in "$@"; do
    case "$option" in
    --no-install) install=no ;;
    --help | -h) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
    esac
done
command -v node >/dev/null || fail "this needs node"
[ "$install" = no ] || install_npm_packages site
[ -d site/node_modules ] || fail "the npm packages of site/ are not installed: npm ci in site/"
scripts/generate-reference.mjs --check

say "building build/site"
rm -rf build/site
site/node_modules/.bin/eleventy --config=site/eleventy.config.mjs --quiet
node site/check.mjs build/site
