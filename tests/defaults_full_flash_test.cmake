target_link_libraries(${target} PRIVATE kelo_sqlite_faults)
list(INSERT KELO_TEST_SANDBOX 1 --data-size 300000)
