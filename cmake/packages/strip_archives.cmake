# CPack takes the debug information out of the shared library only. That of an archive has no package to go to.
file(GLOB_RECURSE archives ${CPACK_TEMPORARY_DIRECTORY}/*.a)
foreach(archive IN LISTS archives)
  execute_process(COMMAND ${CPACK_KELO_STRIP} --strip-debug --enable-deterministic-archives ${archive}
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
