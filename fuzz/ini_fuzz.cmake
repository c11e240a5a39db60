target_sources(${topic}_fuzz PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/ini_model.cpp)
