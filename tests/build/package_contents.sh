#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The Debian packages of one architecture hold what they should, say what they need, and a daemon that is built
# against them in an otherwise empty root runs there. Usage: package_contents.sh FOLDER ARCHITECTURE [PACKAGE...]
# Each PACKAGE, a file, is unpacked beside them: what an architecture that is not this machine's lacks here.
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
folder=$1 architecture=$2
shift 2
version=$(sed -n 's/^project(kelo_utils VERSION \([0-9.]*\).*/\1/p' "$SOURCE_TREE/CMakeLists.txt")
triplet=$(dpkg-architecture -a "$architecture" -qDEB_HOST_MULTIARCH 2> /dev/null)
library=usr/lib/$triplet
root=$WORK/root-$architecture
rm -rf "$root"
mkdir -p "$root"

wrong() {
  echo "$architecture: $*"
  failed=1
}
package() {
  case $1 in
    *-doc | python3-*) echo "$folder/${1}_${version}_all.deb" ;;
    *) echo "$folder/${1}_${version}_$architecture.deb" ;;
  esac
}

# expect_files PACKAGE: the lines of standard input are its files, each with its mode.
expect_files() {
  diff <(sort) <(dpkg-deb -c "$(package "$1")" | awk '!/^d/ { print $1, $2, substr($0, index($0, "./") + 2) }' | sort) \
    || wrong "$1: '<' is listed and not there, '>' is there and not listed"
  if dpkg-deb -c "$(package "$1")" | grep '^d' | grep -v '^drwxr-xr-x root/root '; then wrong "$1: modes of folders"; fi
}

# expect_control PACKAGE NAME...: what is beside its files.
expect_control() {
  local name=$1
  shift
  rm -rf "$WORK/control"
  dpkg-deb -e "$(package "$name")" "$WORK/control"
  diff <(printf '%s\n' "$@") <(ls "$WORK/control") || wrong "$name: control files"
  (cd "$root" && md5sum --quiet --strict -c "$WORK/control/md5sums") || wrong "$name: sums"
}

# expect_field PACKAGE FIELD PATTERN: the whole value is the extended regular expression.
expect_field() {
  local value
  value=$(dpkg-deb -f "$(package "$1")" "$2")
  [[ $value =~ ^$3$ ]] || wrong "$1: $2 is '$value', not '$3'"
}

for name in libkelo-utils0{,-dbgsym} libkelo-utils-{dev,doc} kelo-utils-tools{,-dbgsym} python3-kelo-utils; do
  [ -f "$(package "$name")" ] || { echo "no $(package "$name")" && exit 1; }
  dpkg-deb -x "$(package "$name")" "$root"
  expect_field "$name" Package "$name"
  expect_field "$name" Version "${version//./\\.}"
  case $name in
    *-doc) expect_field "$name" Architecture all && expect_field "$name" Multi-Arch foreign ;;
    python3-*) expect_field "$name" Architecture all ;;
    lib*) expect_field "$name" Architecture "$architecture" && expect_field "$name" Multi-Arch same ;;
    *-dbgsym) expect_field "$name" Architecture "$architecture" && expect_field "$name" Multi-Arch no ;;
    *) expect_field "$name" Architecture "$architecture" && expect_field "$name" Multi-Arch foreign ;;
  esac
  expect_field "$name" Source libkelo-utils
  expect_field "$name" Maintainer '.+ <.+@.+>'
done
shared=$root/$library/libkelo_utils.so.$version
build_id_of() { "$READELF" -n "$1" | sed -n 's/.*Build ID: //p'; }
build_id=$(build_id_of "$shared")
debug_of() { sed 's|^..|usr/lib/debug/.build-id/&/|; s|$|.debug|' <<< "$1"; }
debug=$(debug_of "$build_id")
programs=(keloctl kelo_scripted_modem)

# --- Files --------------------------------------------------------------------------------------------------

