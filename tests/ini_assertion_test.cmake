# The library does not export cache_flush(), whose assertion is tested.
target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/ini/change.cpp)
