#!/usr/bin/env bash
# Is csrt-track@.service strict, and does the program work inside it? systemd's own judgement of the unit file (exposure
# at most 3.0, verify), and the program run on a live sender under what the file says: read-only system, private /tmp,
# its own folders, no devices, no capabilities, its system calls and address families alone. Not applied, because that
# needs a running systemd: processor and memory limits (memory is measured instead), the address list, the device list.
#   tools/unit-check.sh          all; needs a build, CSRT_BUILD names another build folder
#   tools/unit-check.sh --file   the unit file alone
# Exit status: 0 all is well, 1 something is not, 77 what it needs is not installed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
exec /usr/bin/python3 "$root/tools/lib/unit_check.py" --root "$root" --build "${CSRT_BUILD:-$root/build}" "$@"
