# Sourced by run.sh and package.sh. consume PREFIX LIBDIR SOURCE_DIR WORK [CMAKE_ARG...]: the consumer project
# built against the tree under PREFIX through find_package and through pkg-config, and an
# application's own status codes built in by the tree's checker, which must refuse a catalogue
# that disagrees with its enumeration and name the record.
consume() {
  local prefix=$1 libdir=$2 src=$3 work=$4
  shift 4
  cmake -S "$src/tests/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" "$@" >/dev/null
  cmake --build "$work/build" >/dev/null
  "$work/build/consumer"

  PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs VfCrosscutting >"$work/pc.flags"
  g++ -std=c++17 -fPIC "$src/tests/consumer/main.cpp" "$src/tests/consumer/qualified.cpp" \
    -o "$work/consumer-pc" $(cat "$work/pc.flags") -Wl,-rpath,"$libdir"
  "$work/consumer-pc"

  test -x "$prefix/bin/vf_check_status_catalogue"
  cmake -S "$src/tests/consumer/appcodes" -B "$work/pump" -DCMAKE_PREFIX_PATH="$prefix" "$@" >/dev/null
  cmake --build "$work/pump" >/dev/null
  "$work/pump/pump"
  cp -r "$src/tests/consumer/appcodes" "$work/pump-bad"
  sed -i 's/"PumpStalled"/"PumpStopped"/' "$work/pump-bad/pumpstatuscodes.json"
  cmake -S "$work/pump-bad" -B "$work/pump-bad/build" -DCMAKE_PREFIX_PATH="$prefix" "$@" >/dev/null
  if cmake --build "$work/pump-bad/build" >"$work/pump-bad.log" 2>&1; then
    echo "a catalogue naming no enumerator was built"; return 1
  fi
  grep -q 'pumpstatuscodes.json: record 2 ("PumpStopped"): "PumpStopped" is no enumerator of PumpStatusCodes::PumpStatusCode' "$work/pump-bad.log" \
    || { cat "$work/pump-bad.log"; return 1; }
}
