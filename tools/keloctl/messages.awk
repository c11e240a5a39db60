# SPDX-License-Identifier: MIT
# Prints the tables of docs/messages.md in the form that "keloctl log explain" reads. Usage: awk -f messages.awk messages.md
# Each line has fields that are separated by tabs:
#   text, level, names, harmless (yes, no or depends), text of the log, meaning
#   code, result code of SQLite, meaning
# In a text, each part that changes is a word in braces.
BEGIN {
  # These capitals belong to the texts, as names with an underscore do.
  count = split("CHECK CMD CR DCS EOF ERROR FAILED FATAL GSM IP NULL PARAM SETING SIGKILL SIGUSR1 UCS2 USC2 USSD UTF8 UTF16", words, " ")
  for (i = 1; i <= count; ++i) is_literal[words[i]] = 1
}

function with_marked_parts(text, result, word) {
  if (text ~ /[{}\t]/) {
    print FILENAME ":" FNR ": a text must have no brace and no tab" > "/dev/stderr"
    failed = 1
  }
  while (match(text, /[A-Z][A-Z0-9_]*/)) {
    word = substr(text, RSTART, RLENGTH)
    if (length(word) > 1 && word !~ /_/ && !(word in is_literal)) word = "{" word "}"
    result = result substr(text, 1, RSTART - 1) word
    text = substr(text, RSTART + RLENGTH)
  }
  return result text
}

# A text of the page without its marks.
function plain(text, target, words) {
  gsub(/`/, "", text)
  while (match(text, /\[[^]]*\]\([^)]*\)/)) {
    split(substr(text, RSTART, RLENGTH), words, /\[|\]/)
    text = substr(text, 1, RSTART - 1) words[2] substr(text, RSTART + RLENGTH)
  }
  return text
}

function capitalised(text) { return toupper(substr(text, 1, 1)) substr(text, 2) }

function names_in(cell, words, result, i) {
  result = ""
  for (i = split(cell, words, "`") - 1; i >= 2; i -= 2) result = words[i] (result == "" ? "" : ", ") result
  return result
}

# Some rows refer to the one before them.
function in_full(meaning, first) {
  if (meaning !~ /^The same[ .]/) {
    first = meaning
    if (match(first, /\. /)) first = substr(first, 1, RSTART)
    meant_before = first
  } else if (!sub(/^The same\./, meant_before, meaning)) {
    meaning = meant_before " " meaning
  }
  return meaning
}

function harm_of(meaning) {
  if (meaning ~ /Harmless(\.|, although| in both cases)/) return "yes"
  return meaning ~ /[Hh]armless/ ? "depends" : "no"
}

/^[^|]/ || /^$/ { table = "" }
/^\| Text \| Level \| When \|/ { next }
/^\| Text \| / {
  table = /Printed by/ ? "printed" : /\| Name \|/ ? "named" : "unnamed"
  next
}
/^\| CODE \| Meaning \| What to do \|/ { table = "codes"; next }
table == "" || /^\|---/ { next }

{ split(substr($0, 3), cells, / *\| */) }

table == "codes" {
  codes = split(cells[1], words, ", ")
  for (i = 1; i <= codes; ++i) print "code\t" words[i] "\t" plain(cells[2]) " " capitalised(plain(cells[3]))
  next
}

# The text that the page shows is the one that comes: words after it tell where.
cells[1] ~ /^`/ {
  meaning = in_full(plain(cells[table == "named" ? 4 : 3]))
  level = table == "printed" ? "printed" : plain(cells[2])
  names = table == "named" && cells[3] !~ /^as / ? names_in(cells[3]) : ""
  spans = split(cells[1], words, "`")
  for (i = 2; i <= spans; i += 2) {
    if (i > 2 && words[i - 1] ~ /(^| )(under|with|of) /) break
    print "text\t" level "\t" names "\t" harm_of(meaning) "\t" with_marked_parts(words[i]) "\t" meaning
  }
}

END { exit failed }
