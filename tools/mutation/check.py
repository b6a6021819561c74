#!/usr/bin/env python3
"""Applies the mutations of list.txt one at a time and reports which of them the tests notice.

Builds the sources once, with every mutation switched at run time; runs each test program once without any, which must
pass and tells how long it takes and which mutations it reaches; then, for each mutation, the programs that reach it,
quick ones first, up to the first that fails. A program that crashes or takes ten times its time has failed.
Ends with 1 when fewer than 90 % of the mutations are noticed, when one goes unnoticed without an explanation in the
list, when one explained as equivalent is noticed, and when the lines of one are no longer in the sources.
"""
import argparse
import os
import re
import shlex
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import mutant_list
import switches

ROOT = Path(__file__).resolve().parents[2]
LIST = ROOT / 'tools/mutation/list.txt'
BUILD = ROOT / 'build/mutation'
MUTATED = ('src', 'config', 'common')
LEAST_KILLED = 0.9
# A long run over what properties_test runs too, and a test that needs a device.
NOT_RUN = {'soak_test', 'gpu_backend_test'}


def fail(message):
    raise SystemExit(f'mutation: {message}')


def locate_all(mutants):
    """The text of every mutated file; ends the program when the list no longer fits the sources."""
    texts, lost = {}, []
    for mutant in mutants:
        text = texts.setdefault(mutant.path, (ROOT / mutant.path).read_text(encoding='utf-8'))
        if not mutant_list.locate(mutant, text):
            lost.append(f'{mutant.path}: {mutant.change()}')
    if lost:
        fail('no longer in the sources, draw these anew or follow the change:\n  ' + '\n  '.join(lost))
    return texts


def write_if_changed(path, text):
    if not path.exists() or path.read_text(encoding='utf-8') != text:
        path.write_text(text, encoding='utf-8')


def make_sources(mutants, texts):
    """The project as a folder of links, but for the sources, which are copies with switches."""
    tree = BUILD / 'source'
    tree.mkdir(parents=True, exist_ok=True)
    for entry in ROOT.iterdir():
        link = tree / entry.name
        if entry.name not in ('build', '.git', *MUTATED) and not link.is_symlink():
            link.symlink_to(entry)
    for folder in MUTATED:
        (tree / folder).mkdir(exist_ok=True)
        write_if_changed(tree / folder / 'csrt_mutant.h', switches.HEADER)
        for file in (ROOT / folder).iterdir():
            path = f'{folder}/{file.name}'
            own = [m for m in mutants if m.path == path]
            text = file.read_text(encoding='utf-8')
            write_if_changed(tree / path, switches.with_switches(texts[path], own) if own else text)
    return tree


def build(tree, jobs):
    binary = BUILD / 'binary'
    options = shlex.split(os.environ.get('CSRT_CMAKE_OPTIONS', ''))
    subprocess.run(['cmake', '-S', str(tree), '-B', str(binary), '-G', 'Ninja', '-DPython3_EXECUTABLE=/usr/bin/python3',
                    '-DCMAKE_BUILD_TYPE=Release', '-DCSRT_BUILD_HOST=OFF', '-DCSRT_CUDA=OFF', '-DCMAKE_CXX_FLAGS=-w',
                    *options], check=True, stdout=subprocess.DEVNULL)
    listed = subprocess.run(['ninja', '-C', str(binary), '-t', 'targets', 'all'], check=True, capture_output=True,
                            text=True).stdout
    tests = sorted(set(re.findall(r'^((?!cmake_)\w+_test): phony', listed, re.MULTILINE)) - NOT_RUN)
    subprocess.run(['cmake', '--build', str(binary), '-j', str(jobs), '--target', *tests], check=True,
                   stdout=subprocess.DEVNULL)
    return [binary / 'bin' / test for test in tests]


def run(program, mutant, limit, trace=None):
    """(passed, seconds) of one test program."""
    environment = dict(os.environ, CSRT_MUTANT=str(mutant), GTEST_FAIL_FAST='1')
    environment.pop('CSRT_MUTANT_TRACE', None)
    if trace is not None:
        environment['CSRT_MUTANT_TRACE'] = str(trace)
    began = time.monotonic()
    try:
        done = subprocess.run([str(program)], env=environment, timeout=limit, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=BUILD / 'binary')
        return done.returncode == 0, time.monotonic() - began
    except subprocess.TimeoutExpired:
        return False, time.monotonic() - began


def measure(program):
    """(seconds, mutations reached) of a program without a mutation; it must pass."""
    trace = BUILD / f'{program.name}.reached'
    trace.unlink(missing_ok=True)
    passed, seconds = run(program, 0, 600, trace)
    if not passed:
        fail(f'{program.name} fails without a mutation')
    return seconds, {int(line) for line in trace.read_text().split()} if trace.exists() else set()


def killer(mutant, measured):
    """The name of the first test program that notices the mutation; None when none does."""
    reaching = sorted((seconds, program) for program, (seconds, reached) in measured.items()
                      if mutant.number in reached)
    for seconds, program in reaching:
        if not run(program, mutant.number, 10 * seconds + 20)[0]:
            return program.name
    return None


def report(mutants, killers, texts, least):
    """Prints one line each and the sum; the exit status."""
    survivors = [m for m in mutants if killers[m.number] is None]
    wrong = [m for m in mutants if m.explanation and killers[m.number] is not None]
    for mutant in mutants:
        name = killers[mutant.number]
        state = f'killed by {name}' if name else 'SURVIVED' + (', explained' if mutant.explanation else '')
        print(f'{mutant.number:4} {mutant.place(texts[mutant.path])}: {state}')
        if name is None:
            print(f'       {mutant.change()}' + (f'\n       {mutant.explanation}' if mutant.explanation else ''))
    for mutant in wrong:
        print(f'mutation {mutant.number} is explained as equivalent, yet a test notices it')
    unexplained = [m for m in survivors if not m.explanation]
    killed = len(mutants) - len(survivors)
    print(f'{killed} of {len(mutants)} killed ({100.0 * killed / len(mutants):.1f} %), '
          f'{len(survivors) - len(unexplained)} survivors explained, {len(unexplained)} not')
    return 1 if wrong or unexplained or killed < least * len(mutants) else 0


def main():
    parser = argparse.ArgumentParser(description='Which mutations of the sources do the tests notice?')
    parser.add_argument('--jobs', type=int, default=1, help='processes at a time')
    parser.add_argument('--only', type=int, nargs='*',
                        help='numbers of the mutations to try; then no share is asked for')
    options = parser.parse_args()
    mutants = mutant_list.read(LIST)
    texts = locate_all(mutants)
    began = time.monotonic()
    tests = build(make_sources(mutants, texts), options.jobs)
    built = time.monotonic()
    measured = {test: measure(test) for test in tests}
    print(f'built in {built - began:.0f} s; {len(tests)} test programs pass without a mutation, '
          f'{time.monotonic() - built:.0f} s', flush=True)
    tried = [m for m in mutants if not options.only or m.number in options.only]
    with ThreadPoolExecutor(options.jobs) as pool:
        killers = dict(zip((m.number for m in tried), pool.map(lambda m: killer(m, measured), tried)))
    status = report(tried, killers, texts, 0.0 if options.only else LEAST_KILLED)
    print(f'all of it: {time.monotonic() - began:.0f} s')
    return status


if __name__ == '__main__':
    sys.exit(main())
