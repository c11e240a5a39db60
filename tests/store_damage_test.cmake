# Each case is a start of a daemon: without the shell's `cp` there are many more of them.
set_property(TARGET ${target} PROPERTY KELO_LINKS_ARCHIVE ON)
target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/tools/crash/quick_commands.cpp)
target_link_options(${target} PRIVATE -Wl,--wrap=posix_spawnp,--wrap=waitpid)
