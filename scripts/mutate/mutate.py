# SPDX-License-Identifier: MIT
"""Puts faults into a copy of the sources and finds out which of them the tests notice.

Run by scripts/mutate.sh, from the root of the tree. All faults are compiled at once, each behind a
switch (mutant.h); then the test functions that reach a fault are run with it switched on.
"""

import argparse
import ctypes
import hashlib
import json
import os
import re
import resource
import shlex
import signal
import subprocess
import sys
import time
from multiprocessing import Pool
from pathlib import Path

ROOT = Path.cwd()
WORK = ROOT / 'build/mutate'
COPY = WORK / 'source'
BUILD = WORK / 'build'
HERE = Path(__file__).resolve().parent
LEFT_OUT = HERE / 'left-out.txt'
EQUIVALENT = HERE / 'equivalent.txt'
REPORT = WORK / 'report.txt'
TESTS_OF_OTHERS = ('tests/', 'bench/') # faults go into the product
FUNCTION_LIMIT = 120 # s, for a test function without a fault

report_lines = []


def say(text=''):
    print(text, flush=True)
    report_lines.append(text)


def fail(text):
    sys.exit(f'error: {text}')


def digest(*parts):
    return hashlib.sha256('|'.join(str(p) for p in parts).encode()).hexdigest()


def git_files(*arguments):
    return subprocess.run(['git', *arguments], check=True, capture_output=True,
                          text=True).stdout.splitlines()


def load(path, otherwise):
    try:
        return json.loads(path.read_text())
    except (OSError, ValueError):
        return otherwise


def blocks(path):
    """The blocks of lines between empty ones, without indentation and comments."""
    lines = [line.strip() for line in path.read_text().splitlines() if not line.startswith('#')]
    return [block.split('\n') for block in re.split(r'\n{2,}', '\n'.join(lines).strip()) if block]


# -- which files ------------------------------------------------------------------------------------


def files_to_change(options):
    tracked = [f for f in git_files('ls-files', '-co', '--exclude-standard')
               if (ROOT / f).is_file()]
    paths = [os.path.relpath(p, ROOT).rstrip('/') for p in options.paths]
    if options.changed:
        paths += git_files('diff', '--name-only', '--relative', options.changed)
        if not paths:
            fail(f'nothing has changed since {options.changed}')
    for path in options.paths:
        if not os.path.exists(path):
            fail(f'no such file or folder: {path}')
    left_out = {block[0] for block in blocks(LEFT_OUT)} - set(paths)
    for path in left_out - set(tracked):
        fail(f'{LEFT_OUT.name}: there is no {path}')
    chosen = [f for f in tracked
              if f.endswith(('.cpp', '.h')) and not f.startswith(TESTS_OF_OTHERS)
              and f not in left_out
              and any(f == p or f.startswith(p + '/') or p == '.' for p in paths)]
    if not chosen:
        fail('no sources of the product among: ' + ' '.join(paths))
    return tracked, sorted(chosen)


# -- the copy and its build -------------------------------------------------------------------------


def write_copy(tracked, changed):
    """Makes COPY the tracked tree, with the texts of `changed`; touches only what differs."""
    wanted = set(tracked)
    for path in COPY.rglob('*'):
        name = str(path.relative_to(COPY))
        if path.is_file() and name not in wanted:
            path.unlink()
    for name in tracked:
        data = changed.get(name) or (ROOT / name).read_bytes()
        target = COPY / name
        if target.is_file() and target.read_bytes() == data:
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(data)
        target.chmod((ROOT / name).stat().st_mode)


def configure():
    BUILD.mkdir(parents=True, exist_ok=True)
    switch = WORK / 'mutant.o'
    subprocess.run(['c++', '-O1', '-fPIC', '-c', HERE / 'mutant.cpp', '-o', switch], check=True)
    flags = f'-w -include "{HERE}/mutant.h"'
    command = ['cmake', '-S', COPY, '-B', BUILD, '-G', 'Ninja', '--log-level=WARNING',
               '-DCMAKE_BUILD_TYPE=Mutate', '-DCMAKE_EXPORT_COMPILE_COMMANDS=ON',
               f'-DCMAKE_CXX_FLAGS={flags}', '-DCMAKE_CXX_FLAGS_MUTATE=-O1 -DNDEBUG',
               f'-DCMAKE_CXX_STANDARD_LIBRARIES="{switch}"']
    if subprocess.run(command, stdout=subprocess.DEVNULL).returncode:
        fail('the copy can not be configured')
    models = next(ROOT.glob('build/*/models'), None)
    if models and not (BUILD / 'models').exists():
        (BUILD / 'models').symlink_to(models)


