#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Prints the binary interface of a built library as abidw sees it: the exported names, and the types that callers
# reach through them. Types of the implementation and folders of the machine are left out.
# Usage: describe.sh LIBRARY
set -euo pipefail
here=$(dirname -- "${BASH_SOURCE[0]}")
abidw --exported-interfaces-only --headers-dir "$here/../include" --drop-private-types \
  --suppressions "$here/internal_types.suppr" --type-id-style hash --no-write-default-sizes \
  --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed "$1"
