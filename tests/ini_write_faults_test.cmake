target_link_libraries(${target} PRIVATE kelo_power_cut ${CMAKE_DL_LIBS})
