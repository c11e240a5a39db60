#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Prints what the library costs on the device, folder by folder, and what libraries cost that do comparable work.
# Usage: size.sh BUILD [FOLDER]   BUILD is the device's build; other libraries are looked for below FOLDER.
set -euo pipefail
tree=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
build=$1 others=${2:-} prefix=${KELO_CROSS_PREFIX:-arm-linux-gnueabihf-}
objects=$build/CMakeFiles/kelo_utils_objects.dir
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT

row() { printf '%-34s %9s %8s %8s\n' "$@"; }
row_of() { # NAME LIBRARY
  local text data bss
  read -r text data bss _ < <("${prefix}size" "$2" | tail -n 1)
  row "$1" "$text" $((data + bss)) "$(stat -L -c %s "$2")"
}

row room text "data+bss" file
for room in "$objects"/*; do
  find "$room" -name '*.o' -print0 | xargs -0 -r "${prefix}size" -t \
    | awk -v room="${room##*/}" '/TOTALS/ { printf "%-34s %9d %8d\n", room, $1, $2 + $3 }'
done
"${prefix}strip" -o "$stripped" "$build/libkelo_utils.so"
row_of "libkelo_utils.so.0, linked" "$stripped"
budget() { sed -n "s/.*$1_budget=\$((\([0-9]* \* 1024\))).*/\1/p" "$tree/tests/build/size.sh"; }
without=$build/without_additions/libkelo_utils.so
if [ -e "$without" ]; then
  "${prefix}strip" -o "$stripped" "$without"
  row_of "  without the optional additions" "$stripped"
fi
row "  budget without the additions" $(($(budget text))) $(($(budget data))) $(($(budget file)))
row "  budget of the additions" $(($(budget additions))) "" ""

[ -n "$others" ] || exit 0
echo
row "others that a device may load" text "data+bss" file
while read -r name pattern; do
  library=$(find "$others" -name "$pattern" ! -name '*.py' -type f -print -quit)
  if [ -n "$library" ]; then row_of "$name" "$library"; else echo "$name: its package cannot be fetched here"; fi
done << 'END'
libglib-2.0 libglib-2.0.so.0.*
libstdc++ libstdc++.so.6.*
libicuuc libicuuc.so.*
libicudata libicudata.so.*
libevent_core libevent_core-2.1.so.*
libinih libinih.so.*
END
