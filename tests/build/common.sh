# SPDX-License-Identifier: MIT
# Shared by the tests of the installed tree. The caller's environment names the tools and the folders.
# shellcheck shell=bash disable=SC2034  # what is set here is used by the scripts that read this file
set -euo pipefail
: "${CC:?}" "${CXX:?}" "${NM:?}" "${READELF:?}" "${CMAKE:?}" "${PKG_CONFIG:?}" "${SOURCE_TREE:?}" "${BINARY_TREE:?}" "${WORK:?}"
daemon_sources=$SOURCE_TREE/tests/build/daemon
prefix=$WORK/prefix
failed=0

no_storage="no storage"
stored="SSID is cabin, health is 0"
own_hooks="reg 1, area 1 41, version 1 42 1, health 43, init 1, records 2"

# expect TEXT PROGRAM: PROGRAM, run in the sandbox, exits with 0 and prints TEXT alone. A program for another machine
# runs under the command in EMULATOR.
expect() {
  local text=$1 program=$2 output status=0 emulator
  read -ra emulator <<< "${EMULATOR:-}"
  output=$("$SOURCE_TREE/tests/sandbox.sh" "$SOURCE_TREE" "$BINARY_TREE" -- "${emulator[@]}" "$program" 2>&1 \
    | sed '/^bwrap: /d; /sandbox\.sh: /d') || status=$? # how the sandbox was made
  if [ "$status" -eq 77 ]; then
    echo "$output"
    exit 77
  fi
  if [ "$status" -eq 0 ] && [ "$output" = "$text" ]; then
    echo "$(basename "$program"): $output"
  else
    echo "$(basename "$program"): exit status $status, printed '$output', not '$text'"
    failed=1
  fi
}

# expect_needed yes|no PATTERN PROGRAM: whether PROGRAM asks the loader for a library that matches PATTERN.
expect_needed() {
  local found=no
  if "$READELF" -d "$3" | grep -q "(NEEDED).*$2"; then found=yes; fi
  [ "$found" = "$1" ] || { echo "$(basename "$3"): needs $2: $found, not $1" && failed=1; }
}

# readme_example FILE: writes the daemon of the README into FILE.
# shellcheck disable=SC2016 # the backquotes are those of the README
readme_example() {
  sed -n '/^```c$/,/^```$/{/^```/!p}' "$SOURCE_TREE/README.md" > "$1"
  [ "$(wc -l < "$1")" -gt 20 ] || { echo "the README has no example" && exit 1; }
}

# compile_with MODULE OUTPUT COMMAND...: COMMAND followed by the flags of the pkg-config MODULE.
# `static_flag` is --static for the archives.
compile_with() {
  local module=$1 output=$2 flags
  shift 2
  flags=$("$PKG_CONFIG" ${static_flag:+"$static_flag"} --cflags --libs "$module")
  # pkg-config quotes blanks for the shell
  eval "set -- \"\$@\" -o \"\$output\" $flags"
  "$@"
}
