#!/usr/bin/env bash
# check-linked-libraries.sh PLUGIN.so: fails unless the plug-in links nothing but its listed dependencies, and unless
# linked-libraries knows the version and the licences of each.
set -euo pipefail
plugin=$1
tools=$(dirname "$0")
allowed='^lib(opencv_(core|imgproc|tracking|ximgproc|cuda[a-z]*)|class_loader|console_bridge|crypto|stdc\+\+|m|gcc_s|c)\.so'
allowed+='|^ld-linux|^lib(asan|ubsan|tsan|gcov)\.so' # the linker itself, and what instrumented builds add
named=$(readelf -d "$plugin" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
foreign=$(grep -Ev "$allowed" <<<"$named" || true)
if [ -n "$foreign" ]; then
  printf 'check-linked-libraries.sh: %s links more than its dependencies:\n%s\n' "$plugin" "$foreign" >&2
  exit 1
fi

table=$("$tools/linked-libraries" "$plugin") # fails where one has no package
while read -r library; do
  awk -v library="$library" '$2 == library && $5 ~ /^[0-9]/ && $6 ~ /^[A-Za-z]/ { found = 1 } END { exit !found }' \
    <<<"$table" ||
    { echo "check-linked-libraries.sh: no version or licence known of $library" >&2; exit 1; }
done <<<"$named"
"$tools/linked-libraries" --all --cyclonedx "$plugin" | python3 -c '
import json, sys
components = json.load(sys.stdin)["components"]
names = [component["name"] for component in components]
assert len(names) == len(set(names)) and any(name.startswith("libopencv-core") for name in names), names
assert all(component["version"] and component["licenses"] for component in components), components'
