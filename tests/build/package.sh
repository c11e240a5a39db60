#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Packages of the same sources are the same to the byte, wherever and under whatever umask they were made, and bear the
# time of the last commit, or in a tree without its history the day of the newest version.
# What is in them is for package_contents.sh to say.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
for tool in dpkg-shlibdeps dpkg-architecture dpkg-deb cpack file doxygen; do
  command -v "$tool" > /dev/null || { echo "[  SKIPPED ] this machine makes no packages: no $tool" && exit 77; }
done
build=$WORK/package
rm -rf "$build"
mkdir -p "$build/elsewhere/sources" "$build/here"
tar -C "$SOURCE_TREE" --exclude './build*' --exclude ./.git -c . | tar -C "$build/elsewhere/sources" -x

# make_packages SOURCES FOLDER: those of SOURCES, in FOLDER/packages.
make_packages() {
  {
    "$CMAKE" --preset package -S "$1" -B "$2/binary" -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
      && "$CMAKE" --build "$2/binary" && "$1/cmake/packages/make.sh" "$2/binary" "$2/packages"
  } > "$build/log" 2>&1 || { cat "$build/log" && exit 1; }
}

if [ -e "$SOURCE_TREE/.git" ]; then
  commit_time=$(git -C "$SOURCE_TREE" log -1 --format=%ct)
else
  commit_time=$(date -u -d "$(grep -m 1 -oE ' [0-9]{4}-[0-9]{2}-[0-9]{2}$' "$SOURCE_TREE/CHANGELOG.md")" +%s)
fi
unset SOURCE_DATE_EPOCH
make_packages "$SOURCE_TREE" "$build/here"
(umask 077 && SOURCE_DATE_EPOCH=$commit_time make_packages "$build/elsewhere/sources" "$build/elsewhere/second") || exit

diff <(ls "$build/here/packages") <(ls "$build/elsewhere/second/packages") || failed=1
for package in "$build/here/packages"/*; do
  cmp "$package" "$build/elsewhere/second/packages/$(basename "$package")" || failed=1
done
[ "$failed" -eq 0 ] || exit 1
exec "$SOURCE_TREE/tests/build/package_contents.sh" "$build/here/packages" "$(dpkg --print-architecture)"
