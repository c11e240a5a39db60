#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# docs/messages.md has every text that the library logs, with its level, and no other text. Usage: messages.sh TREE
# FOLDER..., the folders of the library's sources in the tree.
set -euo pipefail
# shellcheck source=tests/build/library_sources.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/library_sources.sh"
find_sources "$@"
LC_ALL=C awk -f "$messages_program" "${sources[@]}" docs/messages.md
