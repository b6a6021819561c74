# Installs the Debian packages that the build needs, by name and only those that are missing.
# Sourced by run.sh and test.sh; standard output stays free for what they print.

csrt_packages=(
  g++ cmake ninja-build pkg-config python3
  libopencv-dev libopencv-contrib-dev
  libclass-loader-dev ament-cmake libconsole-bridge-dev libssl-dev
  libgtest-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libfmt-dev libvalijson-dev
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
  command -v dpkg-query >/dev/null && command -v apt-get >/dev/null ||
    csrt_die "this is not a Debian system: install the equivalents of ${csrt_packages[*]} and build with cmake --preset release"
  local missing log
  mapfile -t missing < <(csrt_missing_packages)
  [ "${#missing[@]}" -eq 0 ] && return 0
  echo "Installing ${missing[*]} ..." >&2
  csrt_as_root true ||
    csrt_die "these packages are missing and neither root nor sudo is at hand: apt-get install ${missing[*]}"
  log=$(mktemp)
  export DEBIAN_FRONTEND=noninteractive
  if ! { csrt_as_root apt-get -o DPkg::Lock::Timeout=300 install -y --no-install-recommends "${missing[@]}" ||
    { csrt_as_root apt-get update &&
      csrt_as_root apt-get -o DPkg::Lock::Timeout=300 install -y --no-install-recommends "${missing[@]}"; }; } \
    >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    rm -f "$log"
    csrt_die "apt-get could not install ${missing[*]} (its last lines are above)"
  fi
  rm -f "$log"
}

# Configures and builds the preset "release" in build/. Quiet when all is well; the whole log when not.
csrt_build() {
  local log=.cache/build.log
  mkdir -p .cache
  echo "Building (log: $log) ..." >&2
  if ! { cmake --preset release "$@" && cmake --build build; } >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    csrt_die "the build failed; its last lines are above, all of it is in $log"
  fi
}
