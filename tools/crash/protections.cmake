# SPDX-License-Identifier: MIT
# Makes a program like kelo_crash for each protection of the store, with a store that lacks it. The line is left out of a
# copy of the source, so that the library itself needs no switch. The configuration stops when the source no longer has
# the line.

# NAME: of the program. SOURCE: the file below the tree. LINE: what is taken out. REPLACEMENT: what comes in its place.
function(kelo_without NAME SOURCE LINE REPLACEMENT)
  set(target kelo_crash_without_${NAME})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${SOURCE})
  file(READ ${PROJECT_SOURCE_DIR}/${SOURCE} text)
  string(FIND "${text}" "${LINE}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "${SOURCE} has no line '${LINE}' any more: which one protects ${NAME} now?")
  endif()
  string(REPLACE "${LINE}" "${REPLACEMENT}" text "${text}")
  set(copy ${CMAKE_CURRENT_BINARY_DIR}/unprotected/${NAME}.cpp)
  file(CONFIGURE OUTPUT ${copy} CONTENT "${text}" @ONLY)
  set_source_files_properties(${copy} PROPERTIES COMPILE_OPTIONS "-w")
  kelo_add_crash_program(${target} ${copy})
endfunction()

set(safe_copy sqlite3/src/safe_copy.cpp)
kelo_without(copy_sync ${safe_copy} "return copy && fsync(copy.get()) == 0;" "return static_cast<bool>(copy);")
kelo_without(undo ${safe_copy} "if (copy_was_interrupted(target)) restore_previous(CopyNames(target));" "static_cast<void>(target);")
kelo_without(set_aside_sync ${safe_copy} "if (!base::sync_directory_of(names.file.c_str())) return false;" "")
kelo_without(commit_sync sqlite3/src/item_write.cpp "static_cast<void>(base::sync_directory_of(journal_path()));" "")
kelo_without(clean_sync sqlite3/src/clean.cpp "static_cast<void>(base::sync_directory_of(file.path));" "")
kelo_without(parameter_sync sqlite3/src/parameters/connection.cpp
  "{ static_cast<void>(base::sync_directory_of(path_of(database))); }" "{ static_cast<void>(database); }")
kelo_without(restore_sync sqlite3/src/parameters/connection.cpp "base::sync_directory_of(kUserPath)" "true")
kelo_without(backup_refresh sqlite3/src/repair.cpp
  "if (is_good_source(backup_path()) || !is_good_source(primary_path())) return;" "return;")
kelo_without(update_first sqlite3/src/row.cpp "if (presence != Presence::absent) {" "if (presence == Presence::present) {")
kelo_without(one_transaction sqlite3/src/defaults_together.cpp
  "if (!execute(db, \"begin immediate\").ok()) return false;" "")
kelo_without(defaults_sync sqlite3/src/defaults_together.cpp "static_cast<void>(base::sync_directory_of(defaults_path()));" "")
