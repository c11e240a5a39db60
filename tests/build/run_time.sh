#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The library asks for nothing at run time but the C library, the loader and SQLite, and holds nothing of the
# C++ run time. Usage: run_time.sh READELF NM SHARED ARCHIVE LINK-MAP [DIAGNOSTIC-LIBRARY]
set -euo pipefail
readelf=$1 nm=$2 shared=$3 archive=$4 link_map=$5 diagnostic=${6:-}
failed=0

needed=$("$readelf" -d "$shared" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
[ -n "$needed" ] || failed=1
for name in $needed; do
  case $name in
    libc.so | libc.so.* | ld*.so.[0-9] | libsqlite3.so.*) echo "needs $name" ;;
    "$(basename "${diagnostic:-none}")") echo "needs $name" ;;
    *) echo "needs $name, which it must not" && failed=1 ;;
  esac
done

grep -q 'kelo_log\.cpp\.o' "$link_map" || { echo "$link_map is not the library's link map" && failed=1; }
if grep -E 'lib(std|sup)c\+\+' "$link_map"; then
  echo "the link map names the C++ run time" && failed=1
fi
# operator new and delete, anything of namespace std, exceptions, guards of local statics
if "$nm" -u "$archive" | grep -E ' (_Zn[wa]|_Zd[la]|_ZN?K?St|__gxx|__cxa_(guard|throw|begin|end|rethrow|allocate|pure))'; then
  echo "the archive asks for the C++ run time" && failed=1
fi
# Access to more bytes, or to fewer, than the processor's instructions take becomes a call.
if "$nm" -u "$archive" | grep -E ' __(atomic|sync)_'; then
  echo "the archive asks for the library of atomic operations" && failed=1
fi
exit "$failed"
