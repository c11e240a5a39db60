#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes a folder for the toolchain file cross.cmake: the C library and SQLite of a target, and with musl the commands
# TRIPLET-gcc and others in bin/. Usage: sysroot.sh TRIPLET FOLDER SQLITE-SOURCE [PACKAGE...]
# SQLITE-SOURCE holds sqlite3.c and sqlite3.h. Each PACKAGE is a Debian package of musl for the target; for the GNU C
# library there is none, because the cross compiler has it.
set -euo pipefail
triplet=$1 folder=$2 sqlite=$3
shift 3
gnu=${triplet/musl/gnu}
rm -rf "$folder"
mkdir -p "$folder/bin" "$folder/usr/lib" "$folder/usr/include"
for package in "$@"; do
  dpkg-deb -x "$package" "$folder"
done
gcc=$triplet-gcc

if [ $# -eq 0 ]; then
  ln -s "/usr/$triplet/lib" "$folder/lib"
else
  specs=$(echo "$folder"/usr/lib/*-linux-musl*/musl-gcc.specs)
  # Debian's name of the folders may differ from the triplet.
  multiarch=$(basename "$(dirname "$specs")")
  for loader in "$folder"/lib/ld-musl-*.so.1; do
    ln -sf "$multiarch/libc.so" "$loader"
  done
  ln -sf "../../../lib/$multiarch/libc.so" "$folder/usr/lib/$multiarch/libc.so"
  sed -i "s| /usr/| $folder/usr/|g; s|-L/usr/|-L$folder/usr/|g" "$specs"
  # The compiler's headers of C++ are those for the GNU C library. The library takes nothing from them that depends on
  # the C library, so a copy without the names that musl lacks serves it.
  headers=()
  while read -r path; do
    if [ -e "$path/bits/c++config.h" ]; then
      cp -r "$path" "$folder/c++"
      path=$folder/c++
      sed -i '/define _GLIBCXX_USE_PTHREAD_[A-Z_]*CLOCK[A-Z]* /d' "$path/bits/c++config.h"
      sed -i 's/__locale_t/locale_t/g; s/__uselocale/uselocale/g' "$path/bits/c++locale.h"
      names=(upper lower alpha digit xdigit space print punct cntrl blank)
      for i in "${!names[@]}"; do
        echo "#define _IS${names[i]} $((1 << i))"
      done > "$path/bits/os_defines.h"
    fi
    headers+=("-isystem '$path'")
  done < <("$gnu-g++" -x c++ -E -v - 2>&1 < /dev/null | sed -n 's|^ \(/.*/c++/.*\)|\1|p')
  # The kernel's headers are the compiler's.
  for name in linux asm asm-generic; do
    path=$(dirname "$(echo "#include <$name/errno.h>" | "$gnu-gcc" -E -M - | grep -o "/[^ ]*/$name/errno.h")")
    ln -s "$path" "$folder/usr/include/$multiarch/$name"
  done
  # Debian's compiler for 64-bit ARM calls functions for atomic accesses that need the GNU C library.
  options=
  case $triplet in aarch64-*) options=-mno-outline-atomics ;; esac
  printf '#!/bin/sh\nexec %s-gcc %s "$@" -specs "%s"\n' "$gnu" "$options" "$specs" > "$folder/bin/$triplet-gcc"
  # There is no C++ run time for musl: the command that would link it is not used.
  printf '#!/bin/sh\nexec %s-gcc %s "$@" -specs "%s"\n' "$gnu" "$options ${headers[*]}" "$specs" > "$folder/bin/$triplet-g++"
  chmod +x "$folder/bin/"*
  for tool in ar nm ranlib readelf strip objcopy objdump; do
    ln -s "$(command -v "$gnu-$tool")" "$folder/bin/$triplet-$tool"
  done
  gcc=$folder/bin/$triplet-gcc
fi

cp "$sqlite/sqlite3.h" "$folder/usr/include"
# It runs a few statements: what its optimisation takes would be longer.
"$gcc" -O0 -fPIC -shared -DSQLITE_THREADSAFE=1 -DHAVE_FDATASYNC=1 -DHAVE_USLEEP=1 -Wl,-soname,libsqlite3.so.0 \
  -o "$folder/usr/lib/libsqlite3.so.0" "$sqlite/sqlite3.c"
ln -s libsqlite3.so.0 "$folder/usr/lib/libsqlite3.so"
touch "$folder/complete"