own="root/root $library"
doc="-rw-r--r-- root/root usr/share/doc"
expect_files libkelo-utils0 << END
lrwxrwxrwx $own/libkelo_utils.so.0 -> libkelo_utils.so.$version
-rw-r--r-- $own/libkelo_utils.so.$version
$(printf '%s\n' "$doc/libkelo-utils0/"{changelog.gz,copyright})
END
expect_files libkelo-utils0-dbgsym << END
-rw-r--r-- root/root $debug
lrwxrwxrwx root/root usr/share/doc/libkelo-utils0-dbgsym -> libkelo-utils0
END
# Each program has a manual page.
expect_files kelo-utils-tools << END
$(printf -- '-rwxr-xr-x root/root usr/bin/%s\n' "${programs[@]}" kelo_provision)
$(printf -- '-rw-r--r-- root/root usr/share/man/man1/%s.1.gz\n' "${programs[@]}" kelo_provision)
$(printf -- '-rw-r--r-- root/root usr/share/kelo-utils/%s\n' factory.sql messages)
-rw-r--r-- root/root usr/share/bash-completion/completions/keloctl
-rw-r--r-- root/root usr/share/zsh/vendor-completions/_keloctl
$(printf '%s\n' "$doc/kelo-utils-tools/"{changelog.gz,copyright})
END
expect_files kelo-utils-tools-dbgsym << END
$(for program in "${programs[@]}"; do echo "-rw-r--r-- root/root $(debug_of "$(build_id_of "$root/usr/bin/$program")")"; done)
lrwxrwxrwx root/root usr/share/doc/kelo-utils-tools-dbgsym -> kelo-utils-tools
END
expect_files libkelo-utils-dev << END
$(cd "$SOURCE_TREE/include" && printf -- '-rw-r--r-- root/root usr/include/%s\n' kelo_utils/{*.h,*.hpp,kelo/*.hpp})
lrwxrwxrwx $own/libkelo_utils.so -> libkelo_utils.so.0
-rw-r--r-- $own/libkelo_utils.a
-rw-r--r-- $own/libkelo_utils_sqlite.a
$(printf -- "-rw-r--r-- $own/pkgconfig/%s.pc\n" kelo_utils{,-static,_sqlite,_sqlite-static})
-rw-r--r-- $own/cmake/kelo_utils/kelo_utils-config.cmake
-rw-r--r-- $own/cmake/kelo_utils/kelo_utils-config-version.cmake
$(printf -- "-rw-r--r-- $own/cmake/kelo_utils/%s.cmake\n" kelo_utils{,_static,_sqlite}-targets{,-minsizerel})
$(printf '%s\n' "$doc/libkelo-utils-dev/"{changelog.gz,copyright})
END
# The sources of the module, and the one that is made.
expect_files python3-kelo-utils << END
$(cd "$SOURCE_TREE/python" && printf -- '-rw-r--r-- root/root usr/lib/python3/dist-packages/%s\n' kelo_utils/*.py)
-rw-r--r-- root/root usr/lib/python3/dist-packages/kelo_utils/_abi.py
$(printf '%s\n' "$doc/python3-kelo-utils/"{changelog.gz,copyright})
END
# Of the manual the start page, a page for each header and a manual page for each exported name are listed.
manual=$(cd "$root" && find usr/share/doc/libkelo-utils-doc usr/share/man/man3 ! -type d | sort)
html=usr/share/doc/libkelo-utils-doc/html
pages=usr/share/man/man3
wanted=$(
  printf '%s\n' "$html/index.html" usr/share/doc/libkelo-utils-doc/copyright
  (cd "$SOURCE_TREE/include/kelo_utils" && basename -a -- *.h *.hpp kelo/*.hpp) | sed "s|.*|$pages/&.3.gz|"
  (cd "$SOURCE_TREE/include/kelo_utils" && basename -a -- *.h *.hpp kelo/*.hpp) \
    | sed "s|_|__|g; s|\(.*\)\.\(h.*\)|$html/\1_8\2.html|"
  grep '^[A-Za-z_]' "$SOURCE_TREE/abi/exports.txt" | sed "s|.*|$pages/&.3.gz|; s|/strsep\.3|&kelo|"
)
missing=$(sort <<< "$wanted" | comm -23 - <(echo "$manual"))
[ -z "$missing" ] || wrong "libkelo-utils-doc lacks" "$missing"
doc_files="usr/share/doc/libkelo-utils-doc/(html/.*|examples/[a-zA-Z_]+(\.[a-z]+)?|changelog\.gz|copyright|releases/CHANGELOG\.md(\.gz)?)"
strange=$(dpkg-deb -c "$(package libkelo-utils-doc)" | awk '!/^d/ { print $1, $2, substr($0, index($0, "./") + 2) }' \
  | grep -vE "^(-rw-r--r-- root/root ($doc_files|$pages/[A-Za-z0-9_.]+\.3(kelo)?\.gz)|lrwxrwxrwx root/root $pages/[^/]+ -> [^/]+)\$" || :)
[ -z "$strange" ] || wrong "libkelo-utils-doc has" "$strange"
broken=$(find "$root/$pages" -xtype l)
[ -z "$broken" ] || wrong "manual pages that lead nowhere:" "$broken"
find "$root/usr/share/man" -type f -exec gzip -t {} + || wrong "manual pages that are not compressed"
diff -r "$SOURCE_TREE/examples" "$root/usr/share/doc/libkelo-utils-doc/examples" || wrong "libkelo-utils-doc: other examples"
if grep -rlF -e "$SOURCE_TREE" -e "$BINARY_TREE" "$root"; then wrong "names the folders it was built in"; fi

expect_control libkelo-utils0 control md5sums shlibs symbols triggers
expect_control libkelo-utils0-dbgsym control md5sums
expect_control libkelo-utils-dev control md5sums
expect_control libkelo-utils-doc control md5sums
expect_control kelo-utils-tools control md5sums
expect_control python3-kelo-utils control md5sums
expect_control kelo-utils-tools-dbgsym control md5sums

# --- Fields -------------------------------------------------------------------------------------------------

expect_field libkelo-utils0-dbgsym Depends "libkelo-utils0 \(= $version\)"
expect_field libkelo-utils0-dbgsym Build-Ids "$build_id"
expect_field libkelo-utils-dev Depends "libkelo-utils0 \(= $version\), libsqlite3-dev"
expect_field libkelo-utils0 Depends 'libc6 \(>= 2\.[0-9]+\), libsqlite3-0 \(>= 3\.[0-9.]+\)'
wanted=$("$READELF" -V "$shared" | grep -o 'GLIBC_2\.[0-9]*' | sort -Vu | tail -n 1)
declared=$(dpkg-deb -f "$(package libkelo-utils0)" Depends | sed -n 's/.*libc6 (>= \([0-9.]*\)).*/\1/p')
dpkg --compare-versions "$declared" ge "${wanted#GLIBC_}" || wrong "libc6 $declared lacks $wanted"
[ "$(dpkg-deb -I "$(package libkelo-utils0)" shlibs)" = "libkelo_utils 0 libkelo-utils0 (>= $version)" ] || wrong shlibs
expect_field kelo-utils-tools Depends "sqlite3, libc6 \(>= 2\.[0-9]+\), libgcc-s1 \(>= [0-9.]+\), libkelo-utils0 \(>= $version\), libsqlite3-0 \(>= [0-9.]+\), libstdc\+\+6 \(>= [0-9.]+\)"
expect_field python3-kelo-utils Depends "libkelo-utils0 \(>= $version\), python3 \(>= 3\.9\)"
[[ $(dpkg-deb -I "$(package libkelo-utils0)" triggers) =~ (^|$'\n')"activate-noawait ldconfig"$ ]] || wrong triggers

# --- Debug information --------------------------------------------------------------------------------------

sections() { "$READELF" -SW "$1" | grep -oE '\.(symtab|debug_info|gnu_debuglink)\b' | sort -u | tr '\n' ' '; }
[ "$(sections "$shared")" = ".gnu_debuglink " ] || wrong "the library holds $(sections "$shared")"
for archive in libkelo_utils.a libkelo_utils_sqlite.a; do
  [ "$(sections "$root/$library/$archive")" = ".symtab " ] || wrong "$archive holds $(sections "$root/$library/$archive")"
done
[ "$(sections "$root/$debug")" = ".debug_info .symtab " ] || wrong "$debug holds $(sections "$root/$debug")"
"$READELF" -n "$root/$debug" | grep -qF "Build ID: $build_id" || wrong "$debug: build id"
if [ $# -eq 0 ] && command -v gdb > /dev/null; then
  line=$(gdb -nx -batch -iex "set debug-file-directory $root/usr/lib/debug" -ex 'info line kelo_dm_reg' "$shared" 2>&1)
  [[ $line == 'Line '*' of "./'*'pp" starts at '*'<kelo_dm_reg('* ]] || wrong "gdb finds no source line: $line"
fi

# --- Use ----------------------------------------------------------------------------------------------------

for dependency in "$@"; do
  dpkg-deb -x "$dependency" "$root"
done
# The flags of pkg-config are words.
if [[ $root == *[[:space:]]* ]]; then
  [ "$failed" -eq 0 ] || exit 1
  echo "[  SKIPPED ] nothing is compiled with packages that are unpacked in a folder with a blank in its path"
  exit 77
fi
export PKG_CONFIG_SYSROOT_DIR=$root
if [ $# -gt 0 ]; then
  export PKG_CONFIG_LIBDIR=$root/$library/pkgconfig
  EMULATOR="${EMULATOR:?} -L $root"
fi
export PKG_CONFIG_PATH=$root/$library/pkgconfig LD_LIBRARY_PATH=$root/$library
export LDFLAGS="-Wl,-rpath-link,$root/$library" CMAKE_PREFIX_PATH=$root/usr AUTOPKGTEST_TMP="$WORK/packaged-$architecture"
rm -rf "$AUTOPKGTEST_TMP"
"$SOURCE_TREE/debian/tests/daemon" "$SOURCE_TREE/tests/sandbox.sh" "$SOURCE_TREE" "$BINARY_TREE" -- || {
  [ $? -ne 77 ] || exit 77
  wrong "the test that the packages bring fails"
}
expect_needed yes libkelo_utils "$AUTOPKGTEST_TMP/shared"
expect_needed no libkelo_utils "$AUTOPKGTEST_TMP/static"
expect_needed yes libkelo_utils "$AUTOPKGTEST_TMP/cmake/by_cmake"

export EXAMPLES=$root/usr/share/doc/libkelo-utils-doc/examples MODEM=$root/usr/bin/kelo_scripted_modem
export PYTHON_MODULES=$root/usr/lib/python3/dist-packages
"$SOURCE_TREE/debian/tests/examples" "$SOURCE_TREE/tests/sandbox.sh" "$SOURCE_TREE" "$BINARY_TREE" -- \
  || wrong "the examples do not do what they say"

# The pages for beginners work with what is in the packages. Their commands are those of this machine.
if [ $# -eq 0 ]; then
  "$SOURCE_TREE/tests/sandbox.sh" "$SOURCE_TREE" "$BINARY_TREE" "$root" -- "$SOURCE_TREE/tests/build/follow.sh" "$root/usr" \
    "$SOURCE_TREE/docs/first_daemon.md" "$SOURCE_TREE/docs/debugging.md" || wrong "the pages for beginners do not work"
fi

# Each program starts: without arguments it says what it wants.
for program in "${programs[@]}"; do
  read -ra emulator <<< "${EMULATOR:-}"
  said=$("${emulator[@]}" "$root/usr/bin/$program" 2>&1) || :
  [[ $said == *"$program"* ]] || wrong "$program prints '$said'"
done
read -ra emulator <<< "${EMULATOR:-}"
"${emulator[@]}" "$root/usr/bin/keloctl" log explain 'cnt error 3' > /dev/null || wrong "keloctl finds no table of messages"
# Python is a program of this machine, and loads only a library of this machine.
if [ $# -eq 0 ]; then
  said=$(PYTHONPATH=$root/usr/lib/python3/dist-packages python3 -B -c \
    'import kelo_utils; print(kelo_utils.__version__, kelo_utils.hex_encode(b"a"))' 2>&1) || :
  [ "$said" = "$version 61" ] || wrong "the Python module prints '$said'"
fi
"$root/usr/bin/kelo_provision" --user "$AUTOPKGTEST_TMP/provisioned" || wrong "kelo_provision fails"
[ -s "$AUTOPKGTEST_TMP/provisioned/user_info.db" ] || wrong "kelo_provision makes no user_info.db"
exit "$failed"
