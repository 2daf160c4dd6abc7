#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, moves the installed tree
# elsewhere (it must not depend on where it was installed), and checks:
#   - the files a user needs are there: headers of the five libraries, the
#     umbrella header, libraries, the host program, CMake package, ostrel.pc,
#     data;
#   - the installed program runs without LD_LIBRARY_PATH and loads the
#     installed libraries, not those of the build tree;
#   - a program builds against the installed tree through find_package(Ostrel)
#     and through pkg-config, with -Wall -Wextra -Werror, and runs: it prints
#     library constants and, when examples/machines/laptop.xml exists, opens
#     the in-process engine on it and walks the device tree.
#
# Usage: install_test.sh BUILD_DIR SOURCE_DIR CXX_COMPILER
set -euo pipefail

build=$1
source=$2
cxx=$3

work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

# A user's environment: nothing points at the build tree.
unset LD_LIBRARY_PATH OSTREL_DATA_DIR OSTREL_Engine_Machine PKG_CONFIG_PATH || true

echo "== install into $work/first/prefix"
cmake --install "$build" --prefix "$work/first/prefix" >"$work/install.log" ||
  { cat "$work/install.log"; fail "cmake --install"; }
mv "$work/first" "$work/moved"
prefix=$work/moved/prefix

echo "== installed files"
libdir=$(cd "$prefix" && dirname "$(find . -name 'libOstrel.so' | head -n 1)")
[ "$libdir" != "." ] || fail "libOstrel.so not installed"
libdir=$prefix/${libdir#./}
for f in \
  include/ostrel/ostrel.h include/ostrel/ostrelMain.h include/ostrel/Device.h \
  include/zel/String.h include/zel/StateManager.h include/zelrlibscsi \
  include/morvain/Engine.h bin/ostrel share/ostrel; do
  [ -e "$prefix/$f" ] || fail "$f not installed"
done
for lib in Pellor Trevane Dravik Morvain Ostrel; do
  [ -e "$libdir/lib$lib.so.5" ] || fail "lib$lib.so.5 not installed in $libdir"
done
[ -f "$libdir/cmake/Ostrel/OstrelConfig.cmake" ] || fail "OstrelConfig.cmake not installed"
[ -f "$libdir/cmake/Ostrel/OstrelConfigVersion.cmake" ] || fail "version file not installed"
[ -f "$libdir/pkgconfig/ostrel.pc" ] || fail "ostrel.pc not installed"
if grep -rqF "$build" "$libdir/cmake/Ostrel" "$libdir/pkgconfig/ostrel.pc"; then
  fail "the installed package files name the build tree $build"
fi

echo "== the installed program finds the installed libraries"
ldd "$prefix/bin/ostrel" >"$work/ldd.txt"
grep -q 'not found' "$work/ldd.txt" && { cat "$work/ldd.txt"; fail "unresolved libraries"; }
real_libdir=$(readlink -f "$libdir")
for lib in Pellor Trevane Dravik Ostrel; do
  resolved=$(awk -v l="lib$lib.so.5" '$1 == l { print $3 }' "$work/ldd.txt")
  [ -n "$resolved" ] && [ "$(dirname "$(readlink -f "$resolved")")" = "$real_libdir" ] ||
    { cat "$work/ldd.txt"; fail "lib$lib.so.5 does not resolve into $libdir"; }
done
"$prefix/bin/ostrel" --help >"$work/help.txt" || fail "installed ostrel --help failed"
grep -q devices "$work/help.txt" || fail "ostrel --help does not list the subcommands"

machine=$source/examples/machines/laptop.xml
run_consumer() {
  local program=$1
  "$program" >"$work/out.txt" || { cat "$work/out.txt"; fail "$program failed"; }
  grep -qx 'interface 0x20000' "$work/out.txt" || fail "$program: wrong interface version"
  grep -qx 'result PASS' "$work/out.txt" || fail "$program: wrong constant"
  if [ -f "$machine" ]; then
    # The installed data folder, as the relocated tree's users would name it.
    OSTREL_DATA_DIR=$prefix/share/ostrel "$program" "$machine" >"$work/out.txt" ||
      { cat "$work/out.txt"; fail "$program on $machine failed"; }
    grep -Eq '^devices [1-9][0-9]*$' "$work/out.txt" ||
      { cat "$work/out.txt"; fail "$program found no devices on $machine"; }
    echo "$(basename "$program"): $(grep '^devices' "$work/out.txt") on $(basename "$machine")"
  fi
}

echo "== build with find_package(Ostrel)"
cmake -S "$source/tests/package/consumer" -B "$work/cmake-build" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" >"$work/configure.log" ||
  { cat "$work/configure.log"; fail "find_package(Ostrel) project did not configure"; }
cmake --build "$work/cmake-build" >"$work/build.log" 2>&1 ||
  { cat "$work/build.log"; fail "find_package(Ostrel) project did not build"; }
run_consumer "$work/cmake-build/consumer"

echo "== build with pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
pkg-config --exists ostrel || fail "pkg-config does not find ostrel"
[ "$(pkg-config --modversion ostrel)" = 5.0.0 ] || fail "ostrel.pc has the wrong version"
# shellcheck disable=SC2046
"$cxx" -std=c++17 -Wall -Wextra -Werror -o "$work/pc-consumer" \
  "$source/tests/package/consumer/consumer.cpp" $(pkg-config --cflags --libs ostrel) \
  -Wl,-rpath,"$(pkg-config --variable=libdir ostrel)" ||
  fail "pkg-config build failed"
run_consumer "$work/pc-consumer"

if [ ! -f "$machine" ]; then
  echo "note: $machine does not exist; the engine part of the consumer was not run"
fi
echo "PASS"
