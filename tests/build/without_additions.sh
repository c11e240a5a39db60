#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The loader refuses a daemon that uses the optional additions when the library has none of them, before the daemon does
# anything. A daemon that uses none runs with either library.
# Usage: without_additions.sh CC INCLUDE-FOLDER LIBRARY LIBRARY-WITHOUT-ADDITIONS
set -euo pipefail
cc=$1 include=$2 library=$3 without=$4
failed=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# build NAME CALL: a program that makes the call and prints "ran". It is linked with the library that has the additions.
build() {
  printf '%s\n' '#include <stdio.h>' '#include "kelo_utils/kelo_utils.h"' \
    "int main(void) { uint8_t septet; (void)septet; return puts(\"ran\") < 0 || $2; }" > "$work/$1.c"
  "$cc" -I "$include" "$work/$1.c" -o "$work/$1" "$library"
}

# expect NAME LIBRARY STATUS TEXT: the program ends with STATUS, and what it and the loader print contains TEXT.
expect() {
  local status=0 output
  output=$(LD_LIBRARY_PATH=$(dirname "$2") "$work/$1" 2>&1) || status=$?
  if [ "$status" -ne "$3" ] || [[ $output != *"$4"* ]]; then
    echo "$1 with $2: status $status, not $3; '$output', not '$4'"
    failed=1
  fi
  if [ "$3" -ne 0 ] && [[ $output == *ran* ]]; then echo "$1 with $2 ran" && failed=1; fi
}

build with_additions 'kelo_gsm_encode("a", &septet, 1) != 1'
build without_additions 'kelo_get_log_level() != 1'
expect with_additions "$library" 0 ran
expect without_additions "$library" 0 ran
expect without_additions "$without" 0 ran
# The status and the text are those of the loader.
expect with_additions "$without" 1 "version \`KELO_UTILS_0_ADDITIONS' not found"
exit "$failed"
