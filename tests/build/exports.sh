#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The dynamic symbols of the library, functions and data, are the listed names and no others.
# Usage: exports.sh NM LIBRARY EXPORTS [NAME...]   Each NAME is listed but comes from another library.
set -euo pipefail
nm=$1 library=$2 exports=$3
shift 3

# The version node is an absolute symbol of its own.
built=$("$nm" -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort)
listed=$(grep -E '^[A-Za-z_]' "$exports" | grep -vxF "$(printf '%s\n' "$@" -)" | sort)
if ! diff <(printf '%s\n' "$listed") <(printf '%s\n' "$built"); then
  echo "'<' is listed and not exported, '>' is exported and not listed"
  exit 1
fi
echo "$(wc -l <<< "$built") names, all listed and all exported"
