#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# docs/messages.md has every text that the library logs, with its level, and no other text. Usage: messages.sh TREE
# FOLDER..., the folders of the library's sources in the tree.
set -euo pipefail
program=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)/messages.awk
cd -- "$1"
shift
sources=()
for folder in "$@"; do
  for source in "$folder"/*.[ch]pp; do
    [ ! -e "$source" ] || sources+=("$source")
  done
done
LC_ALL=C awk -f "$program" "${sources[@]}" docs/messages.md
