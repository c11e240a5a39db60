# SPDX-License-Identifier: MIT
# The names that the library exports, each with its version node, from the list of exports. The variable `node` is the
# node of the first ones.
BEGIN { print node "@" node }
/^# optional additions$/ { node = node "_ADDITIONS"; print node "@" node }
/^[A-Za-z_]/ { print $0 "@" node }
