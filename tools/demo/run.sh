#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs the demo on real files inside a sandbox. Usage: run.sh BUILD_DIR [EMULATOR [ARGUMENT...]]
set -eu
tree=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "$1" && pwd)
shift
status=0
"$tree/tests/sandbox.sh" --interfaces "$tree" "$build" -- "$@" "$build/tools/kelo_demo" || status=$?
if [ "$status" -eq 77 ]; then
  echo "The demo needs a sandbox (user namespaces) and this machine does not allow one: nothing was shown." >&2
fi
exit "$status"
