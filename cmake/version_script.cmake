# Makes the linker's version script from the checked-in list of exports.
# Usage: cmake -DEXPORTS=abi/exports.txt -DOUTPUT=kelo_utils.map -P version_script.cmake
file(STRINGS "${EXPORTS}" lines REGEX "^[A-Za-z_]")
list(JOIN lines ";\n    " symbols)
file(WRITE "${OUTPUT}" "KELO_UTILS_0 {\n  global:\n    ${symbols};\n  local:\n    *;\n};\n")
