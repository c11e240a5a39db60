# What the program defines is in its dynamic symbols, in front of the library's.
add_executable(own_names_program own_names_program.c)
target_link_libraries(own_names_program PRIVATE kelo_utils kelo_build_options)
target_link_options(own_names_program PRIVATE -rdynamic)
add_dependencies(${target} own_names_program)
