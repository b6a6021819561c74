# shellcheck shell=bash
# Sourced by the platform scripts: Debian's archive as this machine already knows it, other releases and other
# architectures included, in apt states of their own. The machine's own apt is read, never changed.

note() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }
fail() { note "$*"; exit 1; }

# The archive that this machine's own Debian packages come from.
debian_mirror() {
  local mirror
  # $(REPO_URI) is apt's placeholder, not the shell's.
  # shellcheck disable=SC2016
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Label: Debian' | head -n 1)
  [ -n "$mirror" ] || fail "apt knows no Debian archive: run apt-get update first"
  printf '%s\n' "$mirror"
}

# The release this machine runs, such as bookworm.
debian_release() {
  (. /etc/os-release && printf '%s\n' "${VERSION_CODENAME:?}")
}

# private_apt DIR ARCHITECTURE RELEASE COMPONENTS: an apt state under DIR. Use: APT_CONFIG=DIR/apt.conf apt-get ...
private_apt() {
  local dir=$1 architecture=$2 release=$3 components=$4 mirror
  mirror=$(debian_mirror) || return 1
  mkdir -p "$dir"/etc/{sources,preferences}.d "$dir"/state/lists/partial "$dir"/cache/archives/partial
  [ -e "$dir/state/status" ] || : >"$dir/state/status"
  cat >"$dir/etc/sources.d/debian.sources" <<SOURCES
Types: deb deb-src
URIs: $mirror
Suites: $release
Components: $components
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SOURCES
  cat >"$dir/apt.conf" <<CONF
APT::Architecture "$architecture";
APT::Architectures { "$architecture"; };
APT::Install-Recommends "false";
APT::Sandbox::User "root";
Acquire::Languages "none";
Dir::Etc::sourcelist "/dev/null";
Dir::Etc::sourceparts "$dir/etc/sources.d";
Dir::Etc::preferencesparts "$dir/etc/preferences.d";
Dir::State "$dir/state";
Dir::State::status "$dir/state/status";
Dir::Cache "$dir/cache";
CONF
}

# need_programs PACKAGE:PROGRAM...: names the packages that are missing and ends.
need_programs() {
  local pair missing=()
  for pair in "$@"; do
    command -v "${pair#*:}" >/dev/null || missing+=("${pair%%:*}")
  done
  [ ${#missing[@]} -eq 0 ] || fail "missing: apt-get install --no-install-recommends ${missing[*]}"
}

# debian_root DIR RELEASE COMPONENTS: a minimal root of another Debian release under DIR; kept for the next run.
debian_root() {
  local dir=$1 release=$2 components=$3 mirror
  need_programs debootstrap:debootstrap
  mirror=$(debian_mirror) || return 1
  if [ ! -e "$dir/.complete" ]; then
    rm -rf "$dir"
    mkdir -p "$dir"
    debootstrap --variant=minbase --include=ca-certificates "$release" "$dir" "$mirror" >"$dir.log" 2>&1 ||
      fail "debootstrap of $release failed: see $dir.log"
    touch "$dir/.complete"
  fi
  printf '%s '"$mirror $release $components"'\n' deb deb-src >"$dir/etc/apt/sources.list"
  printf 'APT::Install-Recommends "false";\n' >"$dir/etc/apt/apt.conf.d/50lean"
  cp -L /etc/resolv.conf /etc/hosts "$dir/etc/"
}

# in_root DIR COMMAND...: runs a command inside a root. The mounts live in a name space of their own and go with it.
# ROOT_BINDS holds pairs FOLDER:MOUNT_POINT to be seen inside as well.
in_root() {
  local dir=$1 bind
  shift
  for bind in ${ROOT_BINDS:-}; do mkdir -p "$dir/${bind#*:}"; done
  # shellcheck disable=SC2016
  ROOT_BINDS=${ROOT_BINDS:-} unshare --mount bash -euc '
    root=$1; shift
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
    for bind in $ROOT_BINDS; do mount --bind "${bind%%:*}" "$root/${bind#*:}"; done
    exec chroot "$root" /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
      HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"' in_root "$dir" "$@"
}

# install_in_root DIR PACKAGE...: by name, and only when one is missing.
install_in_root() {
  local dir=$1
  shift
  in_root "$dir" dpkg-query -W "$@" >/dev/null 2>&1 && return
  in_root "$dir" sh -c 'apt-get -qq update && apt-get -qq -y install --no-install-recommends "$@"' sh "$@" \
    >"$dir.install.log" 2>&1 || fail "packages could not be installed: see $dir.install.log"
}

# debian_sysroot DIR ARCHITECTURE RELEASE PACKAGE...: unpacks packages and all they need for another processor into
# DIR, through an apt state of its own (DIR.apt); nothing of them is configured or run.
debian_sysroot() {
  local dir=$1 architecture=$2 release=$3 wanted deb
  shift 3
  wanted=$(printf '%s\n' "$release" "$@")
  [ "$(cat "$dir/.complete" 2>/dev/null)" != "$wanted" ] || return 0
  private_apt "$dir.apt" "$architecture" "$release" main
  APT_CONFIG=$dir.apt/apt.conf apt-get -qq update
  APT_CONFIG=$dir.apt/apt.conf apt-get -qq -y install --download-only --no-install-recommends "$@" >"$dir.log" 2>&1 ||
    fail "packages for $architecture could not be fetched: see $dir.log"
  rm -rf "$dir"
  mkdir -p "$dir"/usr/{bin,sbin,lib}
  ln -s usr/bin usr/sbin usr/lib "$dir/"
  for deb in "$dir.apt"/cache/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$deb" | tar -x --keep-directory-symlink -C "$dir"
  done
  APT_CONFIG=$dir.apt/apt.conf apt-get clean
  finish_sysroot "$dir"
  printf '%s\n' "$wanted" >"$dir/.complete"
}

# What the packages' own scripts would have done: the choice of BLAS and LAPACK. And links out of the sysroot turn
# into links inside it.
finish_sysroot() {
  local dir=$1 library link target
  for library in "$dir"/usr/lib/*/blas/libblas.so.3 "$dir"/usr/lib/*/lapack/liblapack.so.3; do
    [ ! -e "$library" ] || ln -sfr "$library" "${library%/*/*}/"
  done
  find "$dir" -type l -lname '/*' | while read -r link; do
    target=$(readlink "$link")
    [ ! -e "$dir$target" ] || ln -sfr "$dir$target" "$link"
  done
}

# What the project is built with: programs that run here, and libraries of the platform it is built for.
# shellcheck source=tools/install-deps.sh
. "${BASH_SOURCE%/*}/../install-deps.sh"
csrt_tools='g++ cmake ninja-build pkg-config python3'
csrt_libraries=()
for package in "${csrt_packages[@]}"; do
  [[ " $csrt_tools " == *" $package "* ]] || csrt_libraries+=("$package")
done

# How every platform configures; CSRT_CMAKE_OPTIONS adds to it, such as -DCSRT_BUILD_HOST=OFF.
# shellcheck disable=SC2034,SC2206
csrt_configure=(-G Ninja -DCSRT_WARNINGS_AS_ERRORS=ON -DPython3_EXECUTABLE=/usr/bin/python3 ${CSRT_CMAKE_OPTIONS:-})
