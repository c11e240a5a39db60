# SPDX-License-Identifier: MIT
# Compares the texts of the log in docs/messages.md with those in the sources, in both directions.
# Usage: awk -f messages.awk SOURCE... messages.md. With -v list=1 it also prints the formats that have no other spelling
# on the page. In the sources, the following texts are found:
#   - the format of every ..._LOG() and KELO_LOG_AS() with its level;
#   - "%s param NULL", which param_null() logs in one place;
#   - what is printed on standard output or standard error, with the level "printed".
# The name under which a text is logged is compared where the source tells it: a function, a literal or a constant.
# On the page, a word in capital letters or a number is the value of a conversion. A text that the page must spell in
# another way is listed here with the reason.
BEGIN {
  # One format logs the lines of all repairs. Its three parts are the kind of the repair and two names.
  spelled("error", "%s %s %s", "ERROR: cp PRIMARY BACKUP")
  spelled("error", "%s %s %s", "ERROR: cp BACKUP PRIMARY")
  spelled("error", "%s %s %s", "ERROR: cp SOURCE TARGET")
  spelled("error", "%s %s %s", "ERROR: cp /kelonvbak/data/config.db PRIMARY")
  spelled("error", "%s %s %s", "error: DB_CONFIG is damaged cp BACKUP PRIMARY")
  spelled("error", "%s %s %s", "error: DB_CONFIG is damaged so cp /kelonvbak/data/config.db PRIMARY")
  # The conversion is a word that depends on the kind of the row, the file, the coding or the result, or is nothing.
  spelled("error", "[%d] sqlite3_prepare error, %s%d", "[LINE] sqlite3_prepare error, rc: CODE")
  spelled("error", "[%d] sqlite3_prepare error, %s%d", "[LINE] sqlite3_prepare error, CODE")
  spelled("error", "[%d] bind_blob error, %s%d", "[LINE] bind_blob error, rc: CODE")
  spelled("error", "[%d] bind_blob error, %s%d", "[LINE] bind_blob error, CODE")
  spelled("error", "unlink %serror: %s", "unlink error: REASON")
  spelled("error", "unlink %serror: %s", "unlink bak error: REASON")
  spelled("error", "unlink %serror: %s", "unlink state error: REASON")
  spelled("debug", "USSD DCS %s str, hi %d lo %d: %.*s", "USSD DCS 7-bit str, hi NUMBER lo NUMBER: MESSAGE")
  spelled("debug", "USSD DCS %s str, hi %d lo %d: %.*s", "USSD DCS 8-bit str, hi NUMBER lo NUMBER: MESSAGE")
  spelled("debug", "USSD DCS %s str, hi %d lo %d: %.*s", "USSD DCS UCS2 str, hi NUMBER lo NUMBER: MESSAGE")
  spelled("debug", "ussd string size%s = %d", "ussd string size = SIZE")
  spelled("debug", "ussd string size%s = %d", "ussd string size preceded by language = SIZE")
  spelled("debug", ">>>ping status:%s>>>", ">>>ping status:success>>>")
  spelled("debug", ">>>ping status:%s>>>", ">>>ping status:fail>>>")
  # A statement, or SQLite's answer to it: the page shows the ones that come.
  spelled("warning", "szSql %s", "szSql select id,type from TABLE where key='KEY' limit 1")
  spelled("warning", "szSql %s", "szSql alter table TABLE add column id integer")
  spelled("warning", "szSql %s", "szSql alter table TABLE add column type integer")
  spelled("warning", "%s", "no such column: id")
  spelled("warning", "%s", "no such column: type")
  spelled("debug", "szSql %s", "szSql select item_table,item_key,id,type,len,state from state where key='write_state'")
  # The conversion is a constant of the source: a name, a path, or an empty text.
  spelled("error", "%s param invald", "dm_write_def_db param invald")
  spelled("error", "%s def value:%x not register!", "oem_dm_read_db def value:ID not register!")
  spelled("error", "can't not match %s", "can't not match project")
  spelled("debug", "open %s fail.", "open /dev/kelo_irig_b_config fail.")
  spelled("error", "Can't map iface name(%s) to index", "Can't map iface name() to index")
  # The line of every refused argument, and the functions that have a row of their own.
  spelled("error", "%s param NULL", "FUNCTION param NULL")
  spelled("error", "%s param NULL", "dm_write_def_db param NULL")
  spelled("error", "%s param NULL", "kelo_write_msg2file param NULL")
  spelled("error", "%s param NULL", "kelo_write_msg2file_ex param NULL")
  spelled("error", "%s param NULL", "oem_watch param NULL")
  # The line has nothing but a line of a command's output: the row of "len=SIZE,SIZE" describes it.
  spelled("debug", "%.*s", "")

  conversion = "%[-+ #0]*[0-9.*]*(hh|h|ll|l|z|j|t)?[a-zA-Z]"
  value = "([A-Z][A-Z0-9]*|-?[0-9]+)"
  split("DBUG debug INFO info WRN warning ERR error CRT critical", words, " ")
  for (i = 1; i in words; i += 2) level_name["LOG_LVL_" words[i]] = words[i + 1]
}

