#!/bin/sh
# SPDX-License-Identifier: MIT
# Makes the symbols file of the Debian package anew from the list of exports. Usage: symbols.sh TREE
# A name that is in the file keeps the version since which it is there, and any other gets the version of the tree.
set -eu
cd -- "$1"
version=$(sed -n 's/^project(kelo_utils VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
file=debian/libkelo-utils0.symbols
new=$(mktemp)
trap 'rm -f "$new"' EXIT
{
  sed '/^ /,$d' "$file"
  awk -v node=KELO_UTILS_0 -f packaging/debian/exported.awk abi/exports.txt | LC_ALL=C sort \
    | awk -v version="$version" -v file="$file" '
      BEGIN { while ((getline line < file) > 0) if (split(line, word, / +/) == 3) since[word[2]] = word[3] }
      { print " " $0, $0 in since ? since[$0] : version }'
} > "$new"
cat "$new" > "$file"
