#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Each public header compiles alone, and twice in a row, in C99 and in C++17; the umbrella header holds them all;
# the names they declare with KELO_API are the listed exports and no others; the description of each function says
# whether it blocks and which threads may call it.
# Usage: headers.sh CC CXX INCLUDE-FOLDER EXPORTS [OPTION...]   Each OPTION is one of the compiler.
set -euo pipefail
cc=$1 cxx=$2 include=$3 exports=$4
shift 4
warnings=(-pedantic -Wall -Wextra -Werror -fsyntax-only -I "$include" "$@")
failed=0

for path in "$include"/kelo_utils/*.h; do
  name=kelo_utils/$(basename "$path")
  for text in "#include \"$name\"" "$(printf '#include "%s"\n#include "%s"' "$name" "$name")"; do
    text+=$'\ntypedef int something;'  # C wants a declaration, and base.h makes none
    printf '%s\n' "$text" | "$cc" -x c -std=c99 "${warnings[@]}" - || { echo "$name: not clean in C99" && failed=1; }
    printf '%s\n' "$text" | "$cxx" -x c++ -std=c++17 "${warnings[@]}" - \
      || { echo "$name: not clean in C++17" && failed=1; }
  done
  if [ "$name" != kelo_utils/kelo_utils.h ] && ! grep -qxF "#include \"$name\"" "$include/kelo_utils/kelo_utils.h"; then
    echo "kelo_utils.h does not include $name" && failed=1
  fi
done

# After preprocessing KELO_API is an attribute, and a declaration's name is before its first "(" or "[".
declared=$("$cc" -E -P -x c -std=c99 -I "$include" "$@" "$include/kelo_utils/kelo_utils.h" | tr '\n' ' ' | tr ';' '\n' \
  | sed -n 's/.*__attribute__((visibility("default")))//p' | sed -E 's/[[(].*//; s/ *$//; s/.*[ *]//' | sort)
listed=$(grep -E '^[A-Za-z_]' "$exports" | sort)
if ! diff <(printf '%s\n' "$listed") <(printf '%s\n' "$declared"); then
  echo "'<' is listed and not declared, '>' is declared and not listed" && failed=1
fi

# The last description before the declaration of a function is its own.
undescribed=$(awk '
  /^\/\*\*/ { blocking = threads = 0 }
  /^ \* @par Blocking$/ { blocking = 1 }
  /^ \* @par Threads$/ { threads = 1 }
  /^(KELO_API|static inline) [^=]*\(/ && !(blocking && threads) { print FILENAME ": " $0 }
' "$include"/kelo_utils/*.h)
if [ -n "$undescribed" ]; then
  echo "$undescribed" && echo "no \"@par Blocking\" or no \"@par Threads\"" && failed=1
fi

# The C++ face is in C++17 and later, with and without exceptions and RTTI. The umbrella header does not have it. The
# description of each class and function says what the description of a C function says.
warnings+=(-Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wnon-virtual-dtor)
for path in "$include"/kelo_utils/{*.hpp,kelo/*.hpp}; do
  name=${path#"$include/"}
  text=$(printf '#include "%s"\n#include "%s"\n#include "kelo_utils/kelo_utils.h"' "$name" "$name")
  for options in "-std=c++17" "-std=c++20 -fno-exceptions -fno-rtti"; do
    # shellcheck disable=SC2086
    printf '%s\n' "$text" | "$cxx" -x c++ $options "${warnings[@]}" - || { echo "$name: not clean with $options" && failed=1; }
  done
  if [ "$name" != kelo_utils/kelo.hpp ] && [ "$name" != kelo_utils/kelo/closure.hpp ] \
    && ! grep -qxF "#include \"$name\"" "$include/kelo_utils/kelo.hpp"; then
    echo "kelo.hpp does not include $name" && failed=1
  fi
done
if grep -q '\.hpp"' "$include"/kelo_utils/*.h; then echo "a C header includes one in C++" && failed=1; fi

undescribed=$(awk '
  /@cond/ { hidden = 1 }
  /@endcond/ { hidden = 0 }
  /^\/\*\*/ { blocking = threads = 0 }
  /^ \* @par Blocking$/ { blocking = 1 }
  /^ \* @par Threads$/ { threads = 1 }
  /^(class |inline [^=]*\()/ && !hidden && !(blocking && threads) { print FILENAME ": " $0 }
' "$include"/kelo_utils/{*.hpp,kelo/*.hpp})
if [ -n "$undescribed" ]; then
  echo "$undescribed" && echo "no \"@par Blocking\" or no \"@par Threads\"" && failed=1
fi

# A source of the library may include the C++ face: the namespaces in this tree are not among its names.
tree=$include/..
if [ -d "$tree/base" ]; then
  inside=$(grep -rhoE --exclude-dir=build --include=*.hpp --include=*.cpp "namespace kelo::[a-z_0-9]+" "$tree"/*/ | sort -u \
    | grep -v ::face_detail)
  printf '#include "kelo_utils/kelo.hpp"\n%s\n' "$(awk '{ print $0 " { inline int something = 0; }" }' <<< "$inside")" \
    | "$cxx" -x c++ -std=c++20 "${warnings[@]}" - || { echo "a namespace of the tree is a name of the C++ face" && failed=1; }
fi
exit "$failed"