function spelled(level, format, text) {
  instead[level, format, ++instead_count[level, format]] = text
  if (text != "") in_source[level, text] = 1
}

function wrong(text) {
  print text
  failed = 1
}

function trimmed(text) {
  gsub(/^[ \t\r\n]+|[ \t\r\n]+$/, "", text)
  return text
}

# The texts that fit a format, as a regular expression.
function pattern_of(format, result, character) {
  result = "^"
  while (format != "") {
    if (match(format, conversion) == 1) {
      result = result value
      format = substr(format, RLENGTH + 1)
      continue
    }
    character = substr(format, 1, 1)
    result = result (character ~ /[A-Za-z0-9 ]/ ? character : character == "^" ? "\\^" : "[" character "]")
    format = substr(format, 2)
  }
  return result "$"
}

# The string literals at the beginning of `code`, joined, or the literals of the constant that is there.
function literal(code, result, found) {
  code = trimmed(code)
  if (match(code, /^[A-Za-z_]+[,)]/)) code = constant[substr(code, 1, RLENGTH - 1)]
  result = ""
  found = 0
  while (match(code, /^"([^"\\]|\\.)*"/)) {
    result = result substr(code, 2, RLENGTH - 2)
    code = trimmed(substr(code, RLENGTH + 1))
    found = 1
  }
  if (!found) return "\001"
  gsub(/\\n/, "\n", result)
  gsub(/\\r/, "\r", result)
  gsub(/\\"/, "\"", result)
  return result
}

function add_source_text(level, text, name, lines, count, i) {
  count = split(text, lines, "\n")
  for (i = 1; i <= count; ++i) {
    text = trimmed(lines[i])
    if (text == "") continue
    if (name != "") name_place[level, text, name] = place
    if ((level, text) in formats) continue
    formats[level, text] = place
    pattern[level, text] = pattern_of(text)
    patterns_of[level] = patterns_of[level] "\n" text
  }
}

# The name that the macro at the beginning of `code` gives to its line, or nothing where only the caller knows it.
function name_of(code, macro, argument) {
  macro = substr(code, 1, index(code, "(") - 1)
  if (macro == "KELO_LOG") return current_function
  if (macro in name_of_macro) return name_of_macro[macro]
  argument = substr(code, length(macro) + 2)
  sub(/,.*/, ",", argument)
  argument = literal(argument)
  return argument == "\001" ? "" : argument
}

