# The program takes the diagnostic channel over, and uses the macro from each language that daemons are written in.
target_sources(${target} PRIVATE own_channel.cpp log_macro_c99.c log_macro_cxx17.cpp)
set_source_files_properties(log_macro_c99.c PROPERTIES COMPILE_OPTIONS "-std=c99;-pedantic;-Wconversion;-Werror")
set_source_files_properties(log_macro_cxx17.cpp PROPERTIES COMPILE_OPTIONS
                            "-std=c++17;-pedantic;-Wold-style-cast;-Werror")

# A C daemon with a channel of its own, linked both ways.
foreach(linkage shared static)
  set(program log_own_channel_${linkage})
  add_executable(${program} log_own_channel.c)
  target_link_libraries(${program} PRIVATE $<IF:$<STREQUAL:${linkage},shared>,kelo_utils,kelo_utils_static>
                                           kelo_build_options)
  add_test(NAME ${topic}.OwnChannel.${linkage} COMMAND ${KELO_TEST_SANDBOX} $<TARGET_FILE:${program}>)
  set_tests_properties(${topic}.OwnChannel.${linkage} PROPERTIES ${KELO_TEST_PROPERTIES})
endforeach()

# Wrong arguments are the compiler's to find.
foreach(language C CXX)
  add_test(NAME ${topic}.FormatIsChecked.${language}
           COMMAND ${CMAKE_COMMAND} -DCOMPILER=${CMAKE_${language}_COMPILER}
                   -DLANGUAGE=$<LOWER_CASE:$<IF:$<STREQUAL:${language},C>,c,c++>> -DTREE=${CMAKE_SOURCE_DIR}
                   -P ${CMAKE_CURRENT_SOURCE_DIR}/log_format_check.cmake)
endforeach()
