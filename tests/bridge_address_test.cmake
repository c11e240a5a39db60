set(KELO_TEST_SANDBOX ${KELO_TEST_INTERFACE_SANDBOX})
    target_link_libraries(${target} PRIVATE ${CMAKE_DL_LIBS})
