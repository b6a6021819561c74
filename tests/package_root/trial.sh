#!/usr/bin/env bash
# What tools/package-root-test.sh runs inside the fresh root: /trial holds the packages, an example and the
# documentation's blocks.
set -euo pipefail
cd /trial
packages=(csrt-tracking-plugin libocula-tools-standin csrt-tracking-dev csrt-track libcsrt-engine-dev libcsrt-guard-dev
  csrt-track-live)

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

# Nor does the guard; the tracker that it watches is OpenCV's.
build_and_run_guarded() {
  local program
  quietly cmake -S guarded-host -B guarded-by-cmake
  quietly cmake --build guarded-by-cmake
  # shellcheck disable=SC2046
  quietly g++ -std=c++17 guarded-host/main.cpp -o guarded-by-pkg-config $(pkg-config --cflags --libs csrt_guard)
  quietly csrt-track draw-scene sign.avi --sign 90
  for program in guarded-by-cmake/guarded-host ./guarded-by-pkg-config; do
    quietly ./guarded_host_check.sh "$program" sign.avi
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

# http METHOD PATH [BODY]: the answer of the served run at 127.0.0.1:$port, head and body; bash itself is the client.
http() {
  exec 3<>"/dev/tcp/127.0.0.1/$port" || return 1
  printf '%s %s HTTP/1.1\r\nHost: 127.0.0.1:%s\r\nX-Csrt-Track: 1\r\nContent-Type: application/json\r\n' \
    "$1" "$2" "$port" >&3
  printf 'Content-Length: %d\r\nConnection: close\r\n\r\n%s' "${#3}" "$3" >&3
  timeout 20 cat <&3
  exec 3>&-
}

# The page in a browser, as far as it is the server's: it is there, and what is chosen on it is followed.
serve_over_http() {
  local pid port='' status=0 i
  quietly csrt-track draw-scene long.avi --frames 600
  csrt-track serve long.avi --http 127.0.0.1:0 --records served.jsonl --guard colour >serve.log 2>&1 &
  pid=$!
  for ((i = 0; i < 300 && ${#port} == 0; ++i)); do
    sleep 0.1
    port=$(sed -n 's,.*//[^:/]*:\([0-9]*\)/.*,\1,p' serve.log)
  done
  [ -n "$port" ] || { cat serve.log; fail 'serve --http does not say where its page is'; }
  http GET / '' >answer.txt
  grep -q '<title>' answer.txt || { cat answer.txt; fail 'serve --http shows no page'; }
  http GET /metrics '' >answer.txt
  grep -q '^csrt_' answer.txt || { cat answer.txt; fail 'serve --http gives no figures'; }
  http POST /api/targets '{"name": "wall", "box": [40, 20, 60, 60]}' >answer.txt
  grep -q '^HTTP/1.1 20' answer.txt || { cat answer.txt; fail 'the target chosen over HTTP was refused'; }
  for ((i = 0; i < 300; ++i)); do
    [ "$(grep -c '"target":"wall".*"state":"tracked"' served.jsonl)" -lt 5 ] || break
    sleep 0.1
  done
  [ "$i" -lt 300 ] || { tail -n 2 served.jsonl; fail 'the target chosen over HTTP is not followed'; }
  kill -TERM "$pid"
  wait "$pid" || status=$?
  [ "$status" -eq 143 ] || { cat serve.log; fail "the served run ends with $status"; }
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
build_and_run_guarded
say "the guard's example was built, by CMake and by pkg-config, and found the figure behind the sign again"
for engine in opencv fast; do
  csrt-track track scene.avi --box figure=116,165,32,60 --engine "$engine" --records - --quiet |
    sed -E 's/"update_ms":[^,]*,//; s/"engine":"[a-z]*",//' >"$engine.jsonl"
done
cmp opencv.jsonl fast.jsonl || fail 'the two plug-ins gave different records'
quietly csrt-track doctor
say 'both plug-ins gave the same records'
serve_over_http
say 'serve --http showed its page, and followed what was chosen over it'
run_documentation
quietly apt-get -y purge "${packages[@]}"
paths >after.txt
diff before.txt after.txt || fail 'the packages left something (>) or took something with them (<)'
say 'removed: nothing is left'
