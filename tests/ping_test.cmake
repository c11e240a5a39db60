target_link_libraries(${target} PRIVATE kelo_sqlite_faults)
set(KELO_TEST_SANDBOX ${KELO_TEST_INTERFACE_SANDBOX})
