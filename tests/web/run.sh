#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# usage: run.sh [file...]
# Runs web tests, all by default, one file at a time: there is only one port 1818. Exits with 77, which
# ctest takes as skipped, when something they need is not installed.
cd "$(dirname "$0")" || exit
skip() { echo "web tests skipped: $*"; exit 77; }
command -v node >/dev/null || skip "there is no node"
[ "$(node -p 'Number(process.versions.node.split(".")[0]) >= 18')" = true ] || skip "node $(node -v) is too old"
[ -d node_modules ] || skip "their npm packages are not installed: ./test.sh, or npm ci in tests/web"
exec node --test --test-concurrency=1 "$@"
