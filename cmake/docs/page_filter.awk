# SPDX-License-Identifier: MIT
# Prints a page in Markdown as Doxygen wants it. Usage: awk -f page_filter.awk PAGE
# Doxygen gives headings no names, finds pages by their path only where that has no blank and headers by their name
# alone, and takes quotation marks and percent signs in a code span for something else.

# The name that a link has after its '#', in this manual made unique by the name of its page.
function section(page, heading) {
  heading = tolower(heading)
  gsub(/[^a-z0-9 _-]/, "", heading)
  gsub(/ /, "-", heading)
  return page "-" heading
}

function name_of(path) {
  sub(/.*\//, "", path)
  sub(/\.md$/, "", path)
  return path
}

# Where Doxygen finds the target of a link; empty for a file that is no part of the manual.
function found_at(target, part) {
  if (target ~ /^https?:/) return target
  if (target ~ /^(docs\/)?[a-z_]*\.md$/) return "@ref page_" name_of(target)
  if (target ~ /include\/kelo_utils\/[a-z_]*\.h(pp)?$/) return "@ref " name_of(target)
  if (split(target, part, "#") == 2) return "@ref " section(part[1] == "" ? page : name_of(part[1]), part[2])
  return ""
}

# The text of a link may begin in the line before. One that leads to no part of the manual becomes plain text.
function links(line, before, target) {
  before = ""
  while (match(line, /\]\([^)]*\)/)) {
    target = found_at(substr(line, RSTART + 2, RLENGTH - 3))
    before = before substr(line, 1, RSTART - 1)
    line = substr(line, RSTART + RLENGTH)
    if (target ~ /^@ref/ && match(before, /\[`[^`]*`$/)) # Doxygen shows such quotation marks as they are
      before = substr(before, 1, RSTART) substr(before, RSTART + 2, RLENGTH - 3)
    if (target != "") before = before "](" target ")"
    else if (match(before, /\[[^[]*$/)) before = substr(before, 1, RSTART - 1) substr(before, RSTART + 1)
  }
  return before line
}

# A code span, in a form that Doxygen reads as it is meant.
function code(text, quotes) {
  quotes = text
  if (text !~ /['%]/ && gsub(/"/, "", quotes) % 2 == 0) return "`" text "`"
  gsub(/[\\%@#*_]/, "\\\\&", text)
  gsub(/--/, "\\--", text)
  gsub(/&/, "\\&amp;", text)
  gsub(/</, "\\&lt;", text)
  gsub(/"/, "\\&quot;", text)
  return "<code>" text "</code>"
}

function code_spans(line, part, count, i, result) {
  count = split(line, part, "`")
  if (count % 2 == 0) return line # a span that goes on in the next line
  result = part[1]
  for (i = 2; i <= count; i++) result = result (i % 2 == 0 ? code(part[i]) : part[i])
  return result
}

FNR == 1 { page = name_of(FILENAME) }
/^```/ { in_code = !in_code }
in_code || /^    / {
  print
  next
}
/^# / && page != "README" {
  print $0 " {#page_" page "}"
  next
}
/^##+ / {
  heading = $0
  sub(/^#+ */, "", heading)
  print $0 " {#" section(page, heading) "}"
  next
}
{ print links(code_spans($0)) }
