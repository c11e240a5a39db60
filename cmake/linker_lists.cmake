# SPDX-License-Identifier: MIT
# Makes what the linker reads from the two checked-in lists: the version script from the list of exports, and the list
# of the symbols that are not bound to the library's own definitions.
# Usage: cmake -DEXPORTS=abi/exports.txt -DREPLACEABLE=abi/replaceable.txt -DVERSION_SCRIPT=kelo_utils.map
#              -DDYNAMIC_LIST=kelo_utils.dynamic -P linker_lists.cmake
function(read_symbols file result)
  file(STRINGS "${file}" lines REGEX "^[A-Za-z_]")
  list(JOIN lines ";\n    " symbols)
  set(${result} "${symbols}" PARENT_SCOPE)
endfunction()

read_symbols("${EXPORTS}" exported)
file(WRITE "${VERSION_SCRIPT}" "KELO_UTILS_0 {\n  global:\n    ${exported};\n  local:\n    *;\n};\n")
read_symbols("${REPLACEABLE}" replaceable)
file(WRITE "${DYNAMIC_LIST}" "{\n    ${replaceable};\n};\n")
