#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What the packages of Debian repeat of the tree: the exported names with their version node, the number of the soname, the
# version with its date, and the licence. Usage: debian.sh TREE
set -euo pipefail
cd -- "$1"
failed=0

wrong() {
  echo "debian/$*"
  failed=1
}

version=$(sed -n 's/^project(kelo_utils VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
soversion=$(sed -n 's/.*SOVERSION \([0-9]*\).*/\1/p' cmake/library.cmake)
node=$(sed -n 's/.*"\(KELO_UTILS_[0-9.]*\) {.*/\1/p' cmake/linker_lists.cmake)
symbols=debian/libkelo-utils$soversion.symbols

[ -e "$symbols" ] || wrong "has no symbols file of libkelo-utils$soversion"
grep -qx "Package: libkelo-utils$soversion" debian/control || wrong "control has no package libkelo-utils$soversion"
[ "$(head -n 1 "$symbols")" = "libkelo_utils.so.$soversion libkelo-utils$soversion #MINVER#" ] \
  || wrong "libkelo-utils$soversion.symbols begins with another library"
diff <(awk -v node="$node" -f packaging/debian/exported.awk abi/exports.txt | LC_ALL=C sort) \
  <(sed -n 's/^ \([^ ]*\) [0-9.]*$/\1/p' "$symbols" | LC_ALL=C sort) \
  || wrong "libkelo-utils$soversion.symbols lacks exports ('<') or has others ('>')"
while read -r since; do
  [ "$(printf '%s\n' "$since" "$version" | sort -V | head -n 1)" = "$since" ] \
    || wrong "libkelo-utils$soversion.symbols has a name since $since, which is after $version"
done < <(sed -n 's/^ [^ ]* \([0-9.]*\)$/\1/p' "$symbols" | sort -u)

# The newest entry of the changelog has the version and the day of the newest release, and packages have that time.
day=$(sed -n "s/^## $version - \([0-9-]*\)\$/\1/p" CHANGELOG.md)
[[ $(head -n 1 debian/changelog) == "libkelo-utils ($version) "* ]] || wrong "changelog does not begin with $version"
dated=$(sed -n 's/^ -- .*  //p' debian/changelog | head -n 1)
[ "$dated" = "$(LC_ALL=C date -u -d "${day:?CHANGELOG.md has no day for $version}" '+%a, %d %b %Y 00:00:00 +0000')" ] \
  || wrong "changelog has the date $dated, and CHANGELOG.md $day"

maintainer=$(sed -n 's/^Maintainer: //p' debian/control)
grep -qF " -- $maintainer  " debian/changelog || wrong "changelog is not by $maintainer"
grep -qxF "Upstream-Contact: $maintainer" debian/copyright || wrong "copyright names another contact than $maintainer"

# The text of the licence, and who has the rights.
diff <(sed '1,4d' LICENSE) <(sed '1,/^$/d' debian/copyright | sed '1,/^$/d; /^License: MIT$/d; s/^ //; s/^\.$//') \
  || wrong "copyright has another licence than LICENSE"
holders=$(sed -n 's/^Copyright (c) //p' LICENSE)
grep -qxF "Copyright: $holders" debian/copyright || wrong "copyright names other holders than $holders"

[ "$failed" -ne 0 ] || echo "debian/ repeats $(grep -c "@$node" "$symbols") names, version $version of $day and the licence"
exit "$failed"
