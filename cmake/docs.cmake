# SPDX-License-Identifier: MIT
# The target `docs` makes the manual in the folder docs of the build, as HTML and as manual pages. It fails where the
# description of a public function has a gap: for that the target `lint` depends on it.
option(KELO_BUILD_DOCS "Build the manual, and install it" OFF)
find_program(KELO_DOXYGEN doxygen)
if(NOT KELO_DOXYGEN)
  if(KELO_BUILD_DOCS)
    message(FATAL_ERROR "KELO_BUILD_DOCS needs doxygen")
  endif()
  return()
endif()

set(KELO_DOCS_STAMP ${PROJECT_BINARY_DIR}/docs/stamp)
file(GLOB docs_sources CONFIGURE_DEPENDS include/kelo_utils/*.h include/kelo_utils/*.hpp include/kelo_utils/kelo/*.hpp docs/*.md cmake/docs/*)
add_custom_command(
  OUTPUT ${KELO_DOCS_STAMP}
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/docs/make.sh ${PROJECT_BINARY_DIR}/docs
  COMMAND ${CMAKE_COMMAND} -E touch ${KELO_DOCS_STAMP}
  DEPENDS ${docs_sources} README.md CMakeLists.txt abi/exports.txt
  COMMENT "Making the manual" VERBATIM)
if(KELO_BUILD_DOCS)
  add_custom_target(docs ALL DEPENDS ${KELO_DOCS_STAMP})
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libkelo-utils-doc
          COMPONENT documentation)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/man/man3 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT documentation)
else()
  add_custom_target(docs DEPENDS ${KELO_DOCS_STAMP})
endif()
