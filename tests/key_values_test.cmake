# The calls of the library's read go through the test's own.
set_property(TARGET ${target} PROPERTY KELO_LINKS_ARCHIVE ON)
target_link_options(${target} PRIVATE -Wl,--wrap=kelo_dm_read)
