# No emulator lets a program be traced: there the model is tried without the recorder.
if(TARGET kelo_crash_explorer)
  target_link_libraries(${target} PRIVATE kelo_crash_explorer)
  target_compile_definitions(${target} PRIVATE KELO_TRACES_PROGRAMS)
else()
  set(crash_model choices content disk event states reproducer)
  list(TRANSFORM crash_model REPLACE "(.+)" "${CMAKE_SOURCE_DIR}/tools/crash/\\1.cpp")
  target_sources(${target} PRIVATE ${crash_model})
endif()
