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

# Other versions lay some lines out differently.
for program in clang-format-14 clang-format ''; do
    if [ -z "$program" ]; then
        echo "clang-format 14 is not installed" >&2
        [ "$mode" != -i ] || exit 1
        exit 0 # a system without it can still run the tests
    fi
    ! "$program" --version 2>/dev/null | grep -q 'version 14\.' || break
done
# shellcheck disable=SC2086 # options
git ls-files -co --exclude-standard '*.cpp' '*.h' | xargs "$program" $mode
