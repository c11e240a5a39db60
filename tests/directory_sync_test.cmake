# The function itself, which the library keeps to itself.
target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/base/file.cpp ${CMAKE_SOURCE_DIR}/base/text_builder.cpp)
target_link_libraries(${target} PRIVATE ${CMAKE_DL_LIBS})
