# It loads the library itself and so is not linked with it.
add_executable(unload_program unload_program.c)
target_link_libraries(unload_program PRIVATE kelo_build_options ${CMAKE_DL_LIBS})
add_dependencies(${target} unload_program kelo_utils)
