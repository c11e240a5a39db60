#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The operator's tool needs at run time what the library needs, and the library itself. On the device its size has a
# budget, too. Usage: keloctl.sh READELF PROGRAM MANUAL-PAGE [CROSS-PREFIX TEXT-BUDGET]
set -euo pipefail
readelf=$1 program=$2 page=$3 prefix=${4:-} budget=${5:-}
failed=0

needed=$("$readelf" -d "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
grep -qx 'libkelo_utils\.so\.0' <<< "$needed" || { echo "does not need the library" && failed=1; }
for name in $needed; do
  case $name in
    libkelo_utils.so.0 | libc.so | libc.so.* | ld-linux*.so.* | libsqlite3.so.*) echo "needs $name" ;;
    *) echo "needs $name, which it must not" && failed=1 ;;
  esac
done

if [ -n "$budget" ]; then
  stripped=$(mktemp)
  trap 'rm -f "$stripped"' EXIT
  "${prefix}strip" -o "$stripped" "$program"
  read -r text _ < <("${prefix}size" "$stripped" | tail -n 1)
  echo "text: $text of $budget bytes"
  [ "$text" -le "$budget" ] || { echo "$((text - budget)) bytes too many" && failed=1; }
fi

# Every command that the help lists is in the manual page and in the completion of both shells.
sources=$(dirname -- "$page")
while read -r group name; do
  grep -qE "^\.(B|BI|BR) +\"?$group${name:+ $name}([ \"]|\$)" "$page" || { echo "not in the manual page: $group $name" && failed=1; }
  for file in "$sources/keloctl.bash" "$sources/_keloctl"; do
    grep -qE "^ *$group\) choices=.*[\"( ]${name:-none}[\") ]" "$file" || [ -z "$name" ] \
      || { echo "not in $file: $group $name" && failed=1; }
    grep -qE " 0\) choices=.*[\"( ]${group}[\") ]" "$file" || { echo "not in $file: $group" && failed=1; }
  done
done < <(sed -n 's/^    {"\([a-z]*\)", "\([a-z0-9]*\)",.*/\1 \2/p' "$sources"/*.cpp)

# What bash completes.
completes() {
  local expected=$1
  shift
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
  _keloctl
  [ "${COMPREPLY[*]}" = "$expected" ] || { echo "completed $* as ${COMPREPLY[*]}" && failed=1; }
}
# shellcheck source=../../tools/keloctl/keloctl.bash
. "$sources/keloctl.bash"
keloctl() {
  [ "$1" != param ] || { printf 'parameter\t%s\n' 'wifi	ssid	text' 'wifi	channel	integer' && return; }
  printf 'item\t%s\n' 'net	apn	7' 'net	mtu	7' 'lan	name	7' && printf 'ok\ttrue\n'
}
completes "settings store" keloctl s
completes "list" keloctl --json settings l
completes "net.apn net.mtu" keloctl settings get n
completes "lan net" keloctl settings list ""
completes "--help --hex" keloctl settings get net.apn --he
completes "--yes" keloctl store repair --y
completes "wifi.ssid" keloctl param get wifi.s
completes "-f" keloctl log watch -f
exit "$failed"
