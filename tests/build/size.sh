#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The budget of the library on the device: its size, what runs when it is loaded, and how it is hardened.
# Usage: size.sh CROSS-PREFIX LIBRARY EXPORTS [WITHOUT]
#
# WITHOUT is the library without the optional additions, which have a budget of their own beside its budget.
# Sizes are those of the stripped library, as size(1) counts them: text is all that is mapped read-only (code,
# constants, dynamic symbols and relocations), data and bss what is mapped writable.
set -euo pipefail
readelf=${1}readelf nm=${1}nm strip=${1}strip size=${1}size library=$2 exports=$3 without=${4:-$2}
text_budget=$((108 * 1024)) file_budget=$((128 * 1024)) data_budget=$((16 * 1024))
additions_budget=$((8 * 1024))
failed=0

stripped=$(mktemp) core=$(mktemp)
trap 'rm -f "$stripped" "$core"' EXIT
"$strip" -o "$stripped" "$library"
"$strip" -o "$core" "$without"

# at_most BUDGET VALUE WHAT
at_most() {
  echo "$3: $2 of $1 bytes"
  [ "$2" -le "$1" ] || { echo "$3: $(($2 - $1)) bytes too many" && failed=1; }
}

# require TEXT PATTERN WHAT: a line of TEXT matches PATTERN.
require() { grep -qE "$2" <<< "$1" || { echo "missing: $3" && failed=1; }; }

# --- Size ---------------------------------------------------------------------------------------------------

read -r text data bss _ < <("$size" "$stripped" | tail -n 1)
# The exported buffers are part of the interface, whatever it takes to implement that.
buffers=$("$nm" -D -S --defined-only "$stripped" \
  | awk -v list="$exports" 'BEGIN { while ((getline name < list) > 0) listed[name] = 1 }
      { sub(/@.*/, "", $4) } $3 ~ /^[BDG]$/ && listed[$4] { print "0x" $2 }')
buffer_bytes=0
for bytes in $buffers; do buffer_bytes=$((buffer_bytes + bytes)); done
[ "$buffer_bytes" -gt 0 ] || { echo "no exported buffer was found" && failed=1; }
read -r core_text _ < <("$size" "$core" | tail -n 1)
at_most "$text_budget" "$core_text" "text"
at_most "$additions_budget" $((text - core_text)) "text of the optional additions"
at_most "$file_budget" "$(stat -c %s "$core")" "stripped file"
at_most $((file_budget + additions_budget)) "$(stat -c %s "$stripped")" "stripped file with the optional additions"
at_most "$data_budget" $((data + bss - buffer_bytes)) "writable data beside $buffer_bytes bytes of exported buffers"

# --- Start --------------------------------------------------------------------------------------------------

# Nothing runs when the library is loaded, and the compiler's start files are left out.
sections=$("$readelf" -SW "$library" | sed 's/^ *\[ *[0-9]*\] *//')
for section in .init_array .fini_array; do
  bytes=$((0x$(awk -v name="$section" '$1 == name { print $5 }' <<< "$sections")))
  [ "$bytes" -eq 0 ] || { echo "$section holds $bytes bytes" && failed=1; }
done
if grep -E '^\.(ctors|dtors|preinit_array)' <<< "$sections"; then
  echo "has constructors of another kind" && failed=1
fi

# --- Hardening ----------------------------------------------------------------------------------------------

dynamic=$("$readelf" -dW "$stripped")
segments=$("$readelf" -lW "$stripped")
asked_for=$("$nm" -D -u "$stripped")
require "$segments" '^ *GNU_RELRO' "relocations read-only"
require "$dynamic" 'BIND_NOW|FLAGS.* NOW' "binding at load, without which RELRO is partial"
require "$segments" '^ *GNU_STACK .* RW +0x' "stack that is not executable"
require "$asked_for" ' __stack_chk_fail' "stack protector"
require "$asked_for" ' __[a-z]+_chk(@|$)' "checked functions of the C library"
require "$("$readelf" -A "$library")" 'Tag_THUMB_ISA_use: Thumb-2' "Thumb-2"
# The attributes count what the start files bring; the address of a Thumb function is odd.
arm_functions=$("$readelf" --dyn-syms -W "$stripped" | awk '$4 == "FUNC" && $7 != "UND" && $2 ~ /[02468ace]$/' | wc -l)
[ "$arm_functions" -eq 0 ] || { echo "$arm_functions exported functions are not Thumb code" && failed=1; }
if grep -E 'TEXTREL' <<< "$dynamic"; then
  echo "relocates code" && failed=1
fi
alignments=$(awk '$1 == "LOAD" { print $NF }' <<< "$segments" | sort -u | xargs)
[ "$alignments" = 0x1000 ] || { echo "segments for pages of $alignments and not of 0x1000" && failed=1; }
exit "$failed"
