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
exit "$failed"
