#!/usr/bin/env bash
# Makes the Debian packages from the build tree with cpack, checks what each one holds and declares,
# unpacks them into a scratch root (never installing them), and builds and runs the consumer project
# against that root (consume.sh). The stand-in libmodel.so.1 plays
# the instrument's own library, from the build tree, since no package carries it.
# Usage: package.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source "$(dirname "$0")/consume.sh"
src=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1) \
  || { cat "$work/cpack.log"; exit 1; }
runtime=$(ls "$work"/out/libvfcrosscutting1_*.deb)
dev=$(ls "$work"/out/libvfcrosscutting-dev_*.deb)
[ "$(ls "$work"/out/*.deb | wc -l)" -eq 2 ]

field() { dpkg-deb -f "$1" "$2"; }
contents() { dpkg-deb -c "$1" | awk '{print $6}' | sed 's|^\./|/|'; }
has() { grep -qx "$2" <<<"$1" || { echo "$3 lacks $2"; exit 1; }; }
lacks() { ! grep -qi "$2" <<<"$1" || { echo "$3 holds $2"; exit 1; }; }

# Names and versions as Debian has them: package name from the SONAME, version with revision.
version=$(field "$runtime" Version)
[[ $version =~ ^[0-9]+\.[0-9]+\.[0-9]+-[0-9A-Za-z.+~]+$ ]] || { echo "version $version"; exit 1; }
[[ $(basename "$runtime") == libvfcrosscutting1_${version}_$(dpkg --print-architecture).deb ]]
[ "$(field "$runtime" Section)" = libs ] && [ "$(field "$dev" Section)" = libdevel ]

# The runtime package: the library and demangle_backtrace on the shell's path; the Qt and C++
# libraries in Depends, found by dpkg-shlibdeps; no libmodel.so.1, no development files.
rc=$(contents "$runtime")
lib=/usr/${VF_LIBDIR:-lib}
has "$rc" "$lib/libVfCrosscutting.so.1.0.0" runtime
has "$rc" "$lib/libVfCrosscutting.so.1" runtime
has "$rc" /usr/bin/demangle_backtrace runtime
lacks "$rc" libmodel runtime
lacks "$rc" '/include/\|\.so$\|cmake\|pkgconfig' runtime
rdeps=$(field "$runtime" Depends)
for d in libqt5core5a libqt5xml5 libdw1 libstdc++6 libc6; do
  grep -q "\b$d\b" <<<"$rdeps" || { echo "runtime Depends lacks $d: $rdeps"; exit 1; }
done
lacks "$rdeps" 'binutils\|model' "runtime Depends"
has "$(dpkg-deb --ctrl-tarfile "$runtime" | tar -t)" ./shlibs "runtime control"

# The development package: headers, the .so link, the CMake package and the .pc; it depends on
# exactly this runtime package and on Qt's development package.
dc=$(contents "$dev")
has "$dc" /usr/include/crosscutting/vfcrosscutting.h dev
has "$dc" /usr/include/crosscutting/vfcrosscutting_export.h dev
has "$dc" "$lib/libVfCrosscutting.so" dev
has "$dc" "$lib/cmake/VfCrosscutting/VfCrosscuttingConfig.cmake" dev
has "$dc" "$lib/pkgconfig/VfCrosscutting.pc" dev
lacks "$dc" 'model\|\.so\.1' dev
# The build-time tools for an application's own status codes are for development machines only.
has "$dc" /usr/bin/vf_check_status_catalogue dev
has "$dc" "$lib/cmake/VfCrosscutting/VfStatusCatalogue.cmake" dev
lacks "$rc" vf_check_status_catalogue runtime
ddeps=$(field "$dev" Depends)
grep -q "libvfcrosscutting1 (= $version)" <<<"$ddeps" && grep -q qtbase5-dev <<<"$ddeps" \
  || { echo "dev Depends: $ddeps"; exit 1; }

# Unpacked, not installed: the consumer against the scratch root alone.
root=$work/root
dpkg-deb -x "$runtime" "$root"
dpkg-deb -x "$dev" "$root"
# The stand-in stands where the instrument's own libmodel.so.1 would: on the loader's path.
model=$build/model
export LD_LIBRARY_PATH=$model${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}
consume "$root/usr" "$root$lib" "$src" "$work" -DVF_MODEL_LIBRARY="$model/libmodel.so.1"
# Read whole before matching: grep -q on the pipe could end ldd early, which pipefail counts.
loaded=$(ldd "$work/build/consumer")
grep -q "libVfCrosscutting.so.1 => $root$lib/" <<<"$loaded" || { echo "$loaded"; exit 1; }
echo "package: both packages build, hold what they should, and serve the consumer unpacked"
