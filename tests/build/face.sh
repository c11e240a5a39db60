#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The C++ face costs nothing where it is not used, and next to nothing over the C functions where it is: a small daemon
# has at most 3 % more bytes with it. The sizes are those of GCC, for which the face is tuned.
# Usage: face.sh CXX SIZE INCLUDE-FOLDER WORK-FOLDER [OPTION...]   Each OPTION is one of the compiler.
set -euo pipefail
cxx=$1 size=$2 include=$3 work=$4
shift 4
sources=$(dirname -- "${BASH_SOURCE[0]}")/face
mkdir -p "$work"

# size_of SOURCE: the bytes of its object.
size_of() {
  "$cxx" -x c++ -std=c++17 -Os -fno-exceptions -fno-rtti -I "$include" "${options[@]}" -c "$1" -o "$work/object.o"
  "$size" "$work/object.o" | awk 'NR == 2 { print $4 }'
}
options=("$@")

echo '#include "kelo_utils/kelo.hpp"' > "$work/empty.cpp"
empty=$(size_of "$work/empty.cpp")
by_face=$(size_of "$sources/by_face.cpp")
by_c=$(size_of "$sources/by_c.cpp")
echo "not used: $empty bytes; a small daemon: $by_face bytes, with the C functions $by_c bytes"
if [ "$empty" -ne 0 ]; then echo "a header that is not used costs bytes" && exit 1; fi
if [ $((by_face * 100)) -gt $((by_c * 103)) ]; then echo "more than 3 % over the C functions" && exit 1; fi
