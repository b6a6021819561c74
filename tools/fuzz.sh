#!/usr/bin/env bash
# Feeds drawn inputs to the tracking engine (beside OpenCV's tracker), the JSON parser, its strings, the decryption,
# setConfig(), whole call sequences and the readers of camera packets and of MAVLink under the address and undefined
# behaviour sanitizers, each for a while.
#   tools/fuzz.sh             10 seconds each
#   tools/fuzz.sh 3600        an hour each
#   tools/fuzz.sh 600 klv     ten minutes of the reader of camera packets alone
# Ends with 1 when one of them finds something; the input that does it then lies in build/fuzz/findings/.
set -euo pipefail
seconds=${1:-10}
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/fuzz

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

if ! command -v clang++ >/dev/null || ! ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a >/dev/null 2>&1; then
  as_root apt-get update
  as_root apt-get install -y --no-install-recommends clang libclang-rt-dev
fi
generator=""
if command -v ninja >/dev/null; then generator="-G Ninja"; fi

# shellcheck disable=SC2086  # the generator is two words or none
cmake -S "$root" -B "$build" $generator -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DPython3_EXECUTABLE=/usr/bin/python3 -DCSRT_SANITIZE=address,undefined -DCSRT_BUILD_FUZZ=ON \
  -DCSRT_BUILD_HOST=OFF -DCSRT_BUILD_TESTS=OFF >/dev/null
targets="decrypt_aes engine json_parser json_string set_config faulty_host klv mavlink"
if [ $# -gt 1 ]; then targets=${*:2}; fi
for target in $targets; do cmake --build "$build" --target "fuzz_$target" -j2; done

failed=""
mkdir -p "$build/findings"
for target in $targets; do
  echo "== $target, $seconds s"
  mkdir -p "$build/corpus/$target" # what is found on the way; the seeds stay as they are
  if ! "$build/bin/fuzz_$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 -max_len=65536 \
    -close_fd_mask=1 -dict="$root/fuzz/json.dict" -artifact_prefix="$build/findings/$target-" -print_funcs=0 \
    -verbosity=0 -print_final_stats=1 "$build/corpus/$target" "$root/fuzz/corpus/$target" >"$build/$target.log" 2>&1; then
    cat "$build/$target.log"
    failed="$failed $target"
  fi
  grep number_of_executed_units "$build/$target.log" || true
done
if [ -n "$failed" ]; then
  echo "findings:$failed; the inputs lie in $build/findings/" >&2
  exit 1
fi
echo "no findings"
