# The builder itself, which the library keeps to itself.
target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/base/text_builder.cpp)
