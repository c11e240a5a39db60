#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs into an empty prefix and looks at what came.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
rm -rf "$prefix"
"$CMAKE" --install "$BINARY_TREE" --prefix "$prefix" > /dev/null

for name in "$SOURCE_TREE"/include/kelo_utils/{*.h,*.hpp,kelo/*.hpp}; do
  cmp "$name" "$prefix/include/${name#"$SOURCE_TREE/include/"}" || failed=1
done
library=$(find "$prefix" -name libkelo_utils.so.0 -printf '%h\n')
for name in libkelo_utils.so libkelo_utils.so.0 libkelo_utils.a libkelo_utils_sqlite.a \
  pkgconfig/kelo_utils{,-static,_sqlite,_sqlite-static}.pc cmake/kelo_utils/kelo_utils-config.cmake; do
  [ -e "$library/$name" ] || { echo "missing: $name" && failed=1; }
done
"$READELF" -d "$library/libkelo_utils.so" | grep -q 'SONAME.*\[libkelo_utils\.so\.0\]' || { echo "soname" && failed=1; }
# The prefix itself is below the build, and pkg-config reads a blank in it with a backslash.
for module in "$library"/pkgconfig/*.pc; do
  [ "$(head -n 1 "$module")" = "prefix=${prefix// /\\ }" ] || { echo "$module: $(head -n 1 "$module")" && failed=1; }
done
if grep -rF -e "$SOURCE_TREE" -e "$BINARY_TREE" "$library/cmake" "$library/pkgconfig" | grep -vF ':prefix='; then
  echo "names the folders it was built in" && failed=1
fi
exit "$failed"
