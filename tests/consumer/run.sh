#!/usr/bin/env bash
# Installs the build tree into a scratch prefix, then configures, builds and runs the consumer
# project against it (consume.sh).
# Usage: run.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source "$(dirname "$0")/consume.sh"
src=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
prefix=$work/prefix
libdir=$(ls -d "$prefix"/lib*/ | head -n1)

# The installed layout.
for f in "$prefix"/include/crosscutting/vfcrosscutting{,_export}.h "$libdir"/libVfCrosscutting.so{,.1,.1.0.0} \
    "$libdir"/cmake/VfCrosscutting/{VfCrosscuttingConfig,VfCrosscuttingConfigVersion,VfStatusCatalogue}.cmake \
    "$libdir/pkgconfig/VfCrosscutting.pc"; do
  test -f "$f" || { echo "not installed: $f"; exit 1; }
done
test -L "$libdir/libVfCrosscutting.so" && test -L "$libdir/libVfCrosscutting.so.1"
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

# A major version the package does not offer is refused (SameMajorVersion).
mkdir -p "$work/v2"
printf 'cmake_minimum_required(VERSION 3.16)\nproject(V2 LANGUAGES CXX)\nfind_package(VfCrosscutting 2 QUIET)\nif(VfCrosscutting_FOUND)\n  message(FATAL_ERROR "version 2 accepted")\nendif()\n' > "$work/v2/CMakeLists.txt"
cmake -S "$work/v2" -B "$work/v2/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null

consume "$prefix" "$libdir" "$src" "$work"
echo "consumer: installed package works through find_package and pkg-config"
