#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Puts faults into the sources and finds out which of them the tests notice; see CONTRIBUTING.md.
cd "$(dirname "$0")/.."
. scripts/common.sh
/usr/bin/python3 -c 'import clang.cindex' 2>/dev/null || install_packages build test mutate
choose_platform
exec /usr/bin/python3 scripts/mutate/mutate.py "$@"
