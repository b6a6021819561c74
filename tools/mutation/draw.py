#!/usr/bin/env python3
"""draw.py [COUNT [SEED]]: draws a new list of mutations and prints it.

Every place where one of the kinds below fits is a candidate, whatever the tests say of it. Each file gets a share that
grows with the root of the number of its candidates, so that small files are not left out; in a file every kind has the
same chance. Mutations that the compiler refuses give way to the next ones. Left out: log lines, whose texts have tests
of their own, and the sources for a GPU, which are not built here.
"""
import math
import random
import re
import subprocess
import sys
import tempfile
from pathlib import Path

import mutant_list
import switches
from cpp_source import blank_non_code

ROOT = Path(__file__).resolve().parents[2]
LEFT_OUT = {'image_backend_cuda.cpp', 'image_backend_no_cuda.cpp', 'csrt_tracking_plugin.cpp'}
SWAPPED = {
    'comparison': {'<': '<=', '<=': '<', '>': '>=', '>=': '>'},
    'equality': {'==': '!=', '!=': '=='},
    'logic': {'&&': '||', '||': '&&'},
    'sign': {'+': '-', '-': '+', '+=': '-=', '-=': '+='},
    'product': {'*': '/', '/': '*'},
    'extremum': {'std::min': 'std::max', 'std::max': 'std::min'},
    'truth': {'true': 'false', 'false': 'true'},
    'step': {'++': '--', '--': '++'},
}
KEYWORDS = (r'(?:return|break|continue|using|typedef|throw|case|default|static|const|constexpr|auto|if|else|for|while|do|'
            r'switch|struct|class|enum|template|typename|public|private|friend|explicit|virtual|delete)\b')
STATEMENT = re.compile(rf'\s+(?!{KEYWORDS})(?:\+\+|--|\*)?[a-z_]\w*(?:(?:\.|->|::)\w+|\[[^\]]*\])*'
                       r'(?: [+*/|&-]?= .*| ?\(.*\)|\+\+|--)?;')
OPERATOR = re.compile(r'std::(?:min|max)(?=[(<])|\b(?:true|false)\b|\+\+|--|'
                      r'(?<= )(?:[<>=!]=|[-+*/]=?|&&|\|\||[<>])(?= )')
CONSTANT = re.compile(r'(?<![\w.<])(\d+\.\d+|\d+)(F|U)?(?![\w.>])')
CONDITION = re.compile(r'(\s*(?:if|while) \()([^;{}]*?)(\)(?: \{| (?:return|continue|break|throw|[a-z_+]).*;)?)')


def in_log(code, i):
    """Whether line i belongs to a statement that writes to the log."""
    while i > 0 and code[i - 1].strip() and code[i - 1].rstrip()[-1] not in ';{}':
        i -= 1
    return re.match(r'\s*(?:else |if \(.*\) )?(?:log_|logAnswer_|std::cerr)\b', code[i]) is not None


def candidates(path):
    text = (ROOT / path).read_text(encoding='utf-8')
    lines, code = text.split('\n'), blank_non_code(text).split('\n')
    for i, line in enumerate(code):
        if in_log(code, i) or not line.strip() or re.match(r'\s*(?:case|template|using|enum|static_assert)\b', line):
            continue
        for kind, start, end, new in token_mutations(line):
            yield kind, i, [lines[i]], [lines[i][:start] + new + lines[i][end:]]
        if is_statement(code, i):
            yield 'dropped', i, [lines[i]], []
            if is_statement(code, i + 1) and not in_log(code, i + 1):
                yield 'order', i, lines[i:i + 2], [lines[i + 1], lines[i]]


def is_statement(code, i):
    line = code[i].rstrip()
    before = code[i - 1].rstrip()
    return STATEMENT.fullmatch(line) is not None and (before == '' or before[-1] in ';{}')


def token_mutations(line):
    for kind, swapped in SWAPPED.items():
        for match in OPERATOR.finditer(line):
            if match.group() in swapped:
                yield kind, match.start(), match.end(), swapped[match.group()]
    for match in CONSTANT.finditer(line):
        yield 'constant', match.start(), match.end(), other_constant(match[1]) + (match[2] or '')
    match = CONDITION.fullmatch(line.rstrip())
    if match and match[2].count('(') == match[2].count(')') and ' = ' not in match[2]:
        yield 'negation', match.start(2), match.end(2), f'!({match[2]})'


def other_constant(digits):
    if '.' not in digits:
        return str(int(digits) + 1)
    value = float(digits) * 1.1 if float(digits) != 0.0 else 0.1
    return f'{value:.6g}' if '.' in f'{value:.6g}' else f'{value:.6g}.0'


def compiles(path, text, mutants, command):
    try:
        switched = switches.with_switches(text, mutants)
    except ValueError:
        return False
    with tempfile.TemporaryDirectory() as folder:
        (Path(folder) / 'csrt_mutant.h').write_text(switches.HEADER, encoding='utf-8')
        file = Path(folder) / Path(path).name
        file.write_text(switched, encoding='utf-8')
        return subprocess.run([*command, f'-I{folder}', str(file)], capture_output=True).returncode == 0


def compile_command():
    opencv = subprocess.run(['pkg-config', '--cflags', 'opencv4'], capture_output=True, text=True, check=True).stdout
    folders = [f'-I{ROOT / f}' for f in ('src', 'config', 'common', 'include')]
    return ['g++', '-std=c++17', '-fsyntax-only', '-w', *folders, *opencv.split()]


def drawn(path, text, randomness):
    """All candidates in drawn order: first a kind, then a place."""
    by_kind = {}
    for kind, line, old, new in candidates(path):
        by_kind.setdefault(kind, []).append((line, old, new))
    while by_kind:
        kind = randomness.choice(sorted(by_kind))
        line, old, new = by_kind[kind].pop(randomness.randrange(len(by_kind[kind])))
        if not by_kind[kind]:
            del by_kind[kind]
        mutant = mutant_list.Mutant(path, kind, old, new, number=1)
        offset = len('\n'.join(text.split('\n')[:line])) + (1 if line else 0)
        while mutant_list.locate(mutant, text) and mutant.offset != offset:
            mutant.occurrence += 1
        yield line, mutant


def draw(path, share, randomness, command):
    text = (ROOT / path).read_text(encoding='utf-8')
    source = drawn(path, text, randomness)
    chosen, lines = [], set()
    while True:
        for line, mutant in source:
            if len(chosen) == share:
                break
            if line not in lines:
                lines.add(line)
                chosen.append(mutant)
        if not chosen or compiles(path, text, chosen, command):
            return sorted(chosen, key=lambda m: m.offset)
        chosen = [m for m in chosen if compiles(path, text, [m], command)]


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 100
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    files = [str(p.relative_to(ROOT)) for f in ('src', 'config', 'common') for p in sorted((ROOT / f).glob('*.[ch]*'))
             if p.name not in LEFT_OUT and p.suffix in ('.cpp', '.h')]
    weight = {f: math.sqrt(len(list(candidates(f)))) for f in files}
    total = sum(weight.values())
    print(f'# Drawn by tools/mutation/draw.py {count} {seed}; the lines that begin with "=" were added by hand.\n')
    for path in files:
        if weight[path] == 0:
            continue
        share = max(round(count * weight[path] / total), 1)
        for mutant in draw(path, share, random.Random(f'{seed} {path}'), compile_command()):
            print(mutant.block())


if __name__ == '__main__':
    main()
