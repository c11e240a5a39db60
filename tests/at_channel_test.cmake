target_link_libraries(${target} PRIVATE kelo_modem ${CMAKE_DL_LIBS})
