"""The list of mutations: one block each, the lines as they are and as they become.

    config/rounding.cpp: comparison
    -  if (value <= std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    +  if (value < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    = Why no test can tell the two apart.  (only where that is so)

"path@2" means the second place in the file where those lines stand.
"""
import re
from dataclasses import dataclass, field


@dataclass
class Mutant:
    path: str
    kind: str
    old: list
    new: list
    occurrence: int = 1
    explanation: str = ''
    number: int = 0
    offset: int = field(default=-1, compare=False)  # of the old lines in the file

    def place(self, text):
        return f'{self.path}:{text.count(chr(10), 0, self.offset) + 1}'

    def change(self):
        old = ' '.join(line.strip() for line in self.old)
        return f'{self.kind}: {old}  =>  {" ".join(line.strip() for line in self.new) or "(nothing)"}'

    def block(self):
        place = self.path if self.occurrence == 1 else f'{self.path}@{self.occurrence}'
        lines = [f'{place}: {self.kind}'] + ['-' + line for line in self.old] + ['+' + line for line in self.new]
        return '\n'.join(lines + (['= ' + self.explanation] if self.explanation else [])) + '\n'


def read(path):
    mutants = []
    for line in path.read_text(encoding='utf-8').splitlines():
        head = re.fullmatch(r'([\w/.]+?)(?:@(\d+))?: ([\w ]+)', line)
        if line.startswith('#') or not line.strip():
            continue
        if head:
            mutants.append(Mutant(head[1], head[3], [], [], int(head[2] or 1), number=len(mutants) + 1))
        elif line[0] == '-':
            mutants[-1].old.append(line[1:])
        elif line[0] == '+':
            mutants[-1].new.append(line[1:])
        elif line[0] == '=':
            mutants[-1].explanation = (mutants[-1].explanation + ' ' + line[1:].strip()).strip()
        else:
            raise SystemExit(f'{path}: not understood: {line}')
    return mutants


def locate(mutant, text):
    """Sets the offset of the old lines, which must be whole lines; False when they are no longer there."""
    wanted, place = '\n'.join(mutant.old) + '\n', -1
    for _ in range(mutant.occurrence):
        place = ('\n' + text).find('\n' + wanted, place + 1)
        if place < 0:
            return False
    mutant.offset = place
    return True
