#!/bin/sh
# SPDX-License-Identifier: MIT
# Makes the Debian packages of a build and puts them into a folder. Usage: make.sh BUILD FOLDER
# All files in them have the time of the last commit, so that equal sources make equal packages; in a tree without its
# history they have the day of the newest version in CHANGELOG.md. A SOURCE_DATE_EPOCH of the caller is used instead.
set -eu
umask 022 # the modes of the files that CPack makes get into the packages
build=$1 folder=$2 sources=$(dirname -- "$0")/../..
if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
  if [ -e "$sources/.git" ]; then
    SOURCE_DATE_EPOCH=$(git -C "$sources" log -1 --format=%ct)
  else
    day=$(sed -n 's/^## .* - \([0-9-]*\)$/\1/p' "$sources/CHANGELOG.md" | head -n 1)
    SOURCE_DATE_EPOCH=$(date -u -d "${day:?no version with a date in CHANGELOG.md}" +%s)
  fi
fi
export SOURCE_DATE_EPOCH

rm -rf "$build/packages"
cpack --config "$build/CPackConfig.cmake" -B "$build/packages" > "$build/cpack.log" 2>&1 || {
  cat "$build/cpack.log" >&2
  exit 1
}

# CPack has no options for this: packages of two architectures can be installed together; the trigger calls ldconfig, so
# no script is needed; the debug information is in an ordinary package, whose checksums do not name the build's folder.
mkdir -p "$folder"
for package in "$build/packages"/*.*deb; do
  name=$(basename "$package")
  tree=$build/packages/mended/${name%.*}
  mkdir -p "$build/packages/mended"
  dpkg-deb --raw-extract "$package" "$tree"
  rm -f "$tree/DEBIAN/postinst" "$tree/DEBIAN/postrm"
  same=same
  ! grep -qx 'Architecture: all' "$tree/DEBIAN/control" || same=foreign
  sed -i -e '/^Package-Type:/d' -e "/^Maintainer:/a Multi-Arch: $same" "$tree/DEBIAN/control"
  sed -i 's|  /.*/usr/lib/debug/|  usr/lib/debug/|' "$tree/DEBIAN/md5sums"
  find "$tree" -name '*.debug' -exec chmod 644 {} +
  # A file that is compressed in several threads differs from one that is compressed in a single thread.
  DPKG_DEB_THREADS_MAX=1 dpkg-deb --root-owner-group -Zxz --build "$tree" "$folder/${name%.*}.deb" > /dev/null
done
