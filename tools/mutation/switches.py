"""Writes sources in which every mutation of a file is switched at run time by csrt_mutant(NUMBER).

A function with mutations gets one more copy of its body for each; a constant outside of functions chooses its value.
"""
import re

from cpp_source import blank_non_code, function_bodies

HEADER = '''// Made by tools/mutation: which mutation is on in this process.
#pragma once
#include <cstdio>
#include <cstdlib>

namespace csrt_mutation {

/// The mutations whose code was reached, written to $CSRT_MUTANT_TRACE when the process ends.
struct Trace {
  bool reached[4096] = {};
  const char* path = std::getenv("CSRT_MUTANT_TRACE");
  ~Trace() {
    std::FILE* file = path != nullptr ? std::fopen(path, "a") : nullptr;
    if (file == nullptr) return;
    for (int i = 0; i < 4096; ++i) {
      if (reached[i]) std::fprintf(file, "%d\\n", i);
    }
    std::fclose(file);
  }
};

inline Trace& trace() {
  static Trace instance;
  return instance;
}

inline int selected() {
  static const int number = std::getenv("CSRT_MUTANT") != nullptr ? std::atoi(std::getenv("CSRT_MUTANT")) : 0;
  return number;
}

}  // namespace csrt_mutation

inline bool csrt_mutant(int number) {
  static csrt_mutation::Trace& trace = csrt_mutation::trace();
  static const int selected = csrt_mutation::selected();
  if (trace.path != nullptr) trace.reached[number] = true;
  return number == selected;
}
'''

INCLUDE = '#include "csrt_mutant.h"\n'


def _end(mutant):
    return mutant.offset + len('\n'.join(mutant.old))


def _mutated(text, mutant, first, last):
    """text[first:last] with the mutation applied; None where the mutation does not lie wholly between the two."""
    old, new = '\n'.join(mutant.old), '\n'.join(mutant.new)
    before, after = max(first - mutant.offset, 0), max(_end(mutant) - last, 0)  # of the lines, outside of the two
    if old[:before] != new[:before] or old[len(old) - after:] != new[len(new) - after:]:
        return None
    return text[first:max(mutant.offset, first)] + new[before:len(new) - after] + text[min(_end(mutant), last):last]


def _copied_body(text, first, last, mutants):
    copies = ''
    for mutant in mutants:
        copies += f'\nif (csrt_mutant({mutant.number})) {{\n'
        copies += _mutated(text, mutant, first + 1, last) + '\n} else'
    return text[first] + copies + ' {' + text[first + 1:last] + '}'


def _chosen_constant(mutant):
    """`constexpr int kSide = 32;` becomes a choice between the two values."""
    pattern = re.compile(r'^(\s*)(?:constexpr|const) (.+?) = (.+);(.*)$')
    old, new = pattern.match(mutant.old[0]), pattern.match(mutant.new[0])
    if len(mutant.old) != 1 or not old or not new:
        return None
    name = re.escape(old[2].split()[-1])
    if re.search(rf'\b{name}\b', old[3]):
        return None
    return f'{old[1]}const {old[2]} = csrt_mutant({mutant.number}) ? {new[3]} : {old[3]};{old[4]}\n'


def _chosen_in_place(mutant):
    """The one token in which the lines differ, outside of functions: `0.5` becomes a choice between the two."""
    old, new = '\n'.join(mutant.old), '\n'.join(mutant.new)
    tokens = [re.findall(r'[\w.]+|\s+|[^\w\s]', line) for line in (old, new)]
    different = [i for i, (a, b) in enumerate(zip(*tokens)) if a != b]
    if len(tokens[0]) != len(tokens[1]) or len(different) != 1:
        return None
    i = different[0]
    if not re.fullmatch(r'[\d.]+[UF]?|true|false', tokens[0][i]):
        return None
    tokens[0][i] = f'(csrt_mutant({mutant.number}) ? {tokens[1][i]} : {tokens[0][i]})'
    return ''.join(tokens[0]) + '\n'


def with_switches(text, mutants):
    """The text with all the mutations in it; each must have been located.

    Raises ValueError for one that fits nowhere.
    """
    code = blank_non_code(text)
    edits, of_body = [], {}
    bodies = function_bodies(code)
    for mutant in mutants:
        body = next(((a, b) for a, b in bodies if a < _end(mutant) and mutant.offset <= b), None)
        if body is not None and _mutated(text, mutant, body[0] + 1, body[1]) is not None:
            of_body.setdefault(body, []).append(mutant)
            continue
        chosen = _chosen_constant(mutant) or _chosen_in_place(mutant)
        if chosen is None:
            raise ValueError(f'{mutant.place(text)}: no way to switch this: {mutant.change()}')
        edits.append((mutant.offset, _end(mutant) + 1, chosen))
    for (first, last), inside in of_body.items():
        edits.append((first, last, _copied_body(text, first, last, inside)))
    for first, last, new in sorted(edits, reverse=True):
        text = text[:first] + new + text[last:]
    if text.startswith('#pragma once\n') or '\n#pragma once\n' in text:
        return text.replace('#pragma once\n', '#pragma once\n' + INCLUDE, 1)
    return INCLUDE + text
