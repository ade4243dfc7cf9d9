#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the fuzz targets with clang and runs them; findings stay in build/fuzz/findings.
cd "$(dirname "$0")/.."
. scripts/common.sh

usage() {
    cat <<'TEXT'
usage: scripts/fuzz.sh [--no-install] [target|all] [minutes]

Runs one fuzz target of tests/fuzz/ (its name without .cpp) or all of them (the default), each for
so many minutes (default 10, fractions allowed), as many at a time as there are processors. Inputs
that cover more of the code are kept in build/fuzz/corpus and are where the next run starts. An
input that crashes a target, takes longer than 10 s or more than 2 GB is a finding: it is kept in
build/fuzz/findings beside the log of its run, and the script fails. To look at one again:

    build/fuzz/tests/fuzz/fuzz_TARGET build/fuzz/findings/FILE
TEXT
}

install=yes
target=all
minutes=10
for argument in "$@"; do
    case "$argument" in
    --no-install) install=no ;;
    --help | -h) usage; exit 0 ;;
    -*) usage >&2; exit 2 ;;
    [0-9]* | .[0-9]*) minutes=$argument ;;
    *) target=$argument ;;
    esac
done
seconds=$(awk -v minutes="$minutes" 'BEGIN { print int(minutes * 60) }')
[ "$seconds" -gt 0 ] || { usage >&2; exit 2; }

targets=$(sed -nE 's/^add_(server_)?fuzz_target\(([a-z]+).*/\2/p' tests/fuzz/CMakeLists.txt)
if [ "$target" != all ]; then
    grep -qx "$target" <<<"$targets" || fail "there is no target $target; there are: $(tr '\n' ' ' <<<"$targets")"
    targets=$target
fi
[ "$install" = no ] || install_packages build fuzz
# shellcheck disable=SC2046 # a list of words
build fuzz $([ "$target" = all ] && echo fuzz_targets || echo "fuzz_$target") \
    -DFUZZ=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++

# run_target NAME SECONDS: one target; fails and says so when it has found something.
run_target() {
    local name=$1 seconds=$2 folder=build/fuzz log status=0 leaks=1
    local program=$folder/tests/fuzz/fuzz_$name
    log=$folder/findings/$name.log
    mkdir -p "$folder/findings" "$folder/corpus/$name" "$folder/seeds/$name"
    FUZZ_SEEDS=$folder/seeds/$name "$program" >"$log" 2>&1 || status=$?
    # To look for leaks takes long in a program with threads: it is done once, at the end.
    ! grep -q "^add_server_fuzz_target($name\b" tests/fuzz/CMakeLists.txt || leaks=0
    # Standard output is closed: what the code prints for technicians would fill the disk.
    [ "$status" -ne 0 ] || "$program" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -detect_leaks="$leaks" -close_fd_mask=1 -print_final_stats=1 \
        -artifact_prefix="$folder/findings/$name-" \
        "$folder/corpus/$name" "$folder/seeds/$name" >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then
        tail -n 40 "$log"
        printf '==> fuzz %s: FOUND something, see %s\n' "$name" "$log"
        return 1
    fi
    awk -v name="$name" -v seconds="$seconds" '
        / cov: [0-9]+/ { for (i = 1; i < NF; ++i) if ($i == "cov:") covered = $(i + 1) }
        /number_of_executed_units/ { inputs = $2 }
        END { printf "==> fuzz %s: %d s, %d inputs, %d places covered, nothing found\n", name, seconds, inputs, covered }
    ' "$log"
}
export -f run_target
export ASAN_OPTIONS=allocator_may_return_null=1:detect_odr_violation=0 \
    LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0 \
    UBSAN_OPTIONS=print_stacktrace=1
say "fuzzing for $seconds s each: $(tr '\n' ' ' <<<"$targets")"
# shellcheck disable=SC2016 # for the shell that xargs starts
xargs -n 1 -P "$(nproc)" bash -c 'run_target "$1" '"$seconds" run_target <<<"$targets" \
    || fail "there are findings in build/fuzz/findings"
