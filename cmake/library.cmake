# SPDX-License-Identifier: MIT
# The library itself: one set of objects, linked as libkelo_utils.so.0 and as libkelo_utils.a.
# Every source in these folders belongs to it.
set(KELO_FOLDERS base log symtab queue list file_ops ini data_manager sqlite3/src sqlite3/src/face
               sqlite3/src/parameters timer/src kelo-app-os-al
               kelo-app-common/src)
list(TRANSFORM KELO_FOLDERS APPEND /*.cpp OUTPUT_VARIABLE KELO_SOURCE_PATTERNS)
file(GLOB KELO_SOURCES CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${KELO_SOURCE_PATTERNS})

if(KELO_DIAG_LIBRARY)
  list(REMOVE_ITEM KELO_SOURCES log/diag_stand_in.cpp)
endif()

# The additions come last, and write no messages of their own: the numbers and the names of the other sources, below,
# are the same with and without them.
file(GLOB KELO_SOURCES_OF_ADDITIONS CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} additions/*.cpp)
set(sources_that_call_additions "")
foreach(source IN LISTS KELO_SOURCES)
  file(STRINGS ${source} calls REGEX "^#ifdef KELO_ADDITIONS" LIMIT_COUNT 1)
  if(calls)
    list(APPEND sources_that_call_additions ${source})
  endif()
endforeach()
set(KELO_EXPORTS ${PROJECT_SOURCE_DIR}/abi/exports.txt)
set(KELO_EXPORTS_WITHOUT_ADDITIONS ${PROJECT_BINARY_DIR}/exports_without_additions.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${KELO_EXPORTS})
file(READ ${KELO_EXPORTS} exports_without_additions)
string(REGEX REPLACE "\n# optional additions\n.*" "" exports_without_additions "${exports_without_additions}")
file(CONFIGURE OUTPUT ${KELO_EXPORTS_WITHOUT_ADDITIONS} CONTENT "${exports_without_additions}\n" @ONLY)
if(NOT KELO_ADDITIONS)
  set(KELO_EXPORTS ${KELO_EXPORTS_WITHOUT_ADDITIONS})
endif()

# The sources that log are numbered: their call sites name them by the number (log/source_names.cpp).
set(source_number 0)
set(source_names "")
set(listed_folder "")
foreach(source IN LISTS KELO_SOURCES)
  file(STRINGS ${source} logs REGEX "KELO_LOG(_AS)?\\(" LIMIT_COUNT 1)
  if(logs)
    set_property(SOURCE ${source} APPEND PROPERTY COMPILE_DEFINITIONS KELO_SOURCE_NUMBER=${source_number})
    cmake_path(GET source PARENT_PATH folder)
    if(NOT folder STREQUAL listed_folder)
      string(APPEND source_names "\"/${folder}\\0\"\n")
      set(listed_folder ${folder})
    endif()
    cmake_path(GET source STEM name)
    string(APPEND source_names "\"${name}\\0\"\n")
    math(EXPR source_number "${source_number} + 1")
  endif()
endforeach()
file(CONFIGURE OUTPUT source_names.inc CONTENT "${source_names}" @ONLY)

# The library has no C++ run time: nothing throws, names types at run time, guards local statics or allocates with new.
add_library(kelo_utils_objects OBJECT ${KELO_SOURCES})
if(KELO_ADDITIONS)
  target_sources(kelo_utils_objects PRIVATE ${KELO_SOURCES_OF_ADDITIONS})
  set_property(SOURCE ${sources_that_call_additions} APPEND PROPERTY COMPILE_DEFINITIONS KELO_ADDITIONS)
endif()
set_target_properties(kelo_utils_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_compile_options(kelo_utils_objects PRIVATE
  -fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility=hidden -fvisibility-inlines-hidden
  -ffunction-sections -fdata-sections)
target_compile_definitions(kelo_utils_objects PRIVATE _FILE_OFFSET_BITS=64)
target_include_directories(kelo_utils_objects PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
if(KELO_COVERAGE)
  target_compile_options(kelo_utils_objects PRIVATE --coverage -fprofile-update=atomic)
endif()
if(NOT KELO_SANITIZE)
  # Arrays of four characters or more are guarded. Guarding every function that has a local address, too, would
  # add 7 KiB on the device, past its budget. The account of the stack is read by the test build.stack.
  target_compile_options(kelo_utils_objects PRIVATE
    -fstack-protector --param=ssp-buffer-size=4 $<$<CXX_COMPILER_ID:GNU>:-fstack-usage>)
  target_compile_definitions(kelo_utils_objects PRIVATE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  # What these passes keep in registers or move out of loops and branches takes more instructions than it saves in
  # Thumb-2 code: 280 bytes of the device's library. A build for speed has them.
  set(passes_that_enlarge -fno-move-loop-invariants -fno-tree-sink -fno-gcse -fno-code-hoisting -fno-schedule-insns2
                          -fno-caller-saves -fno-tree-pre -fno-ivopts -fno-tree-loop-im -fno-tree-dominator-opts
                          -fno-tree-ter)
  # A call that ends a function as a jump has an epilogue of its own, in guarded functions with the check of the guard.
  list(APPEND passes_that_enlarge -fno-optimize-sibling-calls)
  # With the data of one source in one section, a function reaches several variables and names from one address. That
  # is worth 300 bytes more.
  target_compile_options(kelo_utils_objects PRIVATE $<$<CONFIG:MinSizeRel>:${passes_that_enlarge} -fno-data-sections>)
endif()
if(KELO_BUILD_TESTS)
  target_compile_options(kelo_utils_objects PRIVATE -g) # build.abi reads the types from the debug information
endif()
target_link_libraries(kelo_utils_objects PRIVATE kelo_build_options SQLite::SQLite3 Threads::Threads)

# kelo_linker_lists(TARGET NAME EXPORTS): TARGET makes NAME.map and NAME.dynamic, which the linker reads.
function(kelo_linker_lists target name exports)
  set(map ${PROJECT_BINARY_DIR}/${name}.map)
  set(dynamic ${PROJECT_BINARY_DIR}/${name}.dynamic)
  set(replaceable ${PROJECT_SOURCE_DIR}/abi/replaceable.txt)
  add_custom_command(
    OUTPUT ${map} ${dynamic}
    COMMAND ${CMAKE_COMMAND} -DEXPORTS=${exports} -DREPLACEABLE=${replaceable} -DVERSION_SCRIPT=${map}
            -DDYNAMIC_LIST=${dynamic} -P ${PROJECT_SOURCE_DIR}/cmake/linker_lists.cmake
    DEPENDS ${exports} ${replaceable} ${PROJECT_SOURCE_DIR}/cmake/linker_lists.cmake)
  add_custom_target(${target} DEPENDS ${map} ${dynamic})
endfunction()
kelo_linker_lists(kelo_linker_lists kelo_utils ${KELO_EXPORTS})

# CMake would hand the C driver the C++ run time for these objects, which need none of it.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")

# kelo_library(TARGET TYPE OBJECT...): the objects are those of the library unless others are given.
function(kelo_library target type)
  set(objects ${ARGN})
  if(NOT objects)
    set(objects $<TARGET_OBJECTS:kelo_utils_objects>)
  endif()
  add_library(${target} ${type} ${objects})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME kelo_utils LINKER_LANGUAGE C)
  if(KELO_COVERAGE)
    target_link_options(${target} PUBLIC --coverage)
  endif()
  target_include_directories(${target} INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_definitions(${target} INTERFACE $<$<NOT:$<BOOL:${KELO_ADDITIONS}>>:KELO_NO_ADDITIONS>)
endfunction()

# kelo_shared_library(TARGET NAME): links the shared library of TARGET with the lists of the linker that are called NAME.
function(kelo_shared_library target name)
  # It is as large as the installed library: it has no run path to the device's libraries on this machine. An emulator is
  # told in another way where these are.
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0 EXPORT_NAME utils
                                             SKIP_BUILD_RPATH ON)
  set(map ${PROJECT_BINARY_DIR}/${name}.map)
  set(dynamic ${PROJECT_BINARY_DIR}/${name}.dynamic)
  set_property(TARGET ${target} PROPERTY LINK_DEPENDS ${map} ${dynamic})
  # A daemon that logs calls the diagnostic channel itself, so it links the platform's library too.
  target_link_libraries(${target} PRIVATE SQLite::SQLite3 Threads::Threads PUBLIC ${KELO_DIAG_LIBRARY})
  # The library's calls of its own exports are bound here, except those on the list. The library is never unloaded: its
  # thread, its signal handler and its fork handlers would then run in memory that is no longer mapped.
  target_link_options(${target} PRIVATE
    -Wl,--version-script=${map} -Wl,--dynamic-list=${dynamic} -Wl,-z,nodelete
    -Wl,-z,relro -Wl,-z,now -Wl,--gc-sections -Wl,--sort-section=alignment -Wl,--as-needed -Wl,--build-id)
  if(KELO_BUILD_TESTS OR KELO_BUILD_SMOKE)
    # The test build.run_time reads the map. Some linkers cannot write one.
    target_link_options(${target} PRIVATE -Wl,-Map=${PROJECT_BINARY_DIR}/${name}.link.map)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_SYSTEM_PROCESSOR STREQUAL arm)
    # The library has no constructors and no destructors, so it needs none of the compiler's code that calls them and none
    # of the names which that code imports: 468 bytes of the device's library.
    target_link_options(${target} PRIVATE $<$<CONFIG:MinSizeRel>:-nostartfiles>)
  endif()
  if(KELO_SANITIZE)
    target_link_options(${target} PRIVATE -fsanitize=${KELO_SANITIZE})
  else()
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
endfunction()

kelo_library(kelo_utils SHARED)
kelo_shared_library(kelo_utils kelo_utils)
add_dependencies(kelo_utils kelo_linker_lists)
if(CMAKE_CROSSCOMPILING)
  get_filename_component(folder_of_sqlite ${SQLite3_LIBRARY} DIRECTORY)
  target_link_options(kelo_utils INTERFACE $<BUILD_INTERFACE:-Wl,-rpath-link,${folder_of_sqlite}>)
endif()
add_library(kelo::utils ALIAS kelo_utils)

kelo_library(kelo_utils_static STATIC)
set_target_properties(kelo_utils_static PROPERTIES EXPORT_NAME utils_static)
target_link_libraries(kelo_utils_static PUBLIC SQLite::SQLite3 Threads::Threads ${KELO_DIAG_LIBRARY})
add_library(kelo::utils_static ALIAS kelo_utils_static)

# The library as it is without the additions, from the same objects: the test build.size and ./dev size compare the two.
# Only the sources that call an addition are compiled once more.
if(KELO_ADDITIONS AND NOT KELO_SANITIZE)
  set(objects $<TARGET_OBJECTS:kelo_utils_objects>)
  foreach(source IN LISTS KELO_SOURCES_OF_ADDITIONS sources_that_call_additions)
    set(objects $<FILTER:${objects},EXCLUDE,/${source}.o>)
  endforeach()
  add_library(kelo_utils_objects_without_additions OBJECT EXCLUDE_FROM_ALL ${sources_that_call_additions})
  set_target_properties(kelo_utils_objects_without_additions PROPERTIES POSITION_INDEPENDENT_CODE ON)
  foreach(property COMPILE_DEFINITIONS COMPILE_OPTIONS INCLUDE_DIRECTORIES LINK_LIBRARIES)
    get_target_property(value kelo_utils_objects ${property})
    set_target_properties(kelo_utils_objects_without_additions PROPERTIES ${property} "${value}")
  endforeach()
  target_compile_options(kelo_utils_objects_without_additions PRIVATE -UKELO_ADDITIONS)
  list(APPEND objects $<TARGET_OBJECTS:kelo_utils_objects_without_additions>)
  kelo_linker_lists(kelo_linker_lists_without_additions kelo_utils_without_additions ${KELO_EXPORTS_WITHOUT_ADDITIONS})
  kelo_library(kelo_utils_without_additions SHARED ${objects})
  kelo_shared_library(kelo_utils_without_additions kelo_utils_without_additions)
  set_target_properties(kelo_utils_without_additions PROPERTIES EXCLUDE_FROM_ALL ON
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/without_additions)
  add_dependencies(kelo_utils_without_additions kelo_linker_lists_without_additions)
endif()

# The contents of base/, for programs of the tree that use it directly: the shared library does not export it.
file(GLOB KELO_BASE_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/base/*.cpp)
add_library(kelo_base STATIC EXCLUDE_FROM_ALL ${KELO_BASE_SOURCES})
target_link_libraries(kelo_base PRIVATE kelo_build_options)
