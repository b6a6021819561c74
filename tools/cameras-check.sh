#!/usr/bin/env bash
# Does a fault of one camera stay with it? Three `csrt-track track` processes follow three live senders on this machine's
# loopback. The plug-in of one aborts and its run is started again, the sender of another is killed and comes back: the
# records of those that were left alone must have no gap, and `csrt-track status` must say which one is ill. About half
# a minute. Needs a build with its tests (fake_plugin); CSRT_BUILD names another build folder.
# Exit status: 0 all is well, 1 something is not, 77 the senders are not installed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
exec /usr/bin/python3 "$root/tools/lib/cameras_check.py" --build "${CSRT_BUILD:-$root/build}" "$@"
