#!/usr/bin/env bash
# Installs what is missing, builds and runs every benchmark, and writes the tables of docs/performance.md.
#   ./bench.sh          about a quarter of an hour on an idle machine
#   ./bench.sh --short  a few steps each and no tables: do the benchmarks still run?
set -euo pipefail
cd "$(dirname "$0")"
. tools/install-deps.sh

short=no
case "${1-}" in
"") ;;
--short) short=yes ;;
*) csrt_die "usage: ./bench.sh [--short]" ;;
esac

csrt_install_dependencies
# One more tracker to compare with; without it the comparison leaves it out.
# shellcheck disable=SC2034  # csrt_missing_packages reads it
csrt_packages=(libdlib-dev)
[ -z "$(csrt_missing_packages)" ] || csrt_as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y \
  --no-install-recommends libdlib-dev >/dev/null 2>&1 || echo "libdlib-dev cannot be had: its tracker is left out" >&2
out=build/bench/results
rm -rf "$out"
mkdir -p "$out"
log=$out/build.log
if ! { cmake --preset bench && cmake --build --preset bench -j"$(nproc)"; } >"$log" 2>&1; then
  cat "$log" >&2
  csrt_die "the benchmarks do not build"
fi

# The clip of run.sh: fetched for the tables, taken where it lies for a short run.
. tools/fetch-clip.sh
if [ "$short" = no ] || [ -s .cache/clip/vtest.avi ]; then
  CSRT_BENCH_CLIP=$(csrt_fetch_clip) || echo "without the clip: the engine is measured on drawn scenes alone" >&2
  export CSRT_BENCH_CLIP
fi

options=()
drawn=100
if [ "$short" = yes ]; then
  export CSRT_BENCH_SHORT=1
  options=(--benchmark_min_time=0.01)
  drawn=6
fi
for program in build/bench/bin/*_bench; do
  name=$(basename "$program")
  [ "$name" = gpu_bench ] && continue # compares with a device: docs/gpu.md says how to run it
  echo "$name ..." >&2
  "$program" "${options[@]}" --benchmark_out="$out/$name.json" --benchmark_out_format=json >"$out/$name.txt" 2>&1 ||
    { cat "$out/$name.txt" >&2; csrt_die "$name failed"; }
done
echo "tracker_comparison ..." >&2
mkdir "$out/trackers" # apart from the results that become tables
for engine in opencv fast; do
  build/bench/bin/tracker_comparison --drawn "$drawn" --engine "$engine" --json "$out/trackers/drawn-$engine.json" \
    >"$out/tracker_comparison-$engine.txt" || csrt_die "tracker_comparison failed"
done
echo "guard_comparison ..." >&2
scenes=honesty,lookalikes
[ "$short" = no ] || scenes=lookalikes
build/bench/bin/guard_comparison scenes --scenarios "$scenes" --json "$out/trackers/guard-scenes.json" \
  >"$out/guard_comparison-scenes.txt" || csrt_die "guard_comparison failed"

if [ "$short" = yes ]; then
  python3 bench/write_tables.py --check "$out"
else
  python3 bench/write_tables.py "$out" docs/performance.md
  python3 bench/engine_plots.py "$out/engine_bench.json" docs/pictures
  python3 bench/page_plots.py frames "$out/update_bench.json" "$out/fast_update_bench.json" docs/pictures
  echo "The tables are in docs/performance.md, all figures in $out."
fi
