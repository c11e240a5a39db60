#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Prints what a library's own description lacks: records and enumerations that no signature uses, and the types of
# exports without debug information of their own, such as functions that were folded into one. A variable of each
# type is compiled from the public headers and described by abidw.
# Usage: describe_types.sh C-COMPILER DESCRIPTION-OF-THE-LIBRARY
set -euo pipefail
cc=$1 description=$2
here=$(dirname -- "${BASH_SOURCE[0]}")
include=$here/../include
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

described=$(sed -n "s/.* elf-symbol-id='\([^@]*\)@.*/\1/p" "$description" | sort)
listed=$(grep -E '^[A-Za-z_]' "$here/exports.txt" | sort)
{
  echo '#include <kelo_utils/kelo_utils.h>'
  sed -nE 's/^(typedef )?(struct|union|enum) (\w+) \{.*/\2 \3 \2_\3;/p' "$include"/kelo_utils/*.h
  comm -13 <(echo "$described") <(echo "$listed") | sed 's/.*/__typeof__(\&&) address_of_&;/'
} > "$work/types.c"
"$cc" -std=gnu99 -g -shared -fPIC -nostdlib -fdebug-prefix-map="$work"=. -I "$include" -o "$work/types.so" "$work/types.c"
abidw --type-id-style hash --no-write-default-sizes --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed \
  "$work/types.so"
