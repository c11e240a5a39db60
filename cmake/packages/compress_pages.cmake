# SPDX-License-Identifier: MIT
# Manual pages are compressed as Debian has them. That of strsep gets a section of its own: a package of Debian has the
# file of that name, for the C library's function.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*.3)
foreach(page IN LISTS pages)
  if(page MATCHES "/strsep\\.3$")
    list(REMOVE_ITEM pages ${page})
    list(APPEND pages ${page}kelo)
    file(RENAME ${page} ${page}kelo)
  endif()
endforeach()
if(pages)
  execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
