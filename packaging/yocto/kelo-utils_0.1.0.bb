# SPDX-License-Identifier: MIT
SUMMARY = "Shared utility library of the router's application daemons"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=8b09e049e2b6e3619a412ab582215f98"

DEPENDS = "sqlite3"

# The package is built from the tree that this recipe is in. When the recipe was copied out of the tree, local.conf says
# where the tree is: EXTERNALSRC:pn-kelo-utils = "/path/to/kelo_utils".
inherit cmake pkgconfig externalsrc ptest
EXTERNALSRC = "${@os.path.realpath('${FILE_DIRNAME}/../..')}"

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=MinSizeRel -DKELO_BUILD_TESTS=OFF -DKELO_BUILD_TOOLS=OFF"

# `diag` sends records to the platform's diagnostic channel: KELO_DIAG_LIBRARY names the library for the linker,
# KELO_DIAG_RECIPE the recipe that provides it.
KELO_DIAG_LIBRARY ?= ""
KELO_DIAG_RECIPE ?= ""
PACKAGECONFIG ??= ""
PACKAGECONFIG[diag] = "-DKELO_DIAG_LIBRARY=${KELO_DIAG_LIBRARY},-DKELO_DIAG_LIBRARY=,${KELO_DIAG_RECIPE}"

FILES:${PN} = "${libdir}/libkelo_utils.so.*"
FILES:${PN}-dev = "${includedir} ${libdir}/libkelo_utils.so ${libdir}/cmake ${libdir}/pkgconfig"
FILES:${PN}-staticdev = "${libdir}/*.a"
# The back-end for the hooks, kelo::utils_sqlite, is an archive, and most daemons link it.
RDEPENDS:${PN}-dev += "${PN}-staticdev (= ${EXTENDPKGV})"

# The test of the package on the device: two programs, one with hooks of its own and one with the SQLite back-end.
do_compile_ptest() {
    build="${CC} ${CFLAGS} ${LDFLAGS}"
    sources="${S}/tests/build/daemon"
    $build -I"${S}/include" -o own_hooks "$sources/own_hooks.c" -L"${B}" -lkelo_utils
    $build -I"${S}/include" -o daemon "$sources/daemon.c" -L"${B}" -Wl,--whole-archive -lkelo_utils_sqlite \
        -Wl,--no-whole-archive -lkelo_utils
}
do_install_ptest() {
    install -d "${D}${PTEST_PATH}"
    install -m 0755 own_hooks daemon "${D}${PTEST_PATH}"
    install -m 0755 "${S}/packaging/yocto/ptest.sh" "${D}${PTEST_PATH}/run-ptest"
}
RRECOMMENDS:${PN}-ptest += "util-linux-unshare"
