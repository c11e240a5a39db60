#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The recipes of other build systems: they parse, build with the options that the README names, name the licence, and
# their packages hold the files of an installation. The test that the Yocto recipe packs works.
# shellcheck disable=SC2016 # in single quotes there are variables of the recipes
# shellcheck source=common.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/common.sh"
# OpenWrt and Buildroot allow no blank in a path, but the path of the tree may have one: their packages are copied.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
installed=$work/installed
tools=$work/tools
tree=$work/source
makefile=$tree/packaging/openwrt/kelo-utils/Makefile
recipe=$(echo "$SOURCE_TREE"/packaging/yocto/kelo-utils_*.bb)
version=$(sed -n 's/^project(kelo_utils VERSION \([0-9.]*\).*/\1/p' "$SOURCE_TREE/CMakeLists.txt")
soversion=$(sed -n 's/.*SOVERSION \([0-9]*\).*/\1/p' "$SOURCE_TREE/cmake/library.cmake")

fail() {
  echo "$*"
  failed=1
}

# files FOLDER: everything below it that is not a folder, under its path on the device.
files() { (cd "$1" && find . ! -type d | sed 's/^\.//' | sort); }

# options: what the text on standard input tells a build of this library, one a line.
options() { grep -oE -e '-D(KELO_[A-Z_]+|CMAKE_BUILD_TYPE)=[A-Za-z]+' | sort -u; }

# --- The OpenWrt package, with stand-ins for the files it includes ------------------------------------------

stand_in_for_openwrt() {
  mkdir -p "$work/openwrt/include"
  cat > "$work/openwrt/rules.mk" << 'END'
INCLUDE_DIR := $(TOPDIR)/include
INSTALL_DIR := install -d -m0755
CP := cp -fpR
END
  cat > "$work/openwrt/include/package.mk" << 'END'
PKG_BUILD_DIR := $(TOPDIR)/build/$(PKG_NAME)-$(PKG_VERSION)
define BuildPackage
$(eval ABI_VERSION :=)
$(eval $(call Package/$(1)))
facts-$(1):
	@echo '$(1) $(PKG_VERSION) $(CMAKE_INSTALL) $(SECTION) $(CATEGORY) $(DEPENDS) $(KELO_UTILS_TREE)'
	@echo '$(PKG_LICENSE) $(PKG_LICENSE_FILES) $(ABI_VERSION)'
package-$(1):
	$$(call Package/$(1)/install,$(TOPDIR)/package/$(1))
END
  cat >> "$work/openwrt/include/package.mk" << 'END'
endef
prepare:
	$(call Build/Prepare)
stage:
	$(call Build/InstallDev,$(TOPDIR)/staging)
END
  echo 'CMAKE_OPTIONS =' > "$work/openwrt/include/cmake.mk"
}

openwrt() {
  make --no-print-directory -C "$(dirname "$makefile")" --warn-undefined-variables TOPDIR="$work/openwrt" \
    PKG_INSTALL_DIR="$installed" "$@"
}

check_openwrt() {
  stand_in_for_openwrt
  # What ends in an error, or names a variable that nothing sets.
  if ! openwrt -n {facts,package}-kelo-utils{,-tools} prepare stage > "$work/make.log" 2>&1 || grep -q ': warning: ' "$work/make.log"; then
    cat "$work/make.log"
    fail "make does not read $makefile without complaint"
    return
  fi
  local facts
  facts=$(openwrt facts-kelo-utils)
  [ "$facts" = "kelo-utils $version 1 libs Libraries +libsqlite3 $tree"$'\n'"MIT LICENSE $soversion" ] \
    || fail "OpenWrt: unlike what is built: $facts"
  facts=$(openwrt facts-kelo-utils-tools)
  [ "$facts" = "kelo-utils-tools $version 1 utils Utilities +kelo-utils +libstdcpp +sqlite3-cli $tree"$'\n'"MIT LICENSE " ] \
    || fail "OpenWrt: the tools are unlike what is built: $facts"
  mkdir -p "$work/tree/log" "$work/tree/tests/build" "$work/tree/build/plain" "$work/tree/.git"
  touch "$work/tree/CMakeLists.txt" "$work"/tree/{log,tests/build,build/plain,.git}/file
  openwrt -s KELO_UTILS_TREE="$work/tree" prepare stage package-kelo-utils || fail "OpenWrt: a step failed"
  diff <(printf '/%s\n' CMakeLists.txt log/file tests/build/file) <(files "$work/openwrt/build/kelo-utils-$version") \
    || fail "OpenWrt: the build misses this ('<') or gets that ('>')"
  diff <(files "$installed") <(files "$work/openwrt/staging") \
    || fail "OpenWrt: other packages miss this ('<') or find that ('>')"
  diff <(files "$installed" | grep '/libkelo_utils\.so\.') <(files "$work/openwrt/package/kelo-utils") \
    || fail "OpenWrt: the device misses this ('<') or gets that ('>')"
  # The tools are installed beside the library only when their package is chosen. A device has no manual pages, and its
  # shell completes no commands.
  openwrt -s PKG_INSTALL_DIR="$tools" package-kelo-utils-tools || fail "OpenWrt: the tools cannot be packed"
  diff <(files "$tools" | grep -vE '^/usr/share/(man|bash-completion|zsh)/') <(files "$work/openwrt/package/kelo-utils-tools") \
    || fail "OpenWrt: the tools on the device lack this ('<') or have that ('>')"
}

