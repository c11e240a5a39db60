#!/bin/sh
# SPDX-License-Identifier: MIT
# Makes the Debian packages of a tree in a copy of it. Usage: make.sh TREE FOLDER [ARGUMENT OF DPKG-BUILDPACKAGE...]
# FOLDER, which is made anew, has the packages afterwards. The copy is in it, too.
set -eu
tree=$1 folder=$2
shift 2
version=$(sed -n '1s/.*(\(.*\)).*/\1/p' "$tree/debian/changelog")
copy=$folder/libkelo-utils-$version
rm -rf "$folder"
mkdir -p "$copy"
tar -C "$tree" --exclude './build*' --exclude ./.git -c . | tar -C "$copy" -x
cd "$copy"
# The source package would keep the modes of the tree.
chmod -R u+rwX,go+rX,go-w .
# Files that are older than the newest entry of the changelog would keep their own time in the packages. A time that is
# still to come would confuse the build.
time=${SOURCE_DATE_EPOCH:-$(dpkg-parsechangelog -S Timestamp)}
[ "$time" -gt "$(date +%s)" ] || find . -exec touch -h -d "@$time" {} +
# Whoever calls this has looked for what the build needs (-d). Packages that are compressed in several threads differ
# from those of a single thread.
DPKG_DEB_THREADS_MAX=1 DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS-nocheck}" \
  dpkg-buildpackage -us -uc -d "$@" > ../build.log 2>&1 < /dev/null || {
  cat ../build.log >&2
  exit 1
}
