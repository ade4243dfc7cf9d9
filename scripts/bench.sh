#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs missing packages, builds, runs every benchmark and prints one table of their ratios.
cd "$(dirname "$0")/.."
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: scripts/bench.sh [option] [PROGRAM...]

Runs the benchmarks of bench/, or those named, such as bench_preview. Each compares within one run; the
table of all ratios comes at the end. Let nothing else run meanwhile: port 1818 has to be free.

  --write         put the table into docs/performance.md, with the machine it ran on
  --no-install    do not install packages
  --help          show this text
TEXT
}

install=yes
write=no
programs=()
while [ $# -gt 0 ]; do
    case "$1" in
    --write) write=yes ;;
    --no-install) install=no ;;
    --help | -h) usage; exit 0 ;;
    bench_*) programs+=("build/release/bench/$1") ;;
    *) usage >&2; exit 2 ;;
    esac
    shift
done
[ "$install" = no ] || install_packages build run bench
choose_platform
build release all -DBUILD_BENCH=ON
[ "${#programs[@]}" -gt 0 ] \
    || mapfile -t programs < <(find build/release/bench -maxdepth 1 -type f -name 'bench_*' | sort)

output=$(mktemp)
trap 'rm -f "$output"' EXIT
failed=()
for program in "${programs[@]}"; do
    say "$(basename "$program")"
    "$program" | tee -a "$output" || failed+=("$(basename "$program")")
done

table=$(printf '| Measure | Ours | Yardstick | Ratio | Goal |\n|---|---|---|---|---|\n'; grep '^| ' "$output")
say "all ratios"
printf '%s\n' "$table"
if [ "$write" = yes ]; then
    cpu=$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)
    system=$(sed -n 's/^PRETTY_NAME="\(.*\)"/\1/p' /etc/os-release)
    machine="$(date +%F), $(nproc) × ${cpu:-processor}, $(uname -m), $system, load at the end $(cut -d ' ' -f 1-3 /proc/loadavg)"
    MACHINE=$machine TABLE=$table perl -0pi -e \
        's/(<!-- figures -->\n).*?(<!-- end -->)/$1\n$ENV{MACHINE}:\n\n$ENV{TABLE}\n\n$2/s' docs/performance.md
fi
[ "${#failed[@]}" -eq 0 ] || fail "failed: ${failed[*]}"
