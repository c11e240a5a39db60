# SPDX-License-Identifier: MIT
# The fault explorer: the histories of the crash explorer in a program whose calls can be made to fail.
set(fault_sources call_faults.cpp expectations.cpp experiment.cpp fault_histories.cpp main.cpp obstacles.cpp surroundings.cpp)
list(TRANSFORM fault_sources PREPEND faults/)
add_executable(kelo_faults EXCLUDE_FROM_ALL ${fault_sources} $<FILTER:$<TARGET_OBJECTS:kelo_crash_histories>,EXCLUDE,/main\.cpp>)
target_link_libraries(kelo_faults PRIVATE kelo_build_options kelo_crash_explorer kelo_utils_sqlite
                      $<TARGET_LINKER_FILE:kelo_utils_static> SQLite::SQLite3 Threads::Threads ${CMAKE_DL_LIBS})
target_link_options(kelo_faults PRIVATE -rdynamic -Wl,--wrap=posix_spawnp,--wrap=waitpid,--wrap=sqlite3_get_table)
add_dependencies(kelo_faults kelo_utils_static)
add_dependencies(explorers kelo_faults)

# kelo_fault_share(NAME EVERY ARGUMENT...): one of so many faults; none may lead to more than callers are told of.
function(kelo_fault_share name every)
  add_test(NAME faults.${name} COMMAND ${KELO_TEST_EXPLORER_SANDBOX} $<TARGET_FILE:kelo_faults> --every ${every} ${ARGN})
  set_tests_properties(faults.${name} PROPERTIES ${KELO_TEST_PROPERTIES} LABELS long)
endfunction()

kelo_fault_share(writes 37 --history "update" --history "insert" --history "key-value pairs")
kelo_fault_share(verified_writes 43 --history "verified write" --history "verified, insert"
                                    --history "verified, no state database")
kelo_fault_share(first_start 601 --history "first start")
kelo_fault_share(starts 53 --history "crash completion" --history "no state database")
kelo_fault_share(repairs 71 --history "repair, page 1" --history "repair, data page" --history "repair, no primary"
                            --history "repair, backup")
kelo_fault_share(verified_repairs 53 --history "verified, repair, page 1" --history "verified, repair, no primary")
kelo_fault_share(cleans 43 --history "clean" --history "clean with a copy" --history "csv export")
kelo_fault_share(parameters 5 --history "parameters, update" --history "parameters, first start"
                              --history "parameters, factory restore")
kelo_fault_share(ini 1 --history "ini, rewrite" --history "ini, in place" --history "ini, new file")
kelo_fault_share(surroundings 2 --history "verified write" --kind process --kind folder --kind obstacle --kind content)
# What only few of the faults bring to light.
kelo_fault_share(second_names 1 --history "parameters, factory restore" --history "verified write" --fault "unlink ")
kelo_fault_share(backup_reads 2 --history "verified, repair, no primary" --kind "call once" --fault "pread ")
