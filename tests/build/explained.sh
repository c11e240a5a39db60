#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# "keloctl log explain" knows every text that the library logs: each format of the sources is filled in and explained.
# Usage: explained.sh KELOCTL TREE FOLDER..., the folders of the library's sources in the tree.
set -euo pipefail
# shellcheck source=tests/build/library_sources.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/library_sources.sh"
keloctl=$1
shift
find_sources "$@"
failed=0 count=0

# On the page these conversions have the one value that comes.
constant='s/(, rc=|WS_[A-Z_]* failed: )%d/\1-1/; s/(is_corrupted=|ret=|successfully result=)%d/\10/; s/cnt error %d/cnt error 3/
  s/for %d ms/for 5000 ms/; s/(upon opening|corruption detected)(.*Code: )%d/\1\211/; s/(message length:%d:%d:)%[a-z]*/\128/'
words='s/%[-+ #0]*[0-9.*]*(hh|h|ll|l|z|j|t)?[sc]/some words/g'
numbers='s/%[-+ #0]*[0-9.*]*(hh|h|ll|l|z|j|t)?[a-zA-Z]/7/g'
formats=$(LC_ALL=C awk -v list=1 -f "$messages_program" "${sources[@]}" docs/messages.md | sed '/ texts on the page, /d' \
  | sed -E "$constant; $words; $numbers")
while IFS= read -r text; do
  "$keloctl" log explain -- "$text" > /dev/null || { echo "not explained: $text" && failed=1; }
  count=$((count + 1))
done <<< "$formats"
[ "$count" -ge 200 ] || { echo "only $count texts were found" && failed=1; }
[ "$failed" -ne 0 ] || echo "$count texts are explained"
exit "$failed"
