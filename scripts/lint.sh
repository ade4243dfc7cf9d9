#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Looks for faults and for what isn't our style; fails on any finding. ./test.sh --lint runs it.
cd "$(dirname "$0")/.."
. scripts/common.sh

build=build/lint # only configured: clang-tidy needs the compile commands and what moc makes
findings=0
for program in clang-tidy shellcheck python3 git; do
    command -v "$program" >/dev/null || fail "$program is not installed"
done
say "configuring $build"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DWARNINGS_AS_ERRORS=ON -DBUILD_BENCH=ON --log-level=WARNING \
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DCMAKE_AUTOGEN_ORIGIN_DEPENDS=OFF >/dev/null
# Not by the targets, which would compile what theirs depend on.
find "$build" -name AutogenInfo.json -print0 | xargs -0 -P "$(nproc)" -I '{}' cmake -E cmake_autogen '{}' Debug >/dev/null

say "shell scripts"
git ls-files -co --exclude-standard '*.sh' '*.sh.in' .ci/run | xargs shellcheck || findings=1

say "style"
# Arithmetic conversions are written int(x); static_cast is for pointers and classes.
if git grep -nE 'static_cast<(const )?(unsigned |signed )?(bool|char|short|int|long|long long|float|double|u?int[0-9]+_t|s?size_t|ptrdiff_t|off_t|u?char|uint|ushort|ulong|qu?int[0-9]+|qu?longlong|qreal)>' \
    -- '*.cpp' '*.h' ':!scripts/'; then
    echo 'write int(x), not static_cast<int>(x)'
    findings=1
fi

if git grep -nE '^ */\*\* .*\*/' -- '*.cpp' '*.h'; then
    echo 'write a doc comment of one line with ///'
    findings=1
fi
if git grep -niE 'colour' -- '*.cpp' '*.h' '*.js' '*.mjs' '*.md' '*.sh' '*.txt' ':!scripts/lint.sh'; then
    echo 'write color'
    findings=1
fi

say "clang-tidy"
python3 scripts/tidy.py "$build" || findings=1
exit "$findings"
