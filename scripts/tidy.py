# SPDX-License-Identifier: MIT
"""Runs clang-tidy over the sources of the tree; a file that was clean before, and of which nothing
has changed since, is not looked at again. Run by scripts/lint.sh, from the root of the tree.

usage: tidy.py BUILD [FILE ...]    BUILD has a compile_commands.json
"""

import hashlib
import json
import os
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path.cwd()


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, errors='replace')


def own_includes(name, memory):
    """The files of the tree that this one includes, directly or not, itself among them."""
    found, todo = set(), [name]
    while todo:
        file = todo.pop()
        if file in found or not (ROOT / file).is_file():
            continue
        found.add(file)
        if file not in memory:
            memory[file] = re.findall(r'^#include "([^"]+)"', (ROOT / file).read_text(), re.MULTILINE)
        for included in memory[file]:
            todo += [included, os.path.join(os.path.dirname(file), included)]
    return found


def main():
    build, *only = sys.argv[1:]
    folders = {f.split('/')[0] for f in run('git', 'ls-files', '*.h').stdout.split() if '/' in f}
    header_filter = f'^{re.escape(str(ROOT))}/({"|".join(sorted(folders))})/'
    settings = ''.join((ROOT / name).read_text() for name in ('.clang-tidy', 'tests/.clang-tidy')) \
        + run('clang-tidy', '--version').stdout \
        + header_filter
    cache = Path(build) / 'tidy'
    cache.mkdir(exist_ok=True)
    jobs, memory = {}, {}
    for entry in json.loads((Path(build) / 'compile_commands.json').read_text()):
        name = os.path.relpath(entry['file'], ROOT)
        if name.startswith(('build/', '..')) or only and name not in only:
            continue
        digest = hashlib.sha256((settings + entry['command']).encode())
        for file in sorted(own_includes(name, memory)):
            digest.update(file.encode() + (ROOT / file).read_bytes())
        jobs.setdefault(name, cache / digest.hexdigest())

    def check(name):
        if jobs[name].exists():
            return name, True, ''
        done = run('clang-tidy', '--quiet', '-p', build, '--extra-arg=-w', f'--header-filter={header_filter}', name)
        if done.returncode == 0 and 'warning:' not in done.stdout:
            jobs[name].touch()
            return name, True, ''
        return name, False, done.stdout or done.stderr

    # A finding in a header comes with every source that includes it: it is printed once.
    printed, failures = set(), 0
    with ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for name, is_clean, output in pool.map(check, sorted(jobs)):
            failures += not is_clean
            for finding in re.split(r'^(?=/)', output.replace(f'{ROOT}/', '/'), flags=re.MULTILINE):
                if finding.strip() and finding not in printed:
                    printed.add(finding)
                    print(finding.lstrip('/').rstrip(), flush=True)
    print(f'clang-tidy: {len(jobs)} files, {failures} with findings')
    sys.exit(failures > 0)


main()
