# SPDX-License-Identifier: MIT
# The crash explorer's fixed share of the suite, and the proof that it finds missing protections.
set(crash_seed 1)

# kelo_crash_share(NAME STATES HISTORY...): so many unique states of each history, none of which may break a promise.
function(kelo_crash_share name states)
  if(KELO_SANITIZE)
    set(states 15) # two processes are started for each, and start slowly under a sanitizer
  endif()
  set(arguments --seed ${crash_seed} --states ${states})
  foreach(history IN LISTS ARGN)
    list(APPEND arguments --history ${history})
  endforeach()
  add_test(NAME crash.${name} COMMAND ${KELO_TEST_EXPLORER_SANDBOX} $<TARGET_FILE:kelo_crash> ${arguments})
  set_tests_properties(crash.${name} PROPERTIES ${KELO_TEST_PROPERTIES} LABELS long)
endfunction()

kelo_crash_share(writes 1050 "update" "wide update" "insert")
kelo_crash_share(kinds_of_writes 800 "crash completion" "clean with a copy" "key-value pairs" "verified write")
kelo_crash_share(repairs 550 "repair, page 1" "repair, data page" "repair, no primary" "repair, empty primary"
                             "repair, backup" "no state database")
kelo_crash_share(others 800 "two daemons" "nearly full disk" "random 1" "random 2")
kelo_crash_share(more_random 800 "random 3" "random 4" "random 5" "random 6")
kelo_crash_share(random_parameters 700 "random parameters 1" "random parameters 2" "random parameters 3")
kelo_crash_share(defaults 200 "first start" "new defaults")
kelo_crash_share(files 1500 "parameters, update" "parameters, first start" "parameters, factory restore"
                            "ini, rewrite" "ini, in place" "ini, in place, two sectors" "ini, new file")

# kelo_crash_finds(PROTECTION HISTORY): what the explorer must report about the store that lacks the protection.
function(kelo_crash_finds protection history)
  set(program $<TARGET_FILE:kelo_crash_without_${protection}>)
  add_test(NAME crash.finds_missing_${protection}
    COMMAND ${KELO_TEST_EXPLORER_SANDBOX} sh -c "\"$0\" --seed ${crash_seed} --states 1200 --first --history '${history}'; [ $? -eq 1 ]" ${program})
  set_tests_properties(crash.finds_missing_${protection} PROPERTIES ${KELO_TEST_PROPERTIES} LABELS long)
endfunction()

if(TARGET kelo_crash_without_undo)
  kelo_crash_share(refused_look 150 "refused look")
  kelo_crash_finds(copy_sync "update")
  kelo_crash_finds(undo "update")
  kelo_crash_finds(set_aside_sync "update")
  kelo_crash_finds(commit_sync "no state database")
  kelo_crash_finds(clean_sync "clean with a copy")
  kelo_crash_finds(parameter_sync "parameters, update")
  kelo_crash_finds(restore_sync "parameters, factory restore")
  kelo_crash_finds(backup_refresh "repair, backup")
  kelo_crash_finds(update_first "refused look")
  kelo_crash_finds(one_transaction "new defaults")
  kelo_crash_finds(defaults_sync "new defaults")
endif()
