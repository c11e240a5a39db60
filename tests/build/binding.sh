#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The library's calls of its own exports are bound to itself: a definition in a program replaces only what is listed
# for that. And what is loaded stays loaded. Usage: binding.sh READELF LIBRARY EXPORTS REPLACEABLE
set -euo pipefail
readelf=$1 library=$2 exports=$3 replaceable=$4
failed=0

names() { grep -E '^[A-Za-z_]' "$1" | sort; }

unknown=$(comm -13 <(names "$exports") <(names "$replaceable"))
[ -z "$unknown" ] || { printf 'no exports:\n%s\n' "$unknown" && failed=1; }

# A relocation that names a symbol takes the first definition that the loader finds, the program's before the library's.
looked_up=$("$readelf" -rW "$library" | awk '$1 ~ /^[0-9a-f]+$/ && NF >= 5 { sub(/@.*/, "", $5); print $5 }' | sort -u)
grep -qx calloc <<< "$looked_up" || { echo "no call of calloc: these are not the relocations" && failed=1; }
own=$(comm -12 <(names "$exports") <(printf '%s\n' "$looked_up"))
grep -qx dm_pal_reg <<< "$own" || { echo "a program cannot replace dm_pal_reg" && failed=1; }
wrong=$(comm -23 <(printf '%s\n' "$own") <(names "$replaceable"))
[ -z "$wrong" ] || { printf 'a program can replace:\n%s\n' "$wrong" && failed=1; }
echo "a program can replace $(wc -l <<< "$own") of $(names "$exports" | wc -l) exports"

"$readelf" -dW "$library" | grep -q 'FLAGS_1.*NODELETE' || { echo "dlclose() unloads the library" && failed=1; }
exit "$failed"