# --- The Buildroot package, with a stand-in for the macro that it calls -------------------------------------

buildroot() {
  make --no-print-directory --warn-undefined-variables -f "$work/buildroot.mk" BR2_EXTERNAL_KELO_UTILS_PATH="$external" "$@"
}

check_buildroot() {
  local facts symbols external=$tree/packaging/buildroot
  cat > "$work/buildroot.mk" << 'END'
define cmake-package
facts:
	@echo '$(KELO_UTILS_VERSION) $(KELO_UTILS_SITE) $(KELO_UTILS_SITE_METHOD) $(KELO_UTILS_DEPENDENCIES)'
	@echo '$(KELO_UTILS_LICENSE) $(KELO_UTILS_LICENSE_FILES) $(KELO_UTILS_INSTALL_STAGING)'
END
  printf 'endef\ninclude %s\n' "$external/external.mk" >> "$work/buildroot.mk"
  facts=$(buildroot facts 2>&1) || :
  [ "$facts" = "$version $tree local sqlite"$'\n'"MIT LICENSE YES" ] || fail "Buildroot: unlike what is built: $facts"
  # Every variable of the package is one that Buildroot reads.
  diff <(printf 'KELO_UTILS_%s\n' CONF_OPTS DEPENDENCIES INSTALL_STAGING LICENSE LICENSE_FILES \
    OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS SITE SITE_METHOD SUPPORTS_IN_SOURCE_BUILD VERSION) \
    <(sed -n 's/^\(KELO_UTILS_[A-Z_]*\) = .*/\1/p' "$external/kelo-utils/kelo-utils.mk" | sort) \
    || fail "Buildroot: variables that are missing ('<') or unknown ('>')"
  # The menu offers the package under the name that its file of rules has, and asks for what the build needs.
  [ "$(sed -n 's/^name: //p' "$external/external.desc")" = KELO_UTILS ] || fail "Buildroot: external.desc"
  [ "$(< "$external/Config.in")" = 'source "$BR2_EXTERNAL_KELO_UTILS_PATH/kelo-utils/Config.in"' ] \
    || fail "Buildroot: the menu does not lead to the package"
  symbols=$(sed -nE 's/^(config|	select) //p' "$external/kelo-utils/Config.in" | tr '\n' ' ')
  [ "$symbols" = "BR2_PACKAGE_KELO_UTILS BR2_PACKAGE_SQLITE " ] || fail "Buildroot: the menu has $symbols"
}

# --- The Yocto recipe ---------------------------------------------------------------------------------------

declare -A yocto=()
declare -A yocto_functions=()
yocto_variables=(SUMMARY SECTION LICENSE LIC_FILES_CHKSUM DEPENDS inherit EXTERNALSRC EXTRA_OECMAKE KELO_DIAG_LIBRARY
  KELO_DIAG_RECIPE PACKAGECONFIG 'PACKAGECONFIG[diag]' 'FILES:${PN}' 'FILES:${PN}-dev' 'FILES:${PN}-staticdev'
  'RDEPENDS:${PN}-dev' 'RRECOMMENDS:${PN}-ptest')

read_yocto() {
  local line function="" assignment='^([A-Za-z_:${}-]+(\[[a-z]+\])?) (\?\?=|\?=|=|\+=) "([^"]*)"$'
  while IFS= read -r line; do
    if [ -n "$function" ]; then
      [ "$line" = '}' ] && function= || yocto_functions[$function]+=$line$'\n'
      continue
    fi
    case $line in
      '' | '#'*) continue ;;
      'do_'*'() {') function=${line%'() {'} ;;
      'inherit '*) yocto[inherit]=${line#inherit } ;;
      *)
        if [[ $line =~ $assignment ]]; then
          yocto[${BASH_REMATCH[1]}]=${BASH_REMATCH[4]}
        else
          fail "Yocto: not a line of a recipe: $line"
        fi
        ;;
    esac
  done < "$recipe"
  diff <(printf '%s\n' "${yocto_variables[@]}" | sort) <(printf '%s\n' "${!yocto[@]}" | sort) \
    || fail "Yocto: variables that are missing ('<') or unknown ('>')"
}

