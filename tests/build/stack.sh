#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# No function of the library takes more of the stack than callbacks on the timer service's thread can spare, and none
# takes what depends on its arguments. Usage: stack.sh OBJECT...   Each has its compiler's account beside it, as .su.
set -euo pipefail
limit=8192

for object in "$@"; do
  cat "${object%.o}.su"
done | awk -F '\t' -v limit="$limit" '
  { functions++ }
  $2 > largest { largest = $2; where = $1 }
  $2 > limit || ($3 != "static" && $3 != "dynamic,bounded") { print $1 ": " $2 " bytes, " $3; bad = 1 }
  END {
    print functions + 0 " functions, of which the one that takes most takes " largest + 0 " bytes: " where
    exit bad || functions == 0
  }'
