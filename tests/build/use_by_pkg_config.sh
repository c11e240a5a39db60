#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Daemons in C and C++ built against the installed tree with pkg-config.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
build=$WORK/by_pkg_config
rm -rf "$build"
mkdir -p "$build"
# The linker takes the archive where there is no shared library.
"$CMAKE" --install "$BINARY_TREE" --prefix "$build/static" > /dev/null
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

# The modules of the archives choose these where the shared library is there, too: with SQLite's shared library, and in a
# program that is linked statically as a whole.
library=$(find "$prefix" -name libkelo_utils.a -printf '%h\n')
export PKG_CONFIG_PATH=$library/pkgconfig
static_flag=
compile_with kelo_utils_sqlite-static "$build/archive" "${c[@]}" "$daemon_sources/daemon.c"
expect "$stored" "$build/archive"
expect_needed no libkelo_utils "$build/archive"
expect_needed yes libsqlite3 "$build/archive"
if [ -e "$("$CC" -print-file-name=libsqlite3.a)" ]; then
  static_flag=--static
  compile_with kelo_utils-static "$build/whole" "${c[@]}" -static "$daemon_sources/daemon.c"
  compile_with kelo_utils_sqlite-static "$build/whole-sqlite" "${c[@]}" -static "$daemon_sources/daemon.c"
  expect "$no_storage" "$build/whole"
  expect "$stored" "$build/whole-sqlite"
  for program in whole whole-sqlite; do
    expect_needed no . "$build/$program"
  done
  static_flag=
else
  echo "whole: left out, there is no libsqlite3.a"
fi

# In a sysroot the prefix is that of the device; in the system's own folders the headers need no option, which would
# move them before those of the compiler.
DESTDIR=$build/sysroot "$CMAKE" --install "$BINARY_TREE" --prefix /usr > /dev/null
library=$(find "$build/sysroot" -name libkelo_utils.a -printf '%h\n')
export PKG_CONFIG_PATH=$library/pkgconfig LD_LIBRARY_PATH=$library
flags=$("$PKG_CONFIG" --cflags kelo_utils)
[ -z "${flags// /}" ] || { echo "kelo_utils in /usr: $flags" && failed=1; }
# pkg-config does not quote a blank in the path of a sysroot, and the tree may have one.
short=$(mktemp -d)
trap 'rm -rf "$short"' EXIT
ln -s "$build/sysroot" "$short/sysroot"
export PKG_CONFIG_SYSROOT_DIR=$short/sysroot
compile_with kelo_utils "$build/sysroot/own" "${c[@]}" "$daemon_sources/own_hooks.c"
expect "$own_hooks" "$build/sysroot/own"
exit "$failed"
