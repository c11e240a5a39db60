target_link_libraries(${target} PRIVATE kelo_utils_sqlite)
