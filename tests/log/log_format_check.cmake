# SPDX-License-Identifier: MIT
# Compiles log_format_snippet.c once for each of its calls: those with fitting arguments must compile, the others
# must not, and for no other reason than the format.
# Usage: cmake -DCOMPILER=cc -DLANGUAGE=c -DTREE=. -P log_format_check.cmake
function(compile call result output)
  execute_process(
    COMMAND ${COMPILER} -x ${LANGUAGE} -fsyntax-only -Wall -Wextra -Werror=format -DCALL=${call}
            -I${TREE}/include ${TREE}/tests/log/log_format_snippet.c
    RESULT_VARIABLE status OUTPUT_VARIABLE text ERROR_VARIABLE text)
  set(${result} ${status} PARENT_SCOPE)
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

foreach(call GOOD_FUNCTION GOOD_MACRO)
  compile(${call} status output)
  if(NOT status EQUAL 0 OR output MATCHES "warning")
    message(FATAL_ERROR "${call} does not compile cleanly:\n${output}")
  endif()
endforeach()

foreach(call WRONG_TYPE_FUNCTION WRONG_TYPE_MACRO MISSING_FUNCTION MISSING_MACRO SURPLUS_FUNCTION SURPLUS_MACRO)
  compile(${call} status output)
  if(status EQUAL 0)
    message(FATAL_ERROR "${call} compiles")
  endif()
  if(NOT output MATCHES "-Werror=format")
    message(FATAL_ERROR "${call} fails for another reason:\n${output}")
  endif()
endforeach()
