# The C form of a table of items, as a strict C99 compiler takes it.
target_sources(${target} PRIVATE registry_table.c)
set_property(SOURCE registry_table.c PROPERTY COMPILE_OPTIONS -pedantic -Werror)
set_property(TARGET ${target} PROPERTY C_EXTENSIONS OFF)
target_link_libraries(${target} PRIVATE ${CMAKE_DL_LIBS})
