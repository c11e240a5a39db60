# The same program with the shared library and with the archive.
foreach(library kelo_utils kelo_utils_static)
  set(program hooks_program_${library})
  add_executable(${program} hooks_program.c)
  target_link_libraries(${program} PRIVATE ${library} kelo_build_options)
  add_dependencies(${target} ${program})
endforeach()
