#!/usr/bin/env bash
# Daemons in C and C++ built against the installed tree with pkg-config.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
build=$WORK/by_pkg_config
rm -rf "$build"
mkdir -p "$build"
# The linker takes the archive where there is no shared library: a copy of the tree without one.
cp -r "$prefix" "$build/static"
find "$build/static" -name 'libkelo_utils.so*' -delete

c=("$CC" -std=c99 -pedantic -Wall -Wextra -Werror)
cpp=("$CXX" -std=c++17 -pedantic -Wall -Wextra -Werror)
for link in shared static; do
  tree=$prefix static_flag=
  [ $link = shared ] || tree=$build/static static_flag=--static
  library=$(find "$tree" -name libkelo_utils.a -printf '%h\n')
  export PKG_CONFIG_PATH=$library/pkgconfig LD_LIBRARY_PATH=$library
  compile_with kelo_utils "$build/c-$link" "${c[@]}" "$daemon_sources/daemon.c"
  compile_with kelo_utils "$build/cpp-$link" "${cpp[@]}" "$daemon_sources/daemon.cpp"
  compile_with kelo_utils_sqlite "$build/c-$link-sqlite" "${c[@]}" "$daemon_sources/daemon.c"
  compile_with kelo_utils_sqlite "$build/cpp-$link-sqlite" "${cpp[@]}" "$daemon_sources/daemon.cpp"
  compile_with kelo_utils "$build/own-$link" "${c[@]}" "$daemon_sources/own_hooks.c"
  expect "$no_storage" "$build/c-$link"
  expect "$no_storage" "$build/cpp-$link"
  expect "$stored" "$build/c-$link-sqlite"
  expect "$stored" "$build/cpp-$link-sqlite"
  expect "$own_hooks" "$build/own-$link"
  for program in c-$link c-$link-sqlite own-$link; do
    expect_needed no 'libstdc++' "$build/$program"
    expect_needed "$([ $link = shared ] && echo yes || echo no)" libkelo_utils "$build/$program"
  done
done
exit "$failed"
