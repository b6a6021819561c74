# shellcheck shell=bash
# Fetches the surveillance clip vtest.avi out of Debian's package opencv-doc, once. Sourced by run.sh.

# Prints the clip's path; fails, having said why on standard error, when the package cannot be had.
csrt_fetch_clip() {
  local cache=.cache/clip clip=.cache/clip/vtest.avi
  if [ ! -s "$clip" ]; then
    echo "Fetching the clip vtest.avi from the Debian package opencv-doc (about 100 MB, once) ..." >&2
    rm -rf "$cache"
    mkdir -p "$cache"
    csrt_download_doc "$cache" || return 1
    # Only this one file is unpacked, under another name first: an interrupted run leaves no half clip.
    dpkg-deb --fsys-tarfile "$cache"/opencv-doc_*.deb | tar -xO --wildcards '*/vtest.avi' >"$clip.part" || return 1
    rm -f "$cache"/opencv-doc_*.deb
    [ -s "$clip.part" ] || return 1
    mv "$clip.part" "$clip"
  fi
  echo "$clip"
}

# The first attempt fails where the package lists are old or were never fetched.
csrt_download_doc() {
  local get="cd '$1' && apt-get download opencv-doc"
  sh -c "$get" >"$1/log" 2>&1 && return 0
  csrt_as_root apt-get update >>"$1/log" 2>&1 || true
  sh -c "$get" >>"$1/log" 2>&1 && return 0
  echo "apt-get download opencv-doc failed: $(grep -E '^E:' "$1/log" | tail -n 1)" >&2
  return 1
}
