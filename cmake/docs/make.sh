#!/bin/sh
# SPDX-License-Identifier: MIT
# Makes the manual. Usage: make.sh FOLDER
# FOLDER/html/index.html is its start page. FOLDER/man/man3 has a page for each header and each record, and one for
# each exported name, which shows that of its header. An exported function without a description, and one with a
# parameter or a result that is not, are errors.
set -eu
mkdir -p "$1"
folder=$(cd "$1" && pwd)
cd -- "$(dirname -- "$0")/../.."
rm -rf "$folder/html" "$folder/man"
filter=$PWD/cmake/docs/man_pages.sed
include=$PWD/include/kelo_utils
version=$(sed -n 's/^project(kelo_utils VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
{
  cat cmake/docs/Doxyfile
  printf 'PROJECT_NUMBER = %s\nOUTPUT_DIRECTORY = "%s"\n' "$version" "$folder"
} | doxygen -

# Doxygen also makes manual pages of fields and constants, which have names as plain as `size`, of the pages in docs/, and
# of special cases of templates, which have blanks in their names. These are removed.
exports=$folder/exports
sed '/^#/d; /^$/d' abi/exports.txt > "$exports"
cd "$folder/man/man3"
rm -f page_*.3 ./*' '*.3
grep -l '^\.so ' -- *.3 | sed 's/\.3$//' | grep -vxFf "$exports" | while read -r name; do
  rm -- "./$name.3"
done
missing=$(while read -r name; do [ -e "$name.3" ] || printf ' %s' "$name"; done < "$exports")
rm "$exports"

for page in *.h.3 *.hpp.3; do
  header=${page%.3}
  [ -e "$include/$header" ] || header=kelo/$header
  sed -i "/^\.SH SYNOPSIS/a .PP\n\\\\fC#include <kelo_utils/$header>\\\\fP" "$page"
done
grep -L '^\.so ' -- *.3 | xargs sed -i -f "$filter"
[ -z "$missing" ] || {
  echo "exported, but not documented:$missing" >&2
  exit 1
}
