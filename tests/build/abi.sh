#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Programs linked against the library of the baseline run with the built one: no exported name is gone, no parameter
# or result has another type, no record another layout and no enumerator another value.
# Usage: abi.sh C-COMPILER LIBRARY MACHINE
set -euo pipefail
cc=$1 library=$2 machine=$3
abi=$(dirname -- "${BASH_SOURCE[0]}")/../../abi
baseline=$abi/kelo_utils-$machine.abi

skip() {
  echo "[  SKIPPED ] this machine $1"
  exit 77
}
{ command -v abidw && command -v abidiff; } > /dev/null || skip "has no abidw and abidiff (abigail-tools)"
[ -e "$baseline" ] || skip "is of a kind without a baseline: there is no $(basename "$baseline")"

built=$(mktemp -d)
trap 'rm -rf "$built"' EXIT
"$abi/describe.sh" "$library" > "$built/library.abi"
"$abi/describe_types.sh" "$cc" "$baseline" > "$built/types.abi"

described=$(grep -c '<function-decl .*elf-symbol-id=' "$built/library.abi" || true)
if [ "$described" -eq 0 ]; then
  echo "$(basename "$library") was built without debug information: its types cannot be compared"
  exit 1
fi
# The optional additions carry a node of their own, and all other names one node.
expected=$(awk '/^# optional additions$/ { node = "_ADDITIONS" } /^[A-Za-z_]/ { print $0, "KELO_UTILS_0" node }' \
  "$abi/exports.txt" | sort)
nodes=$(sed -n "s/.*<elf-symbol name='\([^']*\)'.* version='\([^']*\)'.*/\1 \2/p" "$built/library.abi" | sort -u)
if ! diff <(printf '%s\n' "$expected") <(printf '%s\n' "$nodes"); then
  echo "'<' is the version node that a name should carry, '>' is the one that it carries"
  exit 1
fi

# compare OLD NEW
compare() {
  if ! abidiff --no-added-syms "$1" "$2"; then
    echo "This breaks programs that are linked already. Where that is meant, the SONAME changes too;"
    echo "./dev abi then makes the new baseline."
    exit 1
  fi
  if ! abidiff "$1" "$2"; then
    echo "What was added breaks no program. ./dev abi takes it into the baseline."
  fi
}
compare "$baseline" "$built/library.abi"
compare "${baseline%.abi}-types.abi" "$built/types.abi"
echo "$described functions and $(grep -c '<elf-symbol ' "$built/types.abi") types, as in $(basename "$baseline")"
