#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs clang-tidy and drops the lines in which it counts suppressed warnings.
# Usage: tidy.sh CLANG-TIDY STAMP [ARGUMENT...]   The stamp is made anew when nothing was found.
set -u
tidy=$1
stamp=$2
shift 2
rm -f "$stamp"
if "$tidy" --quiet "$@" 2> "$stamp.log"; then
  mv "$stamp.log" "$stamp"
else
  grep -v 'warnings\{0,1\}.* generated' "$stamp.log" >&2
  exit 1
fi
