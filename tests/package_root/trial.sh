#!/usr/bin/env bash
# What tools/package-root-test.sh runs inside the fresh root: /trial holds the packages, an example and the
# documentation's blocks.
set -euo pipefail
cd /trial
packages=(csrt-tracking-plugin libocula-tools-standin csrt-tracking-dev csrt-track libcsrt-engine-dev)

say() { echo "package-root-test: $*"; }
fail() { say "$*" >&2; exit 1; }
quietly() { "$@" >last.log 2>&1 || { tail -n 40 last.log >&2; fail "failed: $*"; }; }

# Every path that a package could own or leave; not what apt and dpkg write down about themselves.
paths() {
  find / -xdev \( -path /proc -o -path /dev -o -path /trial -o -path /tmp -o -path /var/log -o -path /var/cache \
    -o -path /var/lib/dpkg -o -path /var/lib/apt \) -prune -o -print | sort
}

# What ours need from Debian comes first, so that all that differs afterwards is ours.
install_foreign() {
  local wanted
  wanted=$(for deb in ./*.deb; do dpkg-deb -f "$deb" Depends; done | tr ',' '\n' | sed 's/^ *//' | sort -u |
    grep -Ev "^($(IFS='|'; echo "${packages[*]}"))( |$)" | paste -sd,)
  quietly apt-get -qq update
  quietly apt-get -qq -y satisfy --no-install-recommends "$wanted"
  quietly apt-get -qq -y install --no-install-recommends g++ cmake make pkg-config
}

follow_drawn_figure() {
  quietly csrt-track draw-scene scene.avi --frames 20
  csrt-track track scene.avi --box figure=116,165,32,60 --records records.jsonl --video out.mp4 >summary.txt 2>&1 ||
    { cat summary.txt; fail 'csrt-track did not track'; }
  grep -q 'tracked on 19 of 19 frames' summary.txt || { cat summary.txt; fail 'csrt-track lost the drawn figure'; }
  [ -s out.mp4 ] || fail 'no video was written'
}

build_hosts() {
  local includes
  quietly cmake -S minimal-host -B by-cmake
  quietly cmake --build by-cmake
  # class_loader ships no pkg-config file: its include folders are those of its package.
  includes=$(find /usr/include -maxdepth 1 \( -name class_loader -o -name 'rc*' -o -name console_bridge \) -printf '-isystem %p ')
  # shellcheck disable=SC2046,SC2086
  quietly g++ -std=c++17 minimal-host/main.cpp -o by-pkg-config $includes \
    $(pkg-config --cflags --libs csrt_tracking_plugin) -lclass_loader -lconsole_bridge -lrcpputils
}

# The engine needs none of the other packages.
build_and_run_engine() {
  quietly cmake -S engine -B engine-by-cmake
  quietly cmake --build engine-by-cmake
  # shellcheck disable=SC2046
  quietly g++ -std=c++17 engine/main.cpp -o engine-by-pkg-config $(pkg-config --cflags --libs csrt_engine)
  for program in engine-by-cmake/engine-example ./engine-by-pkg-config; do
    "$program" scene.avi 116,165,32,60 >boxes.txt || fail "$program did not start"
    [ "$(wc -l <boxes.txt)" -eq 19 ] || fail "$program printed other than 19 boxes"
  done
}

run_hosts() {
  local host plugin
  plugin=$(pkg-config --variable=plugin csrt_tracking_plugin)
  for host in by-cmake/minimal-host ./by-pkg-config; do
    "$host" "$plugin" scene.avi 116,165,32,60 >boxes.txt || fail "$host did not start"
    [ "$(grep -c score boxes.txt)" -eq 19 ] || fail "$host printed other than 19 boxes"
  done
}

# Blocks that show the installed program alone; the others are about the source tree.
run_documentation() {
  local block count=0
  # shellcheck source=tools/lib/doc-blocks.sh
  . ./doc-blocks.sh
  quietly doc_material csrt-track
  for block in blocks/*.sh; do
    sed -i -e 's,^build/bin/csrt-track,csrt-track,' -e '/^\.\//d' "$block"
    if [ ! -s "$block" ] || grep -qv '^csrt-track ' "$block"; then continue; fi
    quietly bash -euo pipefail "$block"
    say "ran $(basename "$block" .sh)"
    count=$((count + 1))
  done
  [ "$count" -ge 3 ] || fail "only $count blocks of the documentation were run"
}

install_foreign
paths >before.txt
quietly apt-get -y install --no-install-recommends ./*.deb
say "installed ${packages[*]}"
follow_drawn_figure
[ -s /usr/share/man/man1/csrt-track.1.gz ] || fail 'the manual page is missing'
bash -n /usr/share/bash-completion/completions/csrt-track
say 'csrt-track followed the drawn figure'
build_hosts
run_hosts
say 'two hosts were built, by CMake and by pkg-config, and followed it too'
build_and_run_engine
say "the engine's example was built, by CMake and by pkg-config, and followed it too"
for engine in opencv fast; do
  csrt-track track scene.avi --box figure=116,165,32,60 --engine "$engine" --records - --quiet |
    sed -E 's/"update_ms":[^,]*,//; s/"engine":"[a-z]*",//' >"$engine.jsonl"
done
cmp opencv.jsonl fast.jsonl || fail 'the two plug-ins gave different records'
quietly csrt-track doctor
say 'both plug-ins gave the same records'
run_documentation
quietly apt-get -y purge "${packages[@]}"
paths >after.txt
diff before.txt after.txt || fail 'the packages left something (>) or took something with them (<)'
say 'removed: nothing is left'
