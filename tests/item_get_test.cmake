target_sources(${target} PRIVATE item_get_c99.c)
set_source_files_properties(item_get_c99.c PROPERTIES COMPILE_OPTIONS "-std=c99;-pedantic;-Werror")
target_link_libraries(${target} PRIVATE kelo_sqlite_faults)
