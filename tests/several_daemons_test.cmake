target_link_libraries(${target} PRIVATE kelo_utils_sqlite)
# Runs for its time with five processes on both cores.
list(APPEND KELO_TEST_PROPERTIES COST 1000)
