#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# A build that names a platform library for the diagnostic channel: records reach that library, the library
# carries no stand-in, and a program's own two functions still win.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
build=$WORK/diag_library
tree=$build/prefix
mkdir -p "$build"
"$CC" -shared -fPIC -Wl,-soname,libplatform_diag.so -I "$SOURCE_TREE/include" \
  -o "$build/libplatform_diag.so" "$daemon_sources/platform_diag.c"
"$CMAKE" -S "$SOURCE_TREE" -B "$build/library" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER="$CC" \
  -DCMAKE_CXX_COMPILER="$CXX" -DKELO_DIAG_LIBRARY="$build/libplatform_diag.so" -DKELO_BUILD_TESTS=OFF \
  -DKELO_BUILD_TOOLS=OFF > "$build/log" || { cat "$build/log" && exit 1; }
"$CMAKE" --build "$build/library" > "$build/log" || { cat "$build/log" && exit 1; }
"$CMAKE" --install "$build/library" --prefix "$tree" > /dev/null

library=$(find "$tree" -name libkelo_utils.a -printf '%h\n')
"$SOURCE_TREE/tests/build/exports.sh" "$NM" "$library/libkelo_utils.so" "$SOURCE_TREE/abi/exports.txt" \
  Diag_LSM_Init msg_sprintf || failed=1

record=$(printf 'platform: main: daemon is up\n%s' "$no_storage")
export PKG_CONFIG_PATH=$library/pkgconfig LD_LIBRARY_PATH=$library:$build
for link in shared static; do
  static_flag=
  if [ $link = static ]; then
    static_flag=--static
    find "$tree" -name 'libkelo_utils.so*' -delete
  fi
  compile_with kelo_utils "$build/c-$link" "$CC" "$daemon_sources/daemon.c" -Wl,-rpath-link,"$build"
  compile_with kelo_utils "$build/own-$link" "$CC" "$daemon_sources/own_hooks.c" -Wl,-rpath-link,"$build"
  expect "$record" "$build/c-$link"
  expect "$own_hooks" "$build/own-$link"
done
exit "$failed"
