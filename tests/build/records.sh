#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Each record of the public headers, and each of its fields, is in the list of pinned layouts; no record holds a
# type whose size is another on the next C library or compiler. Usage: records.sh CC INCLUDE-FOLDER PINS
set -euo pipefail
cc=$1 include=$2 pins=$3
failed=0

# Prints "RECORD FIELD DECLARATION" for each field and "RECORD" for each record, from headers without comments.
fields() {
  awk '
    function bad(what) { print "! " what ": " $0 }
    !inside && /(struct|union)[^;()]*\{/ {
      inside = 1; count = 0
      if (!/^typedef (struct|union) [a-zA-Z_0-9]+ \{$/) bad("not the usual head of a record")
      next
    }
    inside && /^\} [a-zA-Z_0-9]+;$/ {
      record = $2; sub(/;/, "", record)
      print record
      for (i = 0; i < count; i++) print record, names[i], texts[i]
      inside = 0; next
    }
    inside {
      if (/[{}]/) bad("a record within a record")
      text = text " " $0
      if (!/;$/) next
      name = text
      if (match(text, /\(\*[a-z_0-9]+\)/)) name = substr(text, RSTART + 2, RLENGTH - 3)
      else {
        if (text ~ /[,:]/) bad("several fields in one declaration, or bits")
        gsub(/\[[^]]*\]|;/, "", name); sub(/.*[ *]/, "", name)
      }
      names[count] = name; texts[count++] = text; text = ""
    }'
}

found=$(for header in "$include"/kelo_utils/*.h; do
  "$cc" -w -fpreprocessed -dD -E -P -x c "$header" | sed 's/ *$//' | fields
done)
if grep '^!' <<< "$found"; then failed=1; fi
if grep -E ' .*\b(long|off_t|time_t|clock_t|timespec|timeval|itimerspec|mode_t|wchar_t|enum)\b' <<< "$found"; then
  echo "a type whose size varies is in a public record" && failed=1
fi

listed=$(sed -nE 's/^PIN_SIZE\(([a-zA-Z_0-9]+),.*/\1/p; s/^PIN_FIELD\(([a-zA-Z_0-9]+), ([a-z_0-9]+),.*/\1 \2/p' "$pins" | sort)
declared=$(grep -v '^!' <<< "$found" | awk '{ print $1 ($2 ? " " $2 : "") }' | sort)
if ! diff <(printf '%s\n' "$listed") <(printf '%s\n' "$declared"); then
  echo "'<' is pinned and not declared, '>' is declared and not pinned" && failed=1
fi
echo "$(grep -vc ' ' <<< "$declared") records with $(grep -c ' ' <<< "$declared") fields"
exit "$failed"
