# The parser itself, which the library keeps to itself.
target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/kelo-app-common/src/at_reply.cpp)
