#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
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

# configure NAME TREE [ARGUMENT...]: a project of the lines on standard input, which uses the package of TREE.
configure() {
  local name=$1 tree=$2
  shift 2
  mkdir -p "$build/$name"
  { printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(daemon LANGUAGES C)' && cat; } > "$build/$name/CMakeLists.txt"
  "$CMAKE" -S "$build/$name" -B "$build/$name" -G Ninja -DCMAKE_PREFIX_PATH="$tree" -DCMAKE_C_COMPILER="$CC" "$@" \
    > "$build/$name/log" 2>&1 || { cat "$build/$name/log" && failed=1 && return 1; }
}

# The shared library alone asks for no archive, and for nothing of SQLite's development files.
cp -r "$prefix" "$build/shared tree"
find "$build/shared tree" -name '*.a' -delete
if configure shared "$build/shared tree" -DCMAKE_DISABLE_FIND_PACKAGE_SQLite3=ON -DSOURCES="$daemon_sources" << 'END'
find_package(kelo_utils 0.1 REQUIRED)
find_package(kelo_utils QUIET COMPONENTS static)
if(TARGET kelo::utils_static OR TARGET kelo::utils_sqlite OR kelo_utils_FOUND)
  message(FATAL_ERROR "the package describes archives that are not there")
endif()
add_executable(only-shared ${SOURCES}/own_hooks.c)
target_link_libraries(only-shared kelo::utils)
END
then
  "$CMAKE" --build "$build/shared" > "$build/shared/log" || { cat "$build/shared/log" && exit 1; }
  expect "$own_hooks" "$build/shared/only-shared"
fi
# The archive is there, and SQLite is not.
configure no_sqlite "$prefix" -DCMAKE_DISABLE_FIND_PACKAGE_SQLite3=ON << 'END' || :
find_package(kelo_utils REQUIRED COMPONENTS sqlite)
if(TARGET kelo::utils_static OR NOT TARGET kelo::utils OR NOT TARGET kelo::utils_sqlite)
  message(FATAL_ERROR "the targets are not those that need no SQLite")
endif()
END

# Before version 1.0 each minor version is compatible with itself only.
configure versions "$prefix" << 'END' || :
function(expect_version request found)
  find_package(kelo_utils ${request} QUIET)
  if(NOT "${kelo_utils_FOUND}" STREQUAL "${found}")
    message(SEND_ERROR "version ${request}: '${kelo_utils_FOUND}', not '${found}'")
  endif()
endfunction()
find_package(kelo_utils REQUIRED)
string(REGEX MATCH "^([0-9]+)\\.([0-9]+)" minor ${kelo_utils_VERSION})
math(EXPR before "${CMAKE_MATCH_2} - 1")
math(EXPR after "${CMAKE_MATCH_2} + 1")
expect_version(${kelo_utils_VERSION} 1)
expect_version(${minor} 1)
expect_version(${CMAKE_MATCH_1}.${before} 0)
expect_version(${CMAKE_MATCH_1}.${after} 0)
END
exit "$failed"