function read_statement(code, level, text, name) {
  if (match(code, /[A-Z][A-Z_]*LOG(_AS)?\(/)) {
    code = substr(code, RSTART)
    name = name_of(code)
    code = substr(code, index(code, "(") + 1)
    if (match(code, /LOG_LVL_[A-Z]+,/)) {
      level = level_name[substr(code, RSTART, RLENGTH - 1)]
      text = literal(substr(code, RSTART + RLENGTH))
      if (level != "" && text != "\001") {
        add_source_text(level, text, name)
        return
      }
    } else if (match(code, /, level,/)) {
      text = literal(substr(code, RSTART + RLENGTH))
      if (text != "\001") {
        of_any_level[text] = place
        return
      }
    }
    wrong(place ": the level or the text of this line was not found")
  } else if (match(code, /printf\(std(out|err),/) || match(code, /fputs\(/)) {
    text = literal(substr(code, RSTART + RLENGTH))
    if (text != "\001") add_source_text("printed", text)
  }
}

# --- The sources --------------------------------------------------------------------------------------------

FNR == 1 {
  if (statement != "") wrong(place ": the end of this line was not found")
  statement = ""
  section = ""
  texts_column = 0
}

FILENAME !~ /\.md$/ {
  line = $0
  sub(/^[ \t]*\/\/.*/, "", line)
  sub(/[;{}][ \t]*\/\/.*/, ";", line)
  count = split(line, words, /[^A-Za-z0-9_]+/)
  for (i = 1; i <= count; ++i) named[words[i]] = 1
  # A wrapper of the macros is found by its name.
  if (line ~ /^#/) {
    if (match(line, /KELO_LOG_AS\("[A-Za-z_]+"/)) {
      split(line, words, /[ (]+/)
      name_of_macro[words[2]] = substr(line, RSTART + 13, RLENGTH - 14)
    }
    if (line ~ /KELO_LOG/ && line ~ /^# *define/ && line !~ /^#define [A-Z_]*LOG(_AS)?\(/ && line !~ /_(HPP|SIZE)/)
      wrong(FILENAME ":" FNR ": the name of a macro that logs ends with LOG")
    next
  }
  if (line ~ /(^|[^a-z_])(emit|emit_error|emit_debug|kelo_log_printf)\(/ && FILENAME !~ /^(log|additions)\//)
    wrong(FILENAME ":" FNR ": it logs without a macro")
  # The function whose body the line belongs to.
  if (line ~ /^[A-Za-z].*[A-Za-z0-9_]\(/ && line !~ /^static_assert|;[ \t]*$/) {
    current_function = substr(line, 1, index(line, "(") - 1)
    sub(/.*[^A-Za-z0-9_]/, "", current_function)
  }
  # A template takes the level of its lines as an argument.
  if (match(line, /<LOG_LVL_[A-Z]+>/)) any_level[level_name[substr(line, RSTART + 1, RLENGTH - 2)]] = 1
  if (match(line, /constexpr (char|const char\*) [A-Za-z_]+(\[\])? = "/)) {
    split(substr(line, RSTART, RLENGTH), words, /[ \[]+/)
    constant[words[2] == "char" ? words[3] : words[4]] = substr(line, RSTART + RLENGTH - 1)
  }
  if (statement == "") {
    if (line !~ /[A-Z]_?LOG(_AS)?\(|printf\(std(out|err),|fputs\("/) next
    place = FILENAME ":" FNR
  }
  statement = statement line
  if (line !~ /;[ \t}]*$/) next
  read_statement(statement)
  statement = ""
  next
}

# --- The page -----------------------------------------------------------------------------------------------

# All sources have been read before the page.
FNR == 1 {
  for (text in of_any_level) {
    place = of_any_level[text]
    for (level in any_level) add_source_text(level, text)
  }
}

/^#/ { section = $0 }
/^[^|]/ || /^$/ { texts_column = 0 }
/^\| Text \| (Level|Printed by) \|/ {
  texts_column = 1
  printed = $0 ~ /Printed by/
  has_names = $0 ~ /\| Name \|/
  next
}
!texts_column || /^\|---/ { next }

{
  split($0, cells, / \| /)
  text_cell = substr(cells[1], 3)
  # Names and files beside the texts are no texts.
  gsub(/ (under|with|of) .*/, "", text_cell)
  count = split(printed ? "printed" : cells[2], levels, /[^a-z]+/)
  row_names = has_names && cells[3] ~ /`/ ? cells[3] : ""
  gsub(/oem/, "kelo", row_names)
  span_count = substr(text_cell, 1, 1) == "`" ? split(cells[1], spans, "`") : 0
  for (s = 2; s <= span_count; s += 2) {
    if (s > 2 && spans[s - 1] ~ /(^| )(under|with|of) /) break
    for (l = 1; l <= count; ++l) {
      if (levels[l] == "printed" || levels[l] in is_level) check_row(levels[l], spans[s])
    }
    ++texts
  }
  if (!has_names) next
  span_count = split(cells[3], spans, "`")
  for (s = 2; s <= span_count; s += 2) {
    name = spans[s]
    gsub(/oem/, "kelo", name)
    if (!(name in named) && !(spans[s] in named)) wrong("messages.md:" FNR ": no source has the name " spans[s])
  }
}

BEGIN { for (i in level_name) is_level[level_name[i]] = 1 }

# A row of the overview at the beginning does not replace the row with the meaning.
function check_row(level, text, candidates, count, i, found) {
  found = (level, text) in in_source
  if (found && section !~ /healthy device/) on_page[level, text] = on_page[level, text] row_names
  count = split(patterns_of[level], candidates, "\n")
  for (i = 2; i <= count; ++i) {
    if (instead_count[level, candidates[i]] || text !~ pattern[level, candidates[i]]) continue
    found = 1
    if (section !~ /healthy device/) {
      matched[level, candidates[i]] = matched[level, candidates[i]] row_names
      if (row_names == "") any_name[level, candidates[i]] = 1
    }
  }
  if (!found) wrong("messages.md:" FNR ": no source has, with the level " level ": " text)
}

END {
  for (key in formats) {
    split(key, parts, SUBSEP)
    ++total
    if (list && !instead_count[key]) print parts[2]
    for (i = 1; i <= instead_count[key]; ++i) {
      if (instead[key, i] != "" && !((parts[1], instead[key, i]) in on_page))
        wrong(formats[key] ": not in messages.md with the level " parts[1] ": " instead[key, i])
    }
    if (!instead_count[key] && !(key in matched))
      wrong(formats[key] ": not in messages.md with the level " parts[1] ": " parts[2])
  }
  for (key in name_place) {
    split(key, parts, SUBSEP)
    name = parts[3]
    gsub(/oem/, "kelo", name)
    if (!((parts[1], parts[2]) in matched) || (parts[1], parts[2]) in any_name) continue
    if (!index(matched[parts[1], parts[2]], "`" name "`"))
      wrong(name_place[key] ": not in messages.md under the name " parts[3] ": " parts[2])
  }
  for (key in instead_count) {
    split(key, parts, SUBSEP)
    if (instead_count[key] && !(key in formats))
      wrong("messages.awk: no source has this format of the level " parts[1] ": " parts[2])
  }
  if (total < 250) wrong("only " total + 0 " texts were found in the sources")
  if (!failed) print texts " texts on the page, " total " formats in the sources"
  exit failed
}
