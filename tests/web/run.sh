#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the web tests, one file at a time: there is one port. Where something is missing they are
# skipped, which ctest is told by 77.
cd "$(dirname "$0")" || exit
skip() { echo "web tests skipped: $*"; exit 77; }
command -v node >/dev/null || skip "there is no node"
[ "$(node -p 'Number(process.versions.node.split(".")[0]) >= 18')" = true ] || skip "node $(node -v) is too old"
[ -d node_modules ] || skip "their npm packages are not installed: ./test.sh, or npm ci in tests/web"
exec node --test --test-concurrency=1
