# SPDX-License-Identifier: MIT
# Makes what the linker reads from the two checked-in lists: the version script from the list of exports, and the list
# of the symbols that are not bound to the library's own definitions. The names after "# optional additions" have a
# version node of their own, so that the loader refuses a library without them.
# Usage: cmake -DEXPORTS=abi/exports.txt -DREPLACEABLE=abi/replaceable.txt -DVERSION_SCRIPT=kelo_utils.map
#              -DDYNAMIC_LIST=kelo_utils.dynamic -P linker_lists.cmake
function(read_symbols file result result_of_additions)
  file(STRINGS "${file}" lines REGEX "^([A-Za-z_]|# optional additions$)")
  set(symbols "")
  set(additions "")
  set(list symbols)
  foreach(line IN LISTS lines)
    if(line MATCHES "^#")
      set(list additions)
    else()
      string(APPEND ${list} "    ${line};\n")
    endif()
  endforeach()
  set(${result} "${symbols}" PARENT_SCOPE)
  set(${result_of_additions} "${additions}" PARENT_SCOPE)
endfunction()

read_symbols("${EXPORTS}" exported additions)
file(WRITE "${VERSION_SCRIPT}" "KELO_UTILS_0 {\n  global:\n${exported}  local:\n    *;\n};\n")
if(additions)
  file(APPEND "${VERSION_SCRIPT}" "KELO_UTILS_0_ADDITIONS {\n  global:\n${additions}} KELO_UTILS_0;\n")
endif()
read_symbols("${REPLACEABLE}" replaceable none)
file(WRITE "${DYNAMIC_LIST}" "{\n${replaceable}};\n")
