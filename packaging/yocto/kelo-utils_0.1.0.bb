SUMMARY = "Shared utility library of the router's application daemons"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=8b09e049e2b6e3619a412ab582215f98"

DEPENDS = "sqlite3"

# The package is built from the tree that this recipe is in. When the recipe was copied out of the tree, local.conf says
# where the tree is: EXTERNALSRC:pn-kelo-utils = "/path/to/kelo_utils".
inherit cmake pkgconfig externalsrc
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
# find_package(kelo_utils) describes the archives too, and refuses a tree without them.
RDEPENDS:${PN}-dev += "${PN}-staticdev (= ${EXTENDPKGV})"
