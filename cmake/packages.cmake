# SPDX-License-Identifier: MIT
# Debian packages of the installed components: libkelo-utils0 with the shared library, libkelo-utils-dev, and
# libkelo-utils0-dbgsym with the debug information taken out of the library; with KELO_BUILD_DOCS, libkelo-utils-doc
# with the manual, which is the same for every machine. cmake/packages/make.sh makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development)
if(KELO_BUILD_DOCS)
  list(APPEND CPACK_COMPONENTS_ALL documentation)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "Maintainers of libkelo_utils <maintainers@libkelo-utils.invalid>"
    CACHE STRING "Name and address of who maintains the packages")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own first line

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE libkelo-utils)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkelo-utils0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "shared utility library of the router's daemons
Settings by id over SQLite, parameter tables, logging, timers, supervised
commands, network and text helpers, containers and INI files, for the daemons
of a fixed-wireless router.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/packages/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkelo-utils-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "shared utility library of the router's daemons (development files)
Headers, archives, pkg-config modules and the CMake package, to build daemons
that link libkelo-utils0.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkelo-utils0 (= ${PROJECT_VERSION}), libsqlite3-dev")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME libkelo-utils-doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_DESCRIPTION "shared utility library of the router's daemons (manual)
Every function, record and file format as HTML, and manual pages of section 3.")

# The tools of the toolchain: those of the building machine cannot read a foreign library.
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
set(CPACK_KELO_STRIP ${CMAKE_STRIP})

set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/packages/strip_archives.cmake
                            ${CMAKE_CURRENT_LIST_DIR}/packages/compress_pages.cmake)
include(CPack)