def ninja_inputs():
    """What each output of the build is made of, order-only inputs included."""
    text = (BUILD / 'build.ninja').read_text().replace('$\n', '')
    inputs = {}
    for line in text.splitlines():
        if not line.startswith('build '):
            continue
        outputs, _, rest = line[6:].partition(': ')
        clean = [w.replace('$:', ':') for w in rest.split()[1:] if w not in ('|', '||')]
        for output in outputs.split():
            if output != '|':
                inputs.setdefault(output.replace('$:', ':'), []).extend(clean)
    return inputs


def compile_commands():
    """The arguments for libclang of each source, as if it were compiled in ROOT."""
    commands = {}
    for entry in json.loads((BUILD / 'compile_commands.json').read_text()):
        try:
            name = str(Path(entry['file']).relative_to(COPY))
        except ValueError:
            continue
        words = iter(shlex.split(entry['command'].replace(str(COPY), str(ROOT))))
        arguments, output = [], None
        for word in words:
            if word == '-o':
                output = next(words)
            elif word == '-include':
                next(words)
            elif word in ('-isystem', '-I'):
                arguments += [word, next(words)]
            elif re.match(r'-[DI]|-std|-fPIC', word):
                arguments.append(word)
        known = commands.setdefault(name, {'arguments': arguments, 'objects': []})
        known['objects'].append(output)
    return commands


def including_sources(tracked):
    """For each file those that include it, directly or not, itself among them."""
    direct = {}
    names = [f for f in tracked if f.endswith(('.cpp', '.h'))]
    known = set(names)
    for name in names:
        for included in re.findall(r'^#include "([^"]+)"', (ROOT / name).read_text(), re.MULTILINE):
            for place in (included, os.path.join(os.path.dirname(name), included)):
                if place in known:
                    direct.setdefault(place, set()).add(name)
    def closure(name):
        found, todo = set(), [name]
        while todo:
            file = todo.pop()
            if file not in found:
                found.add(file)
                todo.extend(direct.get(file, ()))
        return found
    return closure


def tests_of(chosen, tracked, commands):
    """The test programs that the chosen files are built into: {ctest's name: its entry}."""
    closure = including_sources(tracked)
    objects = set()
    for name in chosen:
        for source in closure(name):
            objects.update(commands.get(source, {'objects': []})['objects'])
    inputs = ninja_inputs()
    memory = {}

    def reaches(output):
        if output not in memory:
            memory[output] = False # a circle adds nothing
            memory[output] = output in objects or any(reaches(i) for i in inputs.get(output, ()))
        return memory[output]

    sys.setrecursionlimit(10000)
    listed = json.loads(subprocess.run(['ctest', '--show-only=json-v1'], cwd=BUILD, check=True,
                                       capture_output=True, text=True).stdout)
    programs = {os.path.basename(o): o for o in inputs if o.startswith('tests/')}
    tests = {}
    for test in listed['tests']: # ctest gives no command of a program that isn't built yet
        program = programs.get(test['name'])
        if program and reaches(program):
            properties = {p['name']: p['value'] for p in test['properties']}
            tests[test['name']] = {
                'program': program,
                'folder': properties.get('WORKING_DIRECTORY', str(BUILD)),
                'environment': dict(e.split('=', 1) for e in properties.get('ENVIRONMENT', []))}
    return tests


# -- the faults -------------------------------------------------------------------------------------


def find_in_file(job):
    name, arguments, cache = job
    from places import find_faults
    faults = find_faults(str(ROOT / name), name, arguments)
    cache.write_text(json.dumps(faults))
    return faults


