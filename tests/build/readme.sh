#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The example daemon in the README compiles as it is printed there, without a warning, and does what it says. Every
# link of the README and of the other pages leads to something, and the README leads to every header and to every page in
# docs/. The tests that the page of promises names are there.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
build=$WORK/readme
mkdir -p "$build"
readme_example "$build/example.c"

library=$(find "$prefix" -name libkelo_utils.so -printf '%h\n')
export PKG_CONFIG_PATH=$library/pkgconfig LD_LIBRARY_PATH=$library
compile_with kelo_utils_sqlite "$build/example" "$CC" -std=c99 -pedantic -Wall -Wextra -Werror "$build/example.c"

cat > "$build/thrice" << 'END'
#!/bin/sh
cd "$(dirname "$0")" && ./example && ./example fixed.wireless && ./example
END
chmod +x "$build/thrice"
expect "$(printf 'APN: internet\nitem 1005 is now fixed.wireless\nAPN: fixed.wireless\nAPN: fixed.wireless')" "$build/thrice"

# links PAGE: the files of this tree that it leads to, from the root.
links() {
  local folder
  folder=$(dirname "$1")
  grep -oE '\]\([^)#:]+' "$SOURCE_TREE/$1" | sed 's/^](//' | while read -r target; do
    realpath -m --relative-to="$SOURCE_TREE" "$SOURCE_TREE/$folder/$target"
  done
}
cd "$SOURCE_TREE"
for page in *.md docs/*.md examples/*.md packaging/*.md; do
  for target in $(links "$page"); do
    [ -e "$target" ] || { echo "$page leads to $target, which is not there" && failed=1; }
  done
done
led_to=$(links README.md)
for target in include/kelo_utils/*.h docs/*.md; do
  grep -qxF "$target" <<< "$led_to" || { echo "README.md does not lead to $target" && failed=1; }
done

# is_test SUITE.NAME: whether there is such a test.
is_test() {
  local suite=${1%%.*} name=${1#*.}
  grep -rqsE "^TEST(_F|_P)?\($suite, $name\)" tests && return
  grep -qsE "(^ *NAME |_share\(|_finds\()$name\b" tests/*/*_explorer_tests.cmake
}
# shellcheck disable=SC2016 # the backquotes are those of the page
named=$(grep '^|' docs/promises.md | grep -oE '`[a-zA-Z_]+\.[A-Za-z_]+`' | tr -d '`' | sort -u)
[ "$(wc -l <<< "$named")" -gt 20 ] || { echo "docs/promises.md names no tests" && failed=1; }
for test in $named; do
  is_test "$test" || { echo "docs/promises.md names the test $test, which is not there" && failed=1; }
done
exit "$failed"
