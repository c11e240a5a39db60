kelo_unsigned_char_test(${topic})

# A program may include <string.h>, which declares strsep() too, before this library's header or after it. The two
# declarations agree to the letter: the compiler is told not to be lenient with those of system headers.
foreach(dialect C.c99 C.gnu99 C.gnu17 CXX.c++17 CXX.gnu++17 CXX.c++20 CXX.gnu++20)
  string(REGEX REPLACE "^(.*)\\.(.*)$" "\\1;\\2" language_and_standard ${dialect})
  list(GET language_and_standard 0 language)
  list(GET language_and_standard 1 standard)
  foreach(first STRING_H KELO_UTILS)
    add_test(NAME ${topic}.StrsepIsDeclared.${standard}.${first}
             COMMAND ${CMAKE_${language}_COMPILER} -x $<IF:$<STREQUAL:${language},C>,c,c++> -std=${standard}
                     -Wall -Wextra -Wredundant-decls -Wsystem-headers -Werror -fsyntax-only -D${first}_FIRST
                     -I${CMAKE_SOURCE_DIR}/include ${CMAKE_CURRENT_SOURCE_DIR}/strsep_snippet.c)
  endforeach()
endforeach()
