#!/usr/bin/env python3
"""Holds the #include lines against the tables of rooms in docs/architecture.md.

A room may include itself and what its row names in "may depend on"; every room that a row names must stand below it, so
that arrows only point downwards in the table and no circle can arise. A file of host/ names the room of what it
includes from another ("input/frame_source.h"). Prints what is wrong and ends with 1.

A header of include/ belongs to the room that holds its source (window_geometry.h: src/); one without a source, and with
it the interface to the host, belongs to include/ itself.
"""
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
PAGE = 'docs/architecture.md'
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]+["<]([^">]+)[">]', re.MULTILINE)


def read_rooms(page, heading):
    """The rows of the table below the heading: room -> rooms it may include, in the order of the page."""
    section = page.split(heading, 1)[1]
    rooms = {}
    for line in section.split('\n')[1:]:
        if rooms and not line.startswith('|'):
            break
        cells = [cell.strip() for cell in line.strip('|').split('|')]
        name = re.match(r'`(\w+)/`', cells[0])
        if line.startswith('|') and name:
            rooms[name[1]] = cells[2]
    names = list(rooms)
    return {room: set(names[names.index(room) + 1:] if text == 'all below' else re.findall(r'`(\w+)/`', text))
            for room, text in rooms.items() if text != 'anything'}


def wrong_rows(rooms, elsewhere=()):
    """@param elsewhere  rooms of the other table, all of which stand below this one's"""
    wrong, below = [], set()
    for room, allowed in reversed(rooms.items()):
        wrong += [f'{PAGE}: {room}/ names {other}/, which does not stand below it'
                  for other in sorted(allowed - below - set(elsewhere))]
        below.add(room)
    return wrong


def sources():
    listed = subprocess.run(['git', 'ls-files', '*.h', '*.cpp'], cwd=ROOT, capture_output=True, text=True, check=True)
    return listed.stdout.split()


def owner(header, files):
    """The room of a header in include/."""
    if header.startswith('include/ocula/'):
        return 'ocula'
    stem = Path(header).stem
    for file in files:
        room, name = file.split('/')[0], Path(file).stem
        if room in ('src', 'config') and (name == stem or name.startswith(stem + '_')):
            return room
    return 'include'


def homes(files, rooms):
    """Header as it is included -> its room among the rooms at the top."""
    home = {}
    for file in files:
        top = file.split('/')[0]
        if not file.endswith('.h') or top not in rooms:
            continue
        name = file.split('/', 1)[1]
        home[name] = owner(file, files) if top == 'include' else top
    return home


def lies_elsewhere(name, inner, files):
    """Whether a header named without a room is one of host/, but of no folder of this room."""
    named = [f for f in files if f.startswith('host/') and f.endswith('/' + name)]
    return '/' not in name and bool(named) and not any(f.startswith(f'host/{inner}/') for f in named)


def check(files, top_rooms, host_rooms):
    wrong = []
    home = homes(files, top_rooms)
    for file in files:
        parts = file.split('/')
        room = owner(file, files) if parts[0] == 'include' else parts[0]
        if room not in top_rooms:
            continue  # tests and tools see everything
        inner = parts[1] if room == 'host' and len(parts) > 2 else None
        if inner and inner not in host_rooms:
            wrong.append(f'{file}: host/{inner}/ is not in the table of {PAGE}')
            continue
        for name in INCLUDE.findall((ROOT / file).read_text(encoding='utf-8')):
            there = name.split('/')[0]
            if room == 'host' and there in host_rooms and '/' in name:
                if inner and there != inner and there not in host_rooms[inner]:
                    wrong.append(f'{file}: includes "{name}", but host/{inner}/ may not depend on {there}/')
            elif name in home and home[name] not in top_rooms[room] | {room}:
                wrong.append(f'{file}: includes "{name}" of {home[name]}/, but {room}/ may not depend on it')
            elif room == 'host' and lies_elsewhere(name, inner, files):
                wrong.append(f'{file}: includes "{name}" without the name of its room')
    return wrong


def main():
    page = (ROOT / PAGE).read_text(encoding='utf-8')
    top_rooms, host_rooms = read_rooms(page, '## Rooms'), read_rooms(page, 'Inside `host/`')
    if not top_rooms or not host_rooms:
        sys.exit(f'check-rooms: no table of rooms in {PAGE}')
    wrong = wrong_rows(top_rooms) + wrong_rows(host_rooms, set(top_rooms) - set(host_rooms)) + check(sources(), top_rooms, host_rooms)
    print('\n'.join(wrong) if wrong else f'{len(top_rooms)} rooms, {len(host_rooms)} in host/: arrows only downwards')
    sys.exit(1 if wrong else 0)


if __name__ == '__main__':
    main()
