#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# On a 32-bit machine the library opens, sizes and places files with 64-bit offsets, and asks the C library for nothing
# that those of devices lack. Usage: offsets.sh NM SHARED ARCHIVE
set -euo pipefail
nm=$1 shared=$2 archive=$3
failed=0
newest_allowed=2.28

# The functions that have a twin of their name and "64".
narrow='open|openat|creat|fopen|freopen|tmpfile|lseek|fseek|ftell|fseeko|ftello|stat|fstat|lstat|fstatat'
narrow+='|__xstat|__fxstat|__lxstat|truncate|ftruncate|fallocate|posix_fallocate|pread|pwrite|preadv|pwritev|mmap'
narrow+='|sendfile|readdir|readdir_r|scandir|nftw|ftw|glob|statfs|fstatfs|statvfs|fstatvfs|lockf|fcntl|mkstemp|mkostemp'
narrow+='|fgetpos|fsetpos|getrlimit|setrlimit'

asked=$("$nm" -u "$archive" | awk '$1 == "U" { print $2 }' | sort -u)
if grep -xE "$narrow" <<< "$asked"; then
  echo "32-bit offsets: the functions above" && failed=1
fi
wide=$({ grep -xE '[a-z_]*64' <<< "$asked" || true; } | tr '\n' ' ')
echo "64-bit offsets: $wide"
[[ " $wide" == *" open64 "* ]] || { echo "the archive opens no file, which cannot be" && failed=1; }

# These are older than their version here, under which libc.so took them over from libpthread.so, librt.so and libc.a:
# what is linked on an older C library asks for the older version.
moved='(pthread|sem|timer)_[a-z_]+|[fl]?stat64'
versions=$("$nm" -D -u "$shared" | sed -nE 's/.* ([a-z_0-9A-Z]+)@+GLIBC_([0-9.]+)$/\2 \1/p' | sort -V)
newest=$(grep -vxE "[0-9.]+ ($moved)" <<< "$versions" | tail -n 1)
echo "needs the C library of ${newest/ / for }"
if [ "$(printf '%s\n' "${newest% *}" "$newest_allowed" | sort -V | tail -n 1)" != "$newest_allowed" ]; then
  echo "which is newer than $newest_allowed" && failed=1
fi
exit "$failed"
