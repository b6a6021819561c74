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
