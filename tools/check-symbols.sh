#!/usr/bin/env bash
# check-symbols.sh PLUGIN.so: fails unless the plug-in exports the interface's type information and nothing else.
set -euo pipefail
plugin=$1
allowed='^(typeinfo|typeinfo name|vtable) for IAlgoPlugin$'
# Sanitizers and coverage add their own.
instrumentation='^(__asan|__ubsan|__sanitizer|__odr_asan|__tsan|__gcov|mangled_path|gcov_)'
foreign=$(nm -DC --defined-only "$plugin" | sed 's/^[0-9a-f]* . //' | grep -Ev "$allowed|$instrumentation" || true)
if [ -n "$foreign" ]; then
  printf 'check-symbols.sh: %s exports more than the interface:\n%s\n' "$plugin" "$foreign" >&2
  exit 1
fi
nm -DC --defined-only "$plugin" | grep -q 'typeinfo for IAlgoPlugin' ||
  { echo "check-symbols.sh: $plugin does not export the interface's type information" >&2; exit 1; }
