target_link_libraries(${target} PRIVATE ${CMAKE_DL_LIBS})