# holds PACKAGE FILE: whether the recipe puts FILE into PACKAGE, which names files, patterns or folders.
holds() {
  local pattern patterns=${yocto[FILES:$1]:-}
  patterns=${patterns//'${libdir}'//usr/lib}
  patterns=${patterns//'${includedir}'//usr/include}
  set -f
  for pattern in $patterns; do
    # shellcheck disable=SC2053 # it is a pattern
    if [[ $2 == $pattern || $2 == $pattern/* ]]; then
      set +f
      return 0
    fi
  done
  set +f
  return 1
}

# Runs the two functions that make the test for the device, with the built library, and then that test.
check_ptest() {
  local results
  diff <(printf '%s\n' do_compile_ptest do_install_ptest) <(printf '%s\n' "${!yocto_functions[@]}" | sort) \
    || fail "Yocto: functions that are missing ('<') or unknown ('>')"
  mkdir -p "$work/ptest"
  (cd "$work/ptest" && S=$SOURCE_TREE B=$BINARY_TREE D=$work/ptest PTEST_PATH=/installed CFLAGS='-Wall -Werror' LDFLAGS="" \
    sh -euc "${yocto_functions[do_compile_ptest]}${yocto_functions[do_install_ptest]}") || fail "Yocto: no test was made"
  # As the root of its sandbox it may mount, where the machine allows it.
  results=$(LD_LIBRARY_PATH=$BINARY_TREE "$SOURCE_TREE/tests/sandbox.sh" --interfaces "$work/ptest" "$BINARY_TREE" -- \
    "$work/ptest/installed/run-ptest") || { [ $? -eq 77 ] && return; } || fail "Yocto: the test failed"
  [[ $results == 'PASS: own_hooks'$'\n'@(PASS|SKIP)': storage' ]] || fail "Yocto: the test printed: $results"
}

check_yocto() {
  local file package packages expected
  read_yocto
  [ "$(basename "$recipe")" = "kelo-utils_$version.bb" ] || fail "Yocto: $recipe is not called after version $version"
  [ "${yocto[inherit]:-}" = "cmake pkgconfig externalsrc ptest" ] || fail "Yocto: inherits ${yocto[inherit]:-nothing}"
  [ "${yocto[DEPENDS]:-}" = sqlite3 ] || fail "Yocto: depends on ${yocto[DEPENDS]:-nothing}"
  [ "${yocto[LICENSE]:-}" = MIT ] || fail "Yocto: the licence is ${yocto[LICENSE]:-not named}"
  [ "${yocto[LIC_FILES_CHKSUM]:-}" = "file://LICENSE;md5=$(md5sum < "$SOURCE_TREE/LICENSE" | cut -d ' ' -f 1)" ] \
    || fail "Yocto: LICENSE has another sum than the recipe says"
  check_ptest
  while IFS= read -r file; do
    packages=
    for package in '${PN}' '${PN}-dev' '${PN}-staticdev'; do
      if holds "$package" "$file"; then packages+=" $package"; fi
    done
    case $file in
      */libkelo_utils.so.*) expected=' ${PN}' ;;
      *.a) expected=' ${PN}-staticdev' ;;
      *) expected=' ${PN}-dev' ;;
    esac
    [ "$packages" = "$expected" ] || fail "Yocto: $file is in:$packages"
  done < <(files "$installed")
}

# --- What all of them build ----------------------------------------------------------------------------------

# same_options NAME TEXT: TEXT gives the options of the README's command for a device.
same_options() {
  diff <(sed -n '/cmake -S .*--toolchain/,/[^\\]$/p' "$SOURCE_TREE/README.md" | options) <(options <<< "$2") \
    || fail "$1: lacks options of the README ('<') or has others ('>')"
}

check_options() {
  local option
  same_options OpenWrt "$(< "$makefile")"
  same_options Buildroot "$(< "$tree/packaging/buildroot/kelo-utils/kelo-utils.mk")"
  same_options Yocto "${yocto[EXTRA_OECMAKE]:-}"
  grep -rohE -e '-DKELO_[A-Z_]+' "$SOURCE_TREE/packaging" | sed 's/^-D//' | sort -u > "$work/named"
  grep -q KELO_BUILD_TESTS "$work/named" || fail "the recipes build the tests"
  while IFS= read -r option; do
    grep -qE "^(set|option)\($option " "$SOURCE_TREE/CMakeLists.txt" "$SOURCE_TREE/cmake/cross.cmake" \
      || fail "there is no option $option"
  done < "$work/named"
}

if ! command -v make > /dev/null; then
  echo "[  SKIPPED ] this machine has no make"
  exit 77
fi
mkdir -p "$tree"
cp -r "$SOURCE_TREE/packaging" "$tree"
"$CMAKE" --install "$BINARY_TREE" --prefix "$installed/usr" > /dev/null
"$CMAKE" --install "$BINARY_TREE" --prefix "$tools/usr" --component tools > /dev/null
check_openwrt
check_buildroot
check_yocto
check_options
[ "$failed" -ne 0 ] || echo "the recipes hold the $(files "$installed" | wc -l) files of an installation"
exit "$failed"
