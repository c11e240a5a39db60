# SPDX-License-Identifier: MIT
# The SQLite back-end in one line of a daemon's build: an archive of one object that defines the data manager's
# hooks. The link options take that object, and what it calls, from their archives in any order of the command
# line. Without these options the library's own hooks would be linked.
add_library(kelo_utils_sqlite_objects OBJECT sqlite3/hooks/sqlite_hooks.cpp)
set_target_properties(kelo_utils_sqlite_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_compile_options(kelo_utils_sqlite_objects PRIVATE -fno-exceptions -fno-rtti)
target_link_libraries(kelo_utils_sqlite_objects PRIVATE kelo_build_options)

add_library(kelo_utils_sqlite STATIC $<TARGET_OBJECTS:kelo_utils_sqlite_objects>)
set_target_properties(kelo_utils_sqlite PROPERTIES LINKER_LANGUAGE C EXPORT_NAME utils_sqlite)
target_include_directories(kelo_utils_sqlite INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set(KELO_SQLITE_HOOKS_OPTIONS "")
foreach(symbol kelo_utils_sqlite_hooks sqlite_reg sqlite_reg_store_area sqlite_chk_db_ver_match
               check_database_health)
  list(APPEND KELO_SQLITE_HOOKS_OPTIONS -Wl,-u,${symbol})
endforeach()
target_link_options(kelo_utils_sqlite INTERFACE ${KELO_SQLITE_HOOKS_OPTIONS})
add_library(kelo::utils_sqlite ALIAS kelo_utils_sqlite)
