target_link_libraries(${target} PRIVATE kelo_sqlite_faults)
