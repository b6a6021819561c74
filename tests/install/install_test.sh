#!/usr/bin/env bash
# install_test.sh SOURCE BUILD WORK COMPILER: installs the build, builds the examples by find_package and by pkg-config, and runs them.
set -euo pipefail
source=$1 build=$2 work=$3 compiler=$4
prefix=$work/prefix
rm -rf "$work/prefix" "$work"/cmake-* "$work/scene"
mkdir -p "$work/scene"

fail() { echo "install_test.sh: $1" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null
plugin=$(find "$prefix" -name libcsrt_tracking_plugin.so)
[ -f "$plugin" ] || fail 'the plug-in was not installed'
[ -f "$(dirname "$plugin")/libcsrt_tracking_plugin_fast.so" ] || fail 'the plug-in with the engine was not installed'
[ -n "$(find "$prefix" -name ialgo_plugin.h)" ] || fail 'the interface header was not installed'

"$prefix/bin/csrt-track" schema records >/dev/null || fail 'the installed csrt-track prints no schema'

for example in minimal-host gimbal-host engine guarded-host; do
  cmake -S "$source/examples/$example" -B "$work/cmake-$example" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DPython3_EXECUTABLE=/usr/bin/python3 -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$work/cmake-$example" >/dev/null
done
"$work/cmake-gimbal-host/gimbal-host" "$plugin" | grep -q tracking || fail 'the host with a camera did not track'

"$prefix/bin/csrt-track" draw-scene "$work/scene/scene.avi" --frames 12 >/dev/null
box=116,165,32,60  # where the drawn figure starts, says the help text
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name csrt_tracking_plugin.pc)")
# class_loader ships no pkg-config file: its include folders are those of its package.
includes=$(find /usr/include -maxdepth 1 \( -name 'class_loader' -o -name 'rc*' -o -name 'console_bridge' \) -printf '-isystem %p ')
# shellcheck disable=SC2046,SC2086
"$compiler" -std=c++17 -O1 "$source/examples/minimal-host/main.cpp" -o "$work/minimal-host" $includes \
  $(pkg-config --cflags --libs csrt_tracking_plugin) -lclass_loader -lconsole_bridge -lrcpputils
[ "$(pkg-config --variable=plugin csrt_tracking_plugin)" -ef "$plugin" ] || fail 'pkg-config names another plug-in'

for host in "$work/cmake-minimal-host/minimal-host" "$work/minimal-host"; do
  "$host" "$plugin" "$work/scene/scene.avi" "$box" >"$work/out.txt" || fail "$host did not track"
  [ "$(grep -c score "$work/out.txt")" -ge 10 ] || fail "$host printed fewer boxes than frames"
done

# The engine without the plug-in: what was linked must be the installed archive.
# shellcheck disable=SC2046
"$compiler" -std=c++17 -O1 "$source/examples/engine/main.cpp" -o "$work/engine-example" \
  $(pkg-config --cflags --libs csrt_engine)
for example in "$work/cmake-engine/engine-example" "$work/engine-example"; do
  "$example" "$work/scene/scene.avi" "$box" >"$work/out.txt" || fail "$example did not track"
  [ "$(wc -l <"$work/out.txt")" -eq 11 ] || fail "$example printed other than 11 boxes"
  nm -C "$example" | grep 'csrt_engine::create' >/dev/null || fail "$example is not linked with the engine"
done

# The guard without the plug-in, beside a tracker of OpenCV that loses the figure.
# shellcheck disable=SC2046
"$compiler" -std=c++17 -O1 "$source/examples/guarded-host/main.cpp" -o "$work/guarded-host" \
  $(pkg-config --cflags --libs csrt_guard)
"$prefix/bin/csrt-track" draw-scene "$work/scene/sign.avi" --sign 90 >/dev/null
for host in "$work/cmake-guarded-host/guarded-host" "$work/guarded-host"; do
  "$source/tests/install/guarded_host_check.sh" "$host" "$work/scene/sign.avi" || fail "$host is not held by the guard"
  nm -C "$host" | grep 'csrt_guard::Guard::judge' >/dev/null || fail "$host is not linked with the guard"
done
echo 'install_test.sh: installed, found by CMake and pkg-config, hosts, the example of the engine and a guarded tracker built and run'
