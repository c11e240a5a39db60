#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The manual is made without a gap. In a browser every link of it leads to something, and the start page leads to
# every exported name.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
for tool in doxygen chromium python3; do
  command -v "$tool" > /dev/null || { echo "[  SKIPPED ] this machine cannot show the manual: no $tool" && exit 77; }
done
"$SOURCE_TREE/cmake/docs/make.sh" "$WORK/manual"
exec python3 "$SOURCE_TREE/tests/build/manual/walk.py" chromium "$WORK/manual/html" "$SOURCE_TREE/abi/exports.txt"
