#!/usr/bin/env bash
# Installs the build tree into a scratch prefix, then configures, builds and runs the consumer
# project against it with find_package, and compiles it once more through pkg-config.
# Usage: run.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
src=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
prefix=$work/prefix
libdir=$(ls -d "$prefix"/lib*/ | head -n1)

# The installed layout.
test -f "$prefix/include/crosscutting/vfcrosscutting.h"
test -f "$prefix/include/crosscutting/vfcrosscutting_export.h"
test -L "$libdir/libVfCrosscutting.so" && test -L "$libdir/libVfCrosscutting.so.1" && test -f "$libdir/libVfCrosscutting.so.1.0.0"
test -f "$libdir/cmake/VfCrosscutting/VfCrosscuttingConfig.cmake"
test -f "$libdir/cmake/VfCrosscutting/VfCrosscuttingConfigVersion.cmake"
test -f "$libdir/pkgconfig/VfCrosscutting.pc"
# libVfCrosscutting links libmodel.so.1: the stand-in comes along, in the same export set.
if grep -q '^VF_BUILD_MODEL_STANDIN:BOOL=ON' "$build/CMakeCache.txt"; then
  test -L "$libdir/libmodel.so" && test -L "$libdir/libmodel.so.1" && test -f "$libdir/libmodel.so.1.0.0"
  test -f "$prefix/include/crosscutting/modelutilities.h"
  grep -q 'VfCrosscutting::Model' "$libdir/cmake/VfCrosscutting/VfCrosscuttingTargets.cmake"
fi
grep -q '^Libs:.* -lVfCrosscutting$' "$libdir/pkgconfig/VfCrosscutting.pc"
grep -q '^Libs.private:.*-l:\{0,1\}\(model\|libmodel\)' "$libdir/pkgconfig/VfCrosscutting.pc"

# The umbrella header names every public header.
for h in "$src"/crosscutting/*.h; do
  name=$(basename "$h")
  [ "$name" = vfcrosscutting.h ] && continue
  grep -q "#include \"$name\"" "$src/crosscutting/vfcrosscutting.h" || { echo "vfcrosscutting.h misses $name"; exit 1; }
done

cmake -S "$src/tests/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/build" >/dev/null
"$work/build/consumer"

# A major version the package does not offer is refused (SameMajorVersion).
mkdir -p "$work/v2"
printf 'cmake_minimum_required(VERSION 3.16)\nproject(V2 LANGUAGES CXX)\nfind_package(VfCrosscutting 2 QUIET)\nif(VfCrosscutting_FOUND)\n  message(FATAL_ERROR "version 2 accepted")\nendif()\n' > "$work/v2/CMakeLists.txt"
cmake -S "$work/v2" -B "$work/v2/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null

# pkg-config gives what a plain compiler needs.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -std=c++17 -fPIC "$src/tests/consumer/main.cpp" "$src/tests/consumer/qualified.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs VfCrosscutting) \
  -Wl,-rpath,"$libdir"
"$work/consumer-pc"
# An application's own status codes: the installed checker and CMake function build them in, and
# a catalogue that disagrees with its enumeration fails the build with the record named.
test -x "$prefix/bin/vf_check_status_catalogue"
test -f "$libdir/cmake/VfCrosscutting/VfStatusCatalogue.cmake"
cmake -S "$src/tests/consumer/appcodes" -B "$work/pump" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/pump" >/dev/null
"$work/pump/pump"
cp -r "$src/tests/consumer/appcodes" "$work/pump-bad"
sed -i 's/"PumpStalled"/"PumpStopped"/' "$work/pump-bad/pumpstatuscodes.json"
cmake -S "$work/pump-bad" -B "$work/pump-bad/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
if cmake --build "$work/pump-bad/build" >"$work/pump-bad.log" 2>&1; then
  echo "consumer: a catalogue naming no enumerator was built"; exit 1
fi
grep -q 'pumpstatuscodes.json: record 2 ("PumpStopped"): "PumpStopped" is no enumerator of PumpStatusCodes::PumpStatusCode' "$work/pump-bad.log" \
  || { cat "$work/pump-bad.log"; exit 1; }

echo "consumer: installed package works through find_package and pkg-config"
