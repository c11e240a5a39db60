# The C form of a table of items, as a strict C99 compiler takes it.
target_sources(${target} PRIVATE registry_table.c)
set_property(SOURCE registry_table.c PROPERTY COMPILE_OPTIONS -pedantic -Werror)
set_property(TARGET ${target} PROPERTY C_EXTENSIONS OFF)
# The library's calls of symOpen() go through the test's own.
set_property(TARGET ${target} PROPERTY KELO_LINKS_ARCHIVE ON)
target_link_options(${target} PRIVATE -Wl,--wrap=symOpen)

# What a row cannot hold is the compiler's to refuse.
foreach(language C CXX)
  add_test(NAME ${topic}.RowsAreChecked.${language}
           COMMAND ${CMAKE_COMMAND} -DCOMPILER=${CMAKE_${language}_COMPILER}
                   -DLANGUAGE=$<LOWER_CASE:$<IF:$<STREQUAL:${language},C>,c,c++>>
                   -DSTANDARD=$<IF:$<STREQUAL:${language},C>,c99,c++17> -DTREE=${CMAKE_SOURCE_DIR}
                   -DPOINTER_SIZE=${CMAKE_SIZEOF_VOID_P} -P ${CMAKE_CURRENT_SOURCE_DIR}/item_row_check.cmake)
endforeach()
