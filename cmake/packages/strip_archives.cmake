# SPDX-License-Identifier: MIT
# CPack takes the debug information out of the shared library only. There is no package for that of an archive.
file(GLOB_RECURSE archives ${CPACK_TEMPORARY_DIRECTORY}/*.a)
foreach(archive IN LISTS archives)
  execute_process(COMMAND ${CPACK_KELO_STRIP} --strip-debug --enable-deterministic-archives ${archive}
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
