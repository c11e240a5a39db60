#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Writes the baselines that the test build.abi compares with: what a built library offers becomes what every later
# build for that kind of machine has to offer. Usage: renew.sh MACHINE C-COMPILER LIBRARY
set -euo pipefail
machine=$1 cc=$2 library=$3
here=$(dirname -- "${BASH_SOURCE[0]}")
baseline=$here/kelo_utils-$machine.abi types=$here/kelo_utils-$machine-types.abi

"$here/describe.sh" "$library" > "$baseline.new"
mv "$baseline.new" "$baseline"
"$here/describe_types.sh" "$cc" "$baseline" > "$types.new"
mv "$types.new" "$types"
echo "$baseline: $(grep -c '<elf-symbol ' "$baseline") names"
echo "$types: $(grep -c '<elf-symbol ' "$types") types"
