# SPDX-License-Identifier: MIT
# `cmake --install` installs the libraries, the headers, the CMake package and the pkg-config modules. The component
# runtime has what a program needs to run, the component development has what its build needs besides.
include(CMakePackageConfigHelpers)

# Each library has a file of targets of its own: a tree may hold the shared library without the archives.
install(TARGETS kelo_utils EXPORT kelo_utils-targets LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS kelo_utils_static EXPORT kelo_utils_static-targets ARCHIVE COMPONENT development)
install(TARGETS kelo_utils_sqlite EXPORT kelo_utils_sqlite-targets ARCHIVE COMPONENT development)
install(DIRECTORY include/kelo_utils TYPE INCLUDE COMPONENT development FILES_MATCHING PATTERN *.h PATTERN *.hpp)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kelo_utils)
foreach(library kelo_utils kelo_utils_static kelo_utils_sqlite)
  install(EXPORT ${library}-targets NAMESPACE kelo:: DESTINATION ${package_folder} COMPONENT development)
endforeach()
configure_package_config_file(cmake/kelo_utils-config.cmake.in kelo_utils-config.cmake
  INSTALL_DESTINATION ${package_folder} PATH_VARS CMAKE_INSTALL_LIBDIR)
# Before version 1.0 a new minor version may change the interface.
write_basic_package_version_file(kelo_utils-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kelo_utils-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/kelo_utils-config-version.cmake
        DESTINATION ${package_folder} COMPONENT development)

set(KELO_ADDITIONS_FLAG "")
if(NOT KELO_ADDITIONS)
  set(KELO_ADDITIONS_FLAG -DKELO_NO_ADDITIONS)
endif()
set(KELO_DIAG_LINK_FLAG "")
if(KELO_DIAG_LIBRARY MATCHES "[/.]")
  string(REPLACE " " "\\ " KELO_DIAG_LINK_FLAG "${KELO_DIAG_LIBRARY}") # as pkg-config and the shell read a blank
elseif(KELO_DIAG_LIBRARY)
  set(KELO_DIAG_LINK_FLAG -l${KELO_DIAG_LIBRARY})
endif()
list(JOIN KELO_SQLITE_HOOKS_OPTIONS " " KELO_SQLITE_HOOKS_FLAGS)
# The prefix is known when the modules are installed: cmake --install --prefix may change it.
set(KELO_PREFIX "@KELO_PREFIX@")
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
foreach(module kelo_utils kelo_utils-static kelo_utils_sqlite kelo_utils_sqlite-static)
  configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${module}.pc DESTINATION ${pkgconfig_folder} COMPONENT development)
  install(CODE "
    set(module \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${pkgconfig_folder}/${module}.pc\")
    string(REPLACE \" \" \"\\\\ \" KELO_PREFIX \"\${CMAKE_INSTALL_PREFIX}\") # as pkg-config reads a blank
    file(READ \"\${module}\" text)
    string(CONFIGURE \"\${text}\" text @ONLY)
    file(WRITE \"\${module}\" \"\${text}\")" COMPONENT development)
endforeach()
