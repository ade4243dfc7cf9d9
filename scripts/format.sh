#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Formats the C++ sources of the tree; with --check only says whether any would change.
cd "$(dirname "$0")/.."
set -eu
case "${1:-}" in
--check) mode='--dry-run --Werror' ;;
'') mode='-i' ;;
*) echo "usage: scripts/format.sh [--check]" >&2; exit 2 ;;
esac
# shellcheck disable=SC2086 # options
git ls-files -co --exclude-standard '*.cpp' '*.h' | xargs clang-format $mode