def all_faults(chosen, commands, seed):
    """Every fault of the chosen files, in a random order that the seed and the code decide."""
    finder = digest((HERE / 'places.py').read_text())
    (WORK / 'places').mkdir(parents=True, exist_ok=True)
    faults, jobs = [], []
    for name in chosen:
        command = commands.get(name) or commands.get(str(Path(name).with_suffix('.cpp')))
        if command is None: # a header: compiled as a source beside it
            beside = [c for c in sorted(commands) if os.path.dirname(c) == os.path.dirname(name)]
            same_top = [c for c in sorted(commands) if c.split('/')[0] == name.split('/')[0]]
            source = next(iter(beside + same_top), None)
            if source is None:
                say(f'left out: {name} (nothing is compiled beside it)')
                continue
            command = commands[source]
        arguments = ['-x', 'c++', *command['arguments']]
        cache = WORK / 'places' / digest(name, (ROOT / name).read_text(), arguments, finder)
        known = load(cache, None)
        if known is None:
            jobs.append((name, arguments, cache))
        else:
            faults += known
    with Pool(2) as pool:
        for found in pool.imap_unordered(find_in_file, jobs):
            faults += found
    faults.sort(key=lambda f: (f['file'], f['edits'][0][0], f['kind'], f['mutated']))
    times = {}
    for fault in faults:
        what = digest(fault['file'], fault['kind'], fault['original'], fault['mutated'])
        times[what] = times.get(what, 0) + 1
        fault['key'] = digest(what, times[what])
        fault['rank'] = digest(seed, fault['key'])
    faults = without_equivalent(faults, chosen)
    faults.sort(key=lambda f: f['rank'])
    for number, fault in enumerate(faults, 1):
        fault['number'] = number
    return faults


def without_equivalent(faults, chosen):
    """Those that EQUIVALENT doesn't name."""
    texts = {f: (ROOT / f).read_text().splitlines() for f in chosen}
    listed = {tuple(block[:3]) for block in blocks(EQUIVALENT) if block[0] in texts}
    def entry(fault):
        line = texts[fault['file']][fault['line'] - 1].strip()
        return fault['file'], line, what_changes(fault)
    for file, line, change in sorted(listed - {entry(f) for f in faults}):
        fail(f'{EQUIVALENT.name}: nothing is like this any more: {file}: {line}: {change}')
    return [f for f in faults if entry(f) not in listed]


def pick(faults, count, dropped):
    """The first `count` in their random order, no two on the same line."""
    picked, taken = [], {}
    for fault in faults:
        lines = range(fault['line'], fault['last'] + 1)
        used = taken.setdefault(fault['file'], set())
        if fault['key'] in dropped or not used.isdisjoint(lines):
            continue
        used.update(lines)
        picked.append(fault)
        if len(picked) == count:
            break
    return sorted(picked, key=lambda f: (f['file'], f['line']))


def mutated_texts(picked):
    edits = {}
    for fault in picked:
        for begin, end, text in fault['edits']:
            edits.setdefault(fault['file'], []).append(
                (begin, end, text.replace('MUTANT(@)', f'MUTANT({fault["number"]})')))
    texts = {}
    for name, changes in edits.items():
        data = (ROOT / name).read_bytes()
        for begin, end, text in sorted(changes, reverse=True):
            data = data[:begin] + text.encode() + data[end:]
        texts[name] = data
    return texts


def faults_of_errors(output, picked):
    """Those of the picked faults that the compiler complains about."""
    for what in (r':\d+: error:', ''): # an error in a template is far from the line that causes it
        lines = {(m[1], int(m[2])) for m in re.finditer(
            rf'{re.escape(str(COPY))}/([^:\s]+):(\d+)(?={what})', output)}
        found = [f for f in picked if any(
            name == f['file'] and f['line'] <= line <= f['last'] for name, line in lines)]
        if found:
            return found
    return []


