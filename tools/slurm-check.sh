#!/usr/bin/env bash
# Shards one evaluation over a real Slurm of this machine: munged, slurmctld and two slurmd nodes of one processor each,
# on the loopback address with files of their own, ended again by the script. A job array runs
# `csrt-track evaluate --shard`, a dependent job merges. Meanwhile one shard is killed and another one's node drained:
# both are requeued and repeated, and the merged result must equal one process's, timings aside. Half a minute on an
# idle machine. Needs root, a build (CSRT_BUILD names another folder) and Debian's slurmctld, slurmd, slurm-client, munge.
#   tools/slurm-check.sh [--keep DIR]    --keep: configuration, logs and results stay there
# Exit status: 0 all is well, 1 something is not, 77 what it needs is not there.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
exec /usr/bin/python3 "$root/tools/lib/slurm_check.py" --build "${CSRT_BUILD:-$root/build}" "$@"
