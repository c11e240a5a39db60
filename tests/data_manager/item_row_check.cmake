# SPDX-License-Identifier: MIT
# Compiles item_row_snippet.c once for each of its rows: a scalar that its field holds must compile, a longer one must
# not, and for no other reason. Then the places of the bytes, for either byte order.
# Usage: cmake -DCOMPILER=cc -DLANGUAGE=c -DSTANDARD=c99 -DTREE=. -DPOINTER_SIZE=8 -P item_row_check.cmake
function(compile result output)
  execute_process(
    COMMAND ${COMPILER} -x ${LANGUAGE} -std=${STANDARD} -fsyntax-only -Wall -Wextra -pedantic ${ARGN}
            -I${TREE}/include ${TREE}/tests/data_manager/item_row_snippet.c
    RESULT_VARIABLE status OUTPUT_VARIABLE text ERROR_VARIABLE text)
  set(${result} ${status} PARENT_SCOPE)
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

function(must_compile)
  compile(status output ${ARGN})
  if(NOT status EQUAL 0 OR output MATCHES "warning")
    message(FATAL_ERROR "${ARGN} does not compile cleanly:\n${output}")
  endif()
endfunction()

function(must_be_refused)
  compile(status output ${ARGN})
  if(status EQUAL 0)
    message(FATAL_ERROR "${ARGN} compiles")
  endif()
  if(NOT output MATCHES "array (is|size is) negative|size [^ ]+ of array is negative")
    message(FATAL_ERROR "${ARGN} fails for another reason:\n${output}")
  endif()
endfunction()

foreach(row ONE_BYTE WHOLE_FIELD NO_BYTES LONG_TEXT LONG_TEXT_ITEM LONG_BYTES_ITEM TABLE_END)
  must_compile(-DROW=${row})
endforeach()
foreach(row LONGER_SCALAR1 LONGER_SCALAR2 LONGER_SCALAR3 LONGER_SCALAR4 LONGER_BY_NUMBER)
  must_be_refused(-DROW=${row})
endforeach()
if(POINTER_SIZE EQUAL 4)
  must_be_refused(-DROW=EIGHT_BYTES)
else()
  must_compile(-DROW=EIGHT_BYTES)
endif()

foreach(order LITTLE BIG)
  set(order_as_asked -Wno-builtin-macro-redefined -U__BYTE_ORDER__ -D__BYTE_ORDER__=__ORDER_${order}_ENDIAN__)
  must_compile(${order_as_asked} -DCHECK_BYTE_ORDER)
  must_compile(${order_as_asked} -DROW=ONE_BYTE)
  must_compile(${order_as_asked} -DROW=LONG_TEXT_ITEM)
  must_compile(${order_as_asked} -DROW=LONG_BYTES_ITEM)
endforeach()
