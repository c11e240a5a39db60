#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The README's daemon, in a build that contains the library's sources: by add_subdirectory() and by FetchContent.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
work="$WORK/by sources"
rm -rf "$work"
mkdir -p "$work/kelo utils" "$work/daemon"
tar -C "$SOURCE_TREE" --exclude './build*' --exclude ./.git -c . | tar -C "$work/kelo utils" -x
cp "$SOURCE_TREE/tests/build/from_sources/CMakeLists.txt" "$work/daemon"
readme_example "$work/daemon/example.c"

# The sandbox shows the daemons under another path than the run path that CMake writes.
export LD_LIBRARY_PATH=$work/build/kelo_utils
for way in add_subdirectory FetchContent; do
  {
    "$CMAKE" -S "$work/daemon" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER="$CC" \
      -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_CXX_FLAGS_DEBUG= -DKELO_SOURCES="$work/kelo utils" -DKELO_WAY=$way \
      && rm -f "$work/build/utils" "$work/build/utils_static" && "$CMAKE" --build "$work/build"
  } > "$work/log" || { cat "$work/log" && exit 1; }
  for link in utils utils_static; do
    echo "$way, $link"
    expect "APN: internet" "$work/build/$link"
    expect_needed no 'libstdc++' "$work/build/$link"
  done
  expect_needed yes libkelo_utils "$work/build/utils"
  expect_needed no libkelo_utils "$work/build/utils_static"
done
exit "$failed"
