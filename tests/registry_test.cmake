# The C form of a table of items, as a strict C99 compiler takes it.
target_sources(${target} PRIVATE registry_table.c)
set_property(SOURCE registry_table.c PROPERTY COMPILE_OPTIONS -pedantic -Werror)
set_property(TARGET ${target} PROPERTY C_EXTENSIONS OFF)
# The library's calls of symOpen() go through the test's own.
set_property(TARGET ${target} PROPERTY KELO_LINKS_ARCHIVE ON)
target_link_options(${target} PRIVATE -Wl,--wrap=symOpen)
