#!/usr/bin/env python3
"""How many public declarations of the headers say what they are: types, functions and fields, in percent.

usage: tools/count-documented.py [--list] [--check] [FOLDER...]      include, config, common, ocula and host unless named

A declaration counts when a comment stands on the line before it or behind it on its own line. Lines that follow each
other without a blank line share the comment above the first of them, if that is one sentence for all. Left out: what is
private or protected, what overrides, constructors, destructors, operators, and what is deleted or defaulted.
--list names what has no comment; --check ends with 1 below 95 % of types, 90 % of functions or 90 % of fields.
"""
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
LEAST = {'types': 95, 'functions': 90, 'fields': 90}
TYPE = re.compile(r'^(?:template .*>\s*)?(?:struct|class|enum class|enum)\s+(?:\w+\([^{]*\)+\s+)*(?:__attribute__\(\(.*?\)\)\s+)?(\w+)[^;]*\{')
FUNCTION = re.compile(r'(~?\w+)\s*\(')
SKIPPED = re.compile(r'= delete|= default|\boverride\b|\boperator\b|^using\b|^friend\b|^return\b|^static_assert|^extern')


def joined(lines):
    """Declarations as (first line, text, depth), a continued one as a whole; bodies of functions are not looked into."""
    text, first, depth, hidden = '', 0, 0, None
    for number, line in enumerate(lines):
        code = re.sub(r'//.*', '', line).strip()
        if not code or code.startswith(('#', '}')) and code.rstrip(';') == '}':
            if code.startswith('}'):
                depth -= 1
                if hidden is not None and depth <= hidden:
                    hidden = None
            continue
        if code.startswith('#'):
            continue
        if not text:
            first = number
        text = (text + ' ' + code).strip()
        opened = code.count('{') - code.count('}')
        if not re.search(r'[;{}:]$', code):
            continue
        if hidden is None:
            yield first, text, depth
        begins_body = opened > 0 and not TYPE.match(text) and not text.startswith(('namespace', 'extern "C"'))
        if begins_body and hidden is None:
            hidden = depth
        depth += opened
        if hidden is not None and depth <= hidden:
            hidden = None
        text = ''


def where_documented(lines, number):
    """'behind', 'above' or ''."""
    if '//' in lines[number]:
        return 'behind'
    last = number
    while last + 1 < len(lines) and not re.search(r'[;{}]', re.sub(r'//.*', '', lines[last])):
        last += 1
    if '///<' in lines[last]:
        return 'behind'
    above = number - 1
    while above >= 0 and lines[above].strip().startswith('template'):
        above -= 1
    return 'above' if above >= 0 and lines[above].strip().startswith('//') else ''


def kind_of(text, owner):
    if TYPE.match(text):
        return 'types'
    if SKIPPED.search(text) or text.startswith(('}', 'namespace', 'public', 'private', 'protected')):
        return None
    call = FUNCTION.search(re.sub(r'CSRT_\w+\(\w*\)|__attribute__\(\(.*?\)\)|std::function<[^;]*>', '', text))
    if call and not re.search(r'=[^=]*\(', text.split('(')[0] + '('):
        return None if call[1].lstrip('~') == owner or call[1].isupper() else 'functions'
    if text.endswith(';') and re.search(r'\w', text) and not text.startswith(('struct', 'class', 'enum', 'template')):
        return 'fields'
    return None


def declarations(path):
    lines = path.read_text(encoding='utf-8').split('\n')
    owners, hidden = [], set()
    shared = None
    for number, text, depth in joined(lines):
        owners = [o for o in owners if o[1] < depth]
        if text in ('private:', 'protected:'):
            hidden.add(depth)
            continue
        if text == 'public:':
            hidden.discard(depth)
            continue
        hidden = {d for d in hidden if d <= depth}
        kind = kind_of(text, owners[-1][0] if owners else '')
        if any(d <= depth for d in hidden) or kind is None:
            continue
        if TYPE.match(text):
            owners.append((TYPE.match(text)[1], depth))
            hidden = {d for d in hidden if d <= depth}
        documented = where_documented(lines, number)
        if not documented and shared == (number - 1, kind):
            documented = 'above'
        shared = (number, kind) if documented == 'above' and kind != 'types' else None
        yield kind, bool(documented), number + 1, text


def main():
    options = {a for a in sys.argv[1:] if a.startswith('--')}
    folders = [a for a in sys.argv[1:] if not a.startswith('--')] or ['include', 'config', 'common', 'ocula', 'host']
    listed = subprocess.run(['git', 'ls-files', *(f'{f}/*.h' for f in folders)], cwd=ROOT, capture_output=True, text=True,
                            check=True).stdout.split()
    counts = {kind: [0, 0] for kind in LEAST}
    for file in listed:
        for kind, documented, line, text in declarations(ROOT / file):
            counts[kind][0] += documented
            counts[kind][1] += 1
            if not documented and '--list' in options:
                print(f'{file}:{line}: {kind}: {text[:90]}')
    low = False
    for kind, (have, of) in counts.items():
        share = 100.0 * have / of if of else 100.0
        low |= share < LEAST[kind]
        print(f'{kind}: {have} of {of} ({share:.0f} %)')
    sys.exit(1 if low and '--check' in options else 0)


if __name__ == '__main__':
    main()
