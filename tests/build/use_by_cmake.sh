#!/usr/bin/env bash
# Daemons in C and C++ built against the installed tree with find_package(kelo_utils).
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
build=$WORK/by_cmake
rm -rf "$build"
"$CMAKE" -S "$daemon_sources" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$CC" \
  -DCMAKE_CXX_COMPILER="$CXX" > "$WORK/by_cmake.log" || { cat "$WORK/by_cmake.log" && exit 1; }
"$CMAKE" --build "$build" > "$WORK/by_cmake.log" || { cat "$WORK/by_cmake.log" && exit 1; }

# The run path that CMake writes names the place of the tree, which is another one in the sandbox.
LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name libkelo_utils.so)")
export LD_LIBRARY_PATH
for language in c cpp; do
  for link in shared static; do
    expect "$no_storage" "$build/$language-$link"
    expect "$stored" "$build/$language-$link-sqlite"
  done
done
expect "$stored" "$build/c-sqlite-shared"
expect "$stored" "$build/c-sqlite-static"
for link in shared static; do
  expect "$own_hooks" "$build/own-$link"
  expect_needed no 'libstdc++' "$build/c-$link-sqlite"
done
for program in c-shared c-shared-sqlite c-sqlite-shared own-shared; do
  expect_needed yes libkelo_utils "$build/$program"
done
for program in c-static c-static-sqlite c-sqlite-static own-static; do
  expect_needed no libkelo_utils "$build/$program"
done
exit "$failed"
