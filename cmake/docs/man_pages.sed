# SPDX-License-Identifier: MIT
# Makes a manual page of Doxygen one that is the same whatever the day, with the name it is looked up by.
s/^\(\.TH "\)\(kelo_utils\/\)\{0,1\}\([^"]*" 3\) "[^"]*"/\1\3 ""/
/^\.SH NAME/ {
  n
  s/^kelo_utils\///
  # Where manual pages are looked up by name, a name has no blanks.
  s/< [^>]* >//
}
# At the start of a line a quotation mark would begin a request to the formatter.
s/^'/\\\&'/
/^\.SH "Author"/ i\
.SH "SEE ALSO"\
.PP\
\\fBkelo_utils\\&.h\\fP(3) says what holds for every function\\&.
/^\.SH "Author"/,$ d
