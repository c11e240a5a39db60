#!/usr/bin/env bash
# Programs linked against the library of the baseline run with the built one: no exported name is gone, no parameter
# or result has another type, and no record another layout. Usage: abi.sh LIBRARY BASELINE
set -euo pipefail
library=$1 baseline=$2
describe=$(dirname -- "${BASH_SOURCE[0]}")/../../abi/describe.sh

skip() {
  echo "[  SKIPPED ] this machine $1"
  exit 77
}
{ command -v abidw && command -v abidiff; } > /dev/null || skip "has no abidw and abidiff (abigail-tools)"
[ -e "$baseline" ] || skip "is of a kind without a baseline: there is no $(basename "$baseline")"

built=$(mktemp --suffix=.abi)
trap 'rm -f "$built"' EXIT
"$describe" "$library" > "$built"

described=$(grep -c '<function-decl .*elf-symbol-id=' "$built" || true)
if [ "$described" -eq 0 ]; then
  echo "$(basename "$library") was built without debug information: its types cannot be compared"
  exit 1
fi
nodes=$(sed -n "s/.*<elf-symbol .* version='\([^']*\)'.*/\1/p" "$built" | sort -u)
if [ "$nodes" != KELO_UTILS_0 ]; then
  echo "the names carry the versions '$nodes', not KELO_UTILS_0 alone"
  exit 1
fi

if ! abidiff --no-added-syms "$baseline" "$built"; then
  echo "This breaks programs that are linked already. Where that is meant, the SONAME changes too;"
  echo "./dev abi then makes the new baseline."
  exit 1
fi
if ! abidiff "$baseline" "$built"; then
  echo "Names that were added break no program. ./dev abi takes them into the baseline."
fi
echo "$described functions, as in $(basename "$baseline")"
