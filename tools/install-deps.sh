# shellcheck shell=bash
# Installs the Debian packages that the build needs, by name and only those that are missing.
# Sourced by run.sh and test.sh; standard output stays free for what they print.

csrt_packages=(
  g++ cmake ninja-build pkg-config python3
  libopencv-dev libopencv-contrib-dev
  libclass-loader-dev ament-cmake libconsole-bridge-dev libssl-dev
  libgtest-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libfmt-dev libvalijson-dev libjs-chart.js
  libavcodec-dev libavformat-dev libavutil-dev libswscale-dev  # annotated video, live sources
  libcpp-httplib-dev  # the page of serve --http
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libgstrtspserver-1.0-dev  # live sources
)

# Writes one sentence to standard error and ends the script that sourced this file.
csrt_die() {
  echo "$(basename "$0"): $1" >&2
  exit 1
}

csrt_missing_packages() {
  local package
  for package in "${csrt_packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || echo "$package"
  done
}

# Runs a command as root: directly, or through sudo where it needs no password or a person can type it.
csrt_as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null && { [ -t 0 ] || sudo -n true 2>/dev/null; }; then
    sudo "$@"
  else
    return 127
  fi
}

csrt_install_dependencies() {
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    csrt_die "this is not a Debian system: install the equivalents of ${csrt_packages[*]} and build with cmake --preset release"
  fi
  local missing log
  mapfile -t missing < <(csrt_missing_packages)
  [ "${#missing[@]}" -eq 0 ] && return 0
  echo "Installing ${missing[*]} ..." >&2
  csrt_as_root true ||
    csrt_die "these packages are missing and neither root nor sudo is at hand: apt-get install ${missing[*]}"
  log=$(mktemp)
  local install=(env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 install -y
    --no-install-recommends "${missing[@]}")
  # The first attempt fails where the package lists are old or were never fetched.
  if ! { csrt_as_root "${install[@]}" || { csrt_as_root apt-get update && csrt_as_root "${install[@]}"; }; } \
    >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    rm -f "$log"
    csrt_die "apt-get could not install ${missing[*]} (its last lines are above)"
  fi
  rm -f "$log"
}

# Configures the preset "release" and builds the given targets, all without any, in build/. On a terminal the build
# shows how far it is; elsewhere it is quiet when all is well and shows the end of its log when not.
csrt_build() {
  local log=.cache/build.log compile=(cmake --build build)
  [ $# -gt 0 ] && compile+=(--target "$@")
  mkdir -p .cache
  echo "Building (log: $log) ..." >&2
  if ! cmake --preset release >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    csrt_die "the build cannot be set up; the reason is above, all of it is in $log"
  fi
  if [ -t 2 ]; then
    "${compile[@]}" >&2 || csrt_die "the build failed; the reason is above"
  elif ! "${compile[@]}" >>"$log" 2>&1; then
    tail -n 40 "$log" >&2
    csrt_die "the build failed; its last lines are above, all of it is in $log"
  fi
}
