#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Does what pages say, as a reader would, in one session. Usage: follow.sh TREE PAGE...
# It runs in the sandbox. TREE is what was installed, such as /usr of a machine; it is used as a copy, so that nothing
# depends on its place.
#
# A block of C whose first line is /* NAME */ is written into the file NAME. In a block of the kind "console" the lines that
# begin with "$ " are commands. A command goes on in the next line, which begins with "> ", after a backslash. The lines
# after it are all that it prints. There "..." stands for any text within a line, and a line "..." for any lines.
set -euo pipefail
tree=$1
shift
work=/tmp/follow
mkdir -p "$work/session"
cp -a "$tree" "$work/tree"
library=$(find "$work/tree" -name libkelo_utils.so -printf '%h\n')
sed -i "s|^prefix=.*|prefix=$work/tree|" "$library"/pkgconfig/*.pc
export PATH=$work/tree/bin:$PATH PKG_CONFIG_PATH=$library/pkgconfig LD_LIBRARY_PATH=$library CMAKE_PREFIX_PATH=$work/tree
unset PKG_CONFIG_SYSROOT_DIR PKG_CONFIG_LIBDIR LDFLAGS CC CXX
cd "$work/session"

# steps PAGE: its steps, each as its line number and a record that ends with NUL: "file NAME" or "run COMMAND", and then the
# content of the file or what the command prints.
steps() {
  awk '
    function end_step() { if (step != "") printf "%s%s%c", step, rest, 0; step = rest = "" }
    /^```/ { end_step(); kind = kind == "" ? substr($0, 4) : ""; begins = 1; next }
    kind == "c" && begins && /^\/\* [a-z_.]+ \*\/$/ { step = FNR " file " $2 "\n" }
    kind == "console" && /^\$ / { end_step(); step = FNR " run " substr($0, 3) "\n"; next }
    kind == "console" && /^> / && step ~ /\\\n$/ { sub(/\\\n$/, "", step); step = step substr($0, 3) "\n"; next }
    step != "" { rest = rest $0 "\n" }
    { begins = 0 }
  ' "$1"
}

# matches WANTED PRINTED: two files.
matches() {
  awk '
    function pattern(line) { gsub(/[][\\.^$*+?(){}|]/, "\\\\&", line); gsub(/\\\.\\\.\\\./, ".*", line); return "^" line "$" }
    NR == FNR { wanted[++lines] = $0; next }
    { printed[++count] = $0 }
    function fits(i, j) {
      if (i > lines) return j > count
      if (wanted[i] == "...") { for (; j <= count + 1; ++j) if (fits(i + 1, j)) return 1; return 0 }
      return j <= count && printed[j] ~ pattern(wanted[i]) && fits(i + 1, j + 1)
    }
    END { exit !fits(1, 1) }
  ' "$1" "$2"
}

failed=0
for page in "$@"; do
  done_steps=0
  while IFS= read -r -d '' step; do
    head=${step%%$'\n'*} body=${step#*$'\n'}
    read -r line kind what <<< "$head"
    if [ "$kind" = file ]; then
      printf '%s' "$body" > "$what"
    else
      printf '%s' "$body" > "$work/wanted"
      : > "$work/printed"
      # The session keeps its folder and its variables. A command of the page may fail.
      set +eu
      eval "$what" > "$work/printed" 2>&1 < /dev/null
      set -eu
      if ! matches "$work/wanted" "$work/printed"; then
        printf '%s:%s: %s\n' "$(basename "$page")" "$line" "$what"
        diff "$work/wanted" "$work/printed" || :
        failed=1
      fi
    fi
    done_steps=$((done_steps + 1))
  done < <(steps "$page")
  [ "$done_steps" -gt 0 ] || { echo "$page: there is nothing to do" && failed=1; }
  [ "$failed" -ne 0 ] || echo "$(basename "$page"): $done_steps steps work as it says"
done
exit "$failed"
