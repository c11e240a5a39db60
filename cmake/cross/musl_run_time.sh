#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Adds to a folder that sysroot.sh made for musl what programs in C++ and the tests need: the C++ run time, compiled from the
# sources of the compiler, and GoogleTest. Both are archives.
# Usage: musl_run_time.sh TRIPLET FOLDER GCC-SOURCES GOOGLETEST-SOURCES JOBS
# GCC-SOURCES is the archive of the sources of GCC, of the compiler's own version.
set -euo pipefail
triplet=$1 folder=$2 archive=$3 googletest=$4 jobs=$5
gnu=${triplet/musl/gnu}
work=$folder/run-time
log=$folder/run-time.log
exec > "$log" 2>&1
rm -rf "$work"
mkdir -p "$work/build" "$work/bin"

# The headers of C++ that the folder has are those for the GNU C library. The run time is compiled without them, and then
# replaces them.
specs=$(sed -n 's/.* -specs "\(.*\)"$/\1/p' "$folder/bin/$triplet-g++")
printf '#!/bin/sh\nexec %s-g++ "$@" -specs "%s"\n' "$gnu" "$specs" > "$work/bin/$triplet-g++"
chmod +x "$work/bin/$triplet-g++"

# Only what the run time needs, a twentieth of the sources.
tar -C "$work" -xJf "$archive" --strip-components=1 --wildcards --exclude='*/testsuite/*/*' --exclude='*/doc/html' \
  'gcc-*/config.*' 'gcc-*/config-ml.in' 'gcc-*/config/*' 'gcc-*/install-sh' 'gcc-*/ltmain.sh' 'gcc-*/missing' \
  'gcc-*/mkinstalldirs' 'gcc-*/move-if-change' 'gcc-*/gcc/BASE-VER' 'gcc-*/gcc/D*' 'gcc-*/include/*.h' \
  'gcc-*/libgcc/gthr*' 'gcc-*/libgcc/unwind*' 'gcc-*/libiberty/cp-dem*' 'gcc-*/libstdc++-v3/*'
# Which threads the target has is normally chosen with the compiler.
ln -s gthr-posix.h "$work/libgcc/gthr-default.h"
(
  cd "$work/build"
  ../libstdc++-v3/configure --build="$gnu" --host="$triplet" --prefix="$folder/usr" --with-gxx-include-dir="$work/include" \
    --disable-multilib --disable-shared --disable-nls --disable-libstdcxx-pch --disable-dependency-tracking \
    CC="$folder/bin/$triplet-gcc" CXX="$work/bin/$triplet-g++" CFLAGS=-O1 CXXFLAGS=-O1
  for part in include libsupc++ src; do
    make -j "$jobs" -C "$part"
    make -C "$part" install
  done
)
rm -rf "$folder/c++"
mv "$work/include" "$folder/c++"

# The compiler's unwinder was compiled for the GNU C library. Programs that link it get what it lacks from an archive.
"$folder/bin/$triplet-gcc" -O1 -fPIC -c "$(dirname "${BASH_SOURCE[0]}")/dl_find_object.c" -o "$work/dl_find_object.o"
ar rc "$folder/usr/lib/libdl_find_object.a" "$work/dl_find_object.o"
sed -i "s|(libgcc_eh.a%s)|& $folder/usr/lib/libdl_find_object.a|; s|-nostdlib|& --eh-frame-hdr|" "$specs"
printf '#!/bin/sh\nexec %s-g++ -nostdinc++ -isystem "%s" -isystem "%s" -L"%s" "$@" -specs "%s"\n' "$gnu" "$folder/c++" \
  "$folder/c++/$triplet" "$folder/usr/lib" "$specs" > "$folder/bin/$triplet-g++"

cmake -S "$googletest" -B "$work/googletest" -G Ninja -DCMAKE_C_COMPILER="$folder/bin/$triplet-gcc" \
  -DCMAKE_CXX_COMPILER="$folder/bin/$triplet-g++" -DCMAKE_CXX_FLAGS=-O1 -DCMAKE_INSTALL_PREFIX="$folder/usr"
ninja -C "$work/googletest" -j "$jobs" install
rm -rf "$work"
touch "$folder/run-time-complete"
