#!/usr/bin/env bash
# manifest-check.sh [FILE]: holds examples/shards/kubernetes.yaml against the types of Kubernetes' interface (npm's
# kubernetes-types, by the compiler of TypeScript): every key must exist, have the right type, and none may be missing.
# Broken copies must be refused. No cluster is asked. Fetches about 30 MB into .cache the first time.
# Exit status: 0 valid, 1 not, 77 npm or the packages cannot be had.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cache=$root/.cache/manifest-check
for program in node npm; do
  command -v "$program" >/dev/null || { echo "skipped: $program is not installed"; exit 77; }
done
mkdir -p "$cache"
if [ ! -d "$cache/node_modules/kubernetes-types" ]; then
  npm install --prefix "$cache" --no-audit --no-fund --silent kubernetes-types@1.30.0 typescript@5.4.5 yaml@2.4.2 \
    >/dev/null 2>&1 || { echo 'skipped: npm cannot fetch kubernetes-types'; exit 77; }
fi
cp "$root/tools/lib/manifest_check.cjs" "$cache/check.cjs"
node "$cache/check.cjs" "${1:-$root/examples/shards/kubernetes.yaml}"
