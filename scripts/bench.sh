#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs missing packages, builds, runs every benchmark; each prints its ratios at the end.
cd "$(dirname "$0")/.."
. scripts/common.sh
install_packages build run bench
choose_platform
build release all -DBUILD_BENCH=ON
for program in build/release/bench/bench_*; do
    say "$(basename "$program")"
    "$program"
done
