# SPDX-License-Identifier: MIT
# The target `lint`: clang-tidy over every source of every target in the tree, several at a time. A source of several
# targets is checked once, with the flags of each. It is checked again when its object in the first of them is older
# than the source, a header or the flags, or when a .clang-tidy has changed. The manual is made, too: a gap in the
# headers' comments fails.
find_program(KELO_CLANG_TIDY clang-tidy)
if(NOT KELO_CLANG_TIDY OR NOT CMAKE_GENERATOR MATCHES Ninja)
  return()
endif()

set(KELO_LINT_CONFIGS ${PROJECT_SOURCE_DIR}/.clang-tidy ${PROJECT_SOURCE_DIR}/tests/.clang-tidy)

function(kelo_lint_target target)
  get_target_property(type ${target} TYPE)
  if(NOT type MATCHES "EXECUTABLE|LIBRARY" OR type STREQUAL INTERFACE_LIBRARY)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  get_target_property(folder ${target} SOURCE_DIR)
  get_target_property(binary_folder ${target} BINARY_DIR)
  foreach(source IN LISTS sources)
    if(source MATCHES "\\.(c|cpp)$")
      cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${folder})
      get_property(seen GLOBAL PROPERTY KELO_LINT_SOURCES)
      cmake_path(IS_PREFIX PROJECT_BINARY_DIR ${source} made_by_the_build)
      if(source IN_LIST seen OR made_by_the_build)
        continue()
      endif()
      set_property(GLOBAL APPEND PROPERTY KELO_LINT_SOURCES ${source})
      cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${folder} OUTPUT_VARIABLE name)
      string(REPLACE .. __ name ${name})
      set(stamp ${PROJECT_BINARY_DIR}/lint/${target}/${name}.stamp)
      cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE shown)
      cmake_path(GET stamp PARENT_PATH stamp_folder)
      file(MAKE_DIRECTORY ${stamp_folder})
      add_custom_command(
        OUTPUT ${stamp}
        COMMAND ${PROJECT_SOURCE_DIR}/cmake/tidy.sh ${KELO_CLANG_TIDY} ${stamp} -p ${PROJECT_BINARY_DIR} ${source}
        DEPENDS ${PROJECT_SOURCE_DIR}/cmake/tidy.sh ${binary_folder}/CMakeFiles/${target}.dir/${name}.o ${KELO_LINT_CONFIGS}
        COMMENT "Linting ${shown}" VERBATIM)
      set_property(GLOBAL APPEND PROPERTY KELO_LINT_STAMPS ${stamp})
    endif()
  endforeach()
endfunction()

function(kelo_lint_folder folder)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  get_property(subfolders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(target IN LISTS targets)
    kelo_lint_target(${target})
  endforeach()
  foreach(subfolder IN LISTS subfolders)
    kelo_lint_folder(${subfolder})
  endforeach()
endfunction()

kelo_lint_folder(${PROJECT_SOURCE_DIR})
get_property(stamps GLOBAL PROPERTY KELO_LINT_STAMPS)
add_custom_target(lint DEPENDS ${stamps} ${KELO_DOCS_STAMP})
