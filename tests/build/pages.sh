#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# A reader who follows the pages for beginners gets what they show, from an installed tree and nothing else.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
command -v sqlite3 > /dev/null || { echo "[  SKIPPED ] the pages need the command sqlite3" && exit 77; }
installed=$WORK/pages
rm -rf "$installed"
"$CMAKE" --install "$BINARY_TREE" --prefix "$installed" > /dev/null
"$CMAKE" --install "$BINARY_TREE" --prefix "$installed" --component tools > /dev/null
exec "$SOURCE_TREE/tests/sandbox.sh" "$SOURCE_TREE" "$BINARY_TREE" -- "$SOURCE_TREE/tests/build/follow.sh" "$installed" \
  "$SOURCE_TREE/docs/first_daemon.md" "$SOURCE_TREE/docs/debugging.md"
