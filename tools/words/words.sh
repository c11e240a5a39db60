#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Looks for turns of words that were hard to read, in every text of the tree. Usage: words.sh TREE
# Each line of banned.txt is an extended regular expression and, after a tab, what to write in its place.
set -euo pipefail
banned=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)/banned.txt
cd -- "$1"

# The seeds of the fuzzers are no texts, and the baselines in abi/ are made by a program.
texts() {
  find . \( -path './build*' -o -path ./.git -o -path ./fuzz/corpus \) -prune -o \
    -type f ! -name '*.abi' ! -path ./tools/words/banned.txt -print0
}

failed=0
while IFS=$'\t' read -r turn instead; do
  if found=$(texts | xargs -0 grep -nIE -e "$turn" /dev/null); then
    printf '%s\n' "$found" | sed "s|^\./||; s|\$|   <- in plain words: $instead|"
    failed=1
  fi
done < "$banned"
exit "$failed"
