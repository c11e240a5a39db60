#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Packages of the same sources are the same to the byte, wherever and under whatever umask they were made, and lintian finds
# neither an error nor a warning in them. The second time they are made outside of git, from the source archive.
# What is in them is for package_contents.sh to say.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
for tool in dpkg-buildpackage dh lintian doxygen python3 sqlite3; do
  command -v "$tool" > /dev/null || { echo "[  SKIPPED ] this machine makes no packages: no $tool" && exit 77; }
done
build=$WORK/package
make=packaging/debian/make.sh
version=$(sed -n 's/^project(kelo_utils VERSION \([0-9.]*\).*/\1/p' "$SOURCE_TREE/CMakeLists.txt")
rm -rf "$build"
mkdir -p "$build/sources"
unset SOURCE_DATE_EPOCH

# The archive has what is committed. Where something is not, a copy of the tree takes its place.
if [ -e "$SOURCE_TREE/.git" ] && uncommitted=$(git -C "$SOURCE_TREE" status --porcelain) && [ -z "$uncommitted" ]; then
  "$SOURCE_TREE/dev" dist
  tar -C "$build/sources" --strip-components=1 -xf "$SOURCE_TREE/build/kelo-utils-$version.tar.gz"
else
  echo "the source archive is not tried: this tree has no history, or something in it is not committed"
  tar -C "$SOURCE_TREE" --exclude './build*' --exclude ./.git -c . | tar -C "$build/sources" -x
fi

"$SOURCE_TREE/$make" "$SOURCE_TREE" "$build/here" || exit 1
(umask 077 && "$build/sources/$make" "$build/sources" "$build/elsewhere/second") || exit 1

# made FOLDER: the packages in it. The other files tell when and where they were made.
made() { (cd "$1" && printf '%s\n' *.deb *.dsc *.tar.xz); }
diff <(made "$build/here") <(made "$build/elsewhere/second") || failed=1
for file in $(made "$build/here"); do
  cmp "$build/here/$file" "$build/elsewhere/second/$file" || failed=1
done
[ "$failed" -eq 0 ] || exit 1
echo "$(made "$build/here" | wc -l) files are the same"

lintian --allow-root --fail-on error,warning "$build/here"/*.changes || { echo "lintian complains" && failed=1; }
"$SOURCE_TREE/tests/build/package_contents.sh" "$build/here" "$(dpkg --print-architecture)" || exit
exit "$failed"
