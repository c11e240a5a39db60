# The same list of records, read by each language that daemons are written in.
target_sources(${target} PRIVATE layout_c99.c)
set_source_files_properties(layout_c99.c PROPERTIES COMPILE_OPTIONS "-std=c99;-pedantic;-Werror")
set_source_files_properties(layout_test.cpp PROPERTIES COMPILE_OPTIONS -std=c++17)