def build_with_faults(faults, options, tracked, tests):
    """Builds with as many faults as wanted, dropping those that don't compile. Returns them."""
    dropped_file = WORK / 'dropped.json'
    dropped = set(load(dropped_file, []))
    programs = [t['program'] for t in tests.values()]
    while True:
        picked = pick(faults, options.count, dropped)
        write_copy(tracked, mutated_texts(picked))
        done = subprocess.run(['ninja', '-k', '0', *programs], cwd=BUILD, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode == 0:
            return picked
        bad = faults_of_errors(done.stdout, picked)
        if not bad:
            lines = done.stdout.splitlines()
            fail('the copy does not build, and not because of a fault:\n' + '\n'.join(
                [line for line in lines if 'error' in line or 'FAILED' in line] + lines[-20:]))
        print(f'{len(bad)} of {len(picked)} faults do not compile, others take their place',
              flush=True)
        dropped.update(f['key'] for f in bad)
        dropped_file.write_text(json.dumps(sorted(dropped)))


# -- running tests ----------------------------------------------------------------------------------


def end_orphans():
    """Ends the programs that a test left behind; they became our children (see main)."""
    while True:
        children = Path(f'/proc/self/task/{os.getpid()}/children').read_text().split()
        if not children:
            return
        for child in children:
            os.kill(int(child), signal.SIGKILL)
            os.waitpid(int(child), 0)


def run_test(test, arguments, variables, limit):
    """Runs a test program. Returns how it ended ('' when well), its seconds and its output."""
    environment = {**os.environ, **test['environment'], 'QTEST_DISABLE_STACK_DUMP': '1',
                   'QTEST_DISABLE_CORE_DUMP': '1', **variables}
    began = time.monotonic()
    process = subprocess.Popen([BUILD / test['program'], *arguments], cwd=test['folder'],
                               env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, start_new_session=True)
    try:
        output = process.communicate(timeout=limit)[0]
        code = process.returncode
        end = '' if code == 0 else f'crashed, signal {-code}' if code < 0 else 'failed'
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        end_orphans() # they may hold the pipe
        output = process.communicate()[0]
        end = 'timeout'
    seconds = time.monotonic() - began
    end_orphans()
    return end, seconds, output.decode(errors='replace')


def binaries_digest(tests):
    """Of everything that runs besides the test program itself."""
    programs = {t['program'] for t in tests.values()}
    files = [p for p in sorted(BUILD.rglob('*')) if p.is_file() and not p.is_symlink()
             and (p.suffix == '.so' or os.access(p, os.X_OK))
             and str(p.relative_to(BUILD)) not in programs and 'CMakeFiles' not in p.parts]
    return digest(*[hashlib.sha256(p.read_bytes()).hexdigest() for p in files])


def baseline(tests, picked, faults):
    """Runs every function without a fault. Returns [(test, function, seconds, numbers reached)]."""
    known_file = WORK / 'baseline.json'
    known = load(known_file, {})
    common = binaries_digest(tests) + digest(*sorted(f['number'] for f in picked))
    functions, fresh = [], {}
    for name, test in sorted(tests.items()):
        key = digest(common, hashlib.sha256((BUILD / test['program']).read_bytes()).hexdigest())
        if known.get(name, {}).get('key') != key:
            print(f'without faults: {name}', flush=True)
            known[name] = {'key': key, 'functions': baseline_of(name, test, len(faults) + 1)}
        fresh[name] = known[name]
        for function in known[name]['functions']:
            if function['end']:
                say(f'left out: {name} {function["name"]} ({function["end"]} without a fault)')
            else:
                functions.append((name, function['name'], function['seconds'],
                                  set(function['reached'])))
                if function['skipped']:
                    say(f'skips: {name} {function["name"]}: {function["skipped"]}')
    known_file.write_text(json.dumps({**known, **fresh}))
    return functions


def baseline_of(name, test, size):
    coverage = WORK / 'coverage'
    end, _, output = run_test(test, ['-functions'], {}, FUNCTION_LIMIT)
    names = re.findall(r'^(\w+)\(\)$', output, re.MULTILINE)
    if end or not names:
        fail(f'{name} -functions: {end}\n{output}')
    functions = []
    for function in names:
        coverage.write_bytes(bytes(size))
        end, seconds, output = run_test(test, [function], {'MUTANT_COVERAGE': str(coverage)},
                                        FUNCTION_LIMIT)
        reached = [n for n, byte in enumerate(coverage.read_bytes()) if byte]
        skipped = re.search(r'^SKIP\s*:(.*)', output, re.MULTILINE)
        functions.append({'name': function, 'end': end, 'seconds': round(seconds, 3),
                          'reached': reached, 'skipped': skipped[1].strip() if skipped else ''})
    return functions


def judge(fault, functions, tests, unreliable):
    """Returns who kills the fault and how, or what there was to run, and whether it is killed."""
    reaching = sorted((f for f in functions if fault['number'] in f[3]), key=lambda f: f[2])
    for name, function, seconds, _ in reaching:
        if (name, function) in unreliable:
            continue
        limit = 3 * seconds + 10
        end, _, _ = run_test(tests[name], [function], {'MUTANT': str(fault['number'])}, limit)
        if not end:
            continue
        if run_test(tests[name], [function], {'MUTANT': '0'}, limit)[0]:
            say(f'left out: {name} {function} (fails without a fault as well, sometimes)')
            unreliable.add((name, function))
            continue
        return True, f'{name} {function} ({end})'
    return False, f'{len(reaching)} functions reach it' if reaching else 'no test reaches it'


# -- all --------------------------------------------------------------------------------------------


def options_of_command():
    parser = argparse.ArgumentParser(
        prog='scripts/mutate.sh', description='Puts one-line faults into a copy of the sources, '
        'one at a time, and runs the tests that reach them: what survives, no test notices.')
    parser.add_argument('paths', nargs='*', metavar='PATH', help='files or folders to put faults in')
    parser.add_argument('--changed', nargs='?', const='HEAD', metavar='REV',
                        help='files changed since REV (HEAD)')
    parser.add_argument('--count', type=int, default=30, help='how many faults (30)')
    parser.add_argument('--seed', default='1', help='another number, other faults (1)')
    parser.add_argument('--only', '--keep', metavar='N,N', default='',
                        help='run only these of the faults, by their numbers')
    parser.add_argument('--tests', metavar='NAME,NAME', default='',
                        help='run only these test programs, which is faster')
    parser.add_argument('--list', action='store_true', help='list the faults, build and run nothing')
    options = parser.parse_args()
    if not options.paths and not options.changed:
        parser.error('name files or folders, or --changed')
    return options


def what_changes(fault):
    def short(text):
        return text if len(text) <= 70 else text[:67] + '...'
    return f'{fault["kind"]}  {short(fault["original"])}  ->  {short(fault["mutated"])}'


def describe(fault):
    return f'{fault["file"]}:{fault["line"]}  {what_changes(fault)}'


def main():
    options = options_of_command()
    sys.path.insert(0, str(HERE))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    ctypes.CDLL(None).prctl(36, 1, 0, 0, 0) # PR_SET_CHILD_SUBREAPER: orphans come to us
    tracked, chosen = files_to_change(options)
    WORK.mkdir(parents=True, exist_ok=True)
    if not (BUILD / 'build.ninja').exists() or not COPY.exists():
        write_copy(tracked, {})
    else: # new files, not yet the faults
        write_copy(tracked, {f: (COPY / f).read_bytes() for f in chosen if (COPY / f).exists()})
    configure()
    commands = compile_commands()
    faults = all_faults(chosen, commands, options.seed)
    if not faults:
        fail('no place for a fault in ' + ' '.join(chosen))
    if options.list:
        for fault in pick(faults, options.count, set(load(WORK / 'dropped.json', []))):
            print(f'{fault["number"]:5}  {describe(fault)}')
        return
    tests = tests_of(chosen, tracked, commands)
    if options.tests:
        tests = {name: tests[name] for name in options.tests.split(',') if name in tests}
    if not tests:
        fail('no such test program is built from ' + ' '.join(chosen))
    print(f'{len(faults)} possible faults in {len(chosen)} files; building {len(tests)} test programs',
          flush=True)
    picked = build_with_faults(faults, options, tracked, tests)
    functions = baseline(tests, picked, faults)
    only = {int(n) for n in options.only.split(',') if n}
    run = [f for f in picked if not only or f['number'] in only]
    if only - {f['number'] for f in run}:
        fail('not among the faults of this seed: ' + str(only - {f['number'] for f in run}))

    survivors, unreliable = [], set()
    for fault in run:
        killed, how = judge(fault, functions, tests, unreliable)
        say(f'{fault["number"]:5}  {"killed  " if killed else "SURVIVED"}  {describe(fault)}  [{how}]')
        if not killed:
            survivors.append((fault, how))

    kills = len(run) - len(survivors)
    say(f'\n{kills} of {len(run)} killed ({100 * kills / len(run):.0f} %); '
        f'seed {options.seed}: {" ".join(options.paths)}')
    for fault, how in survivors:
        line = (ROOT / fault['file']).read_text().splitlines()[fault['line'] - 1].strip()
        say(f'\n{fault["number"]:5}  {describe(fault)}  [{how}]\n       {line}')
    REPORT.write_text('\n'.join(report_lines) + '\n')


main()
