#!/usr/bin/env bash
# The example daemon in the README compiles as it stands there, without a warning, and does what it says.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
build=$WORK/readme
mkdir -p "$build"
# shellcheck disable=SC2016 # the backquotes are those of the README
sed -n '/^```c$/,/^```$/{/^```/!p}' "$SOURCE_TREE/README.md" > "$build/example.c"
[ "$(wc -l < "$build/example.c")" -gt 20 ] || { echo "the README has no example" && exit 1; }

library=$(find "$prefix" -name libkelo_utils.so -printf '%h\n')
export PKG_CONFIG_PATH=$library/pkgconfig LD_LIBRARY_PATH=$library
compile_with kelo_utils_sqlite "$build/example" "$CC" -std=c99 -pedantic -Wall -Wextra -Werror "$build/example.c"

cat > "$build/twice" << END
#!/bin/sh
"$build/example" fixed.wireless && "$build/example"
END
chmod +x "$build/twice"
expect "$(printf 'item 1005 is now fixed.wireless\nstored: fixed.wireless\nstored: fixed.wireless')" "$build/twice"
exit "$failed"
