#!/bin/sh
# SPDX-License-Identifier: MIT
# Makes the parameter databases of a device from the SQL of their tables.
# Usage: provision.sh [--user] [--sql FILE] FOLDER
# FOLDER receives factory_info.db and, with --user, user_info.db as its copy; each is replaced as a whole, and neither
# when the SQL is not right. The tables come from factory.sql unless --sql names another file; it is beside this script, or
# below ../share where this is installed as kelo_provision. Each table must have one row.
set -eu

die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

user=no
sql=$(dirname -- "$0")/factory.sql
[ -e "$sql" ] || sql=$(dirname -- "$0")/../share/kelo-utils/factory.sql
while [ $# -gt 1 ]; do
  case $1 in
    --user) user=yes ;;
    --sql) sql=$2 && shift ;;
    *) die "no such option: $1" ;;
  esac
  shift
done
folder=${1-}
case $folder in "" | -*) die "for which FOLDER?" ;; esac
[ -r "$sql" ] || die "cannot read $sql"
command -v sqlite3 > /dev/null || die "the command-line tool sqlite3 is not installed"

# A user file that a device copies from the factory's gets its mode: the owner must be able to write both.
umask 022
mkdir -p -- "$folder"
new=$(mktemp -d -- "$folder/provision.XXXXXX")
trap 'rm -rf -- "$new"' EXIT
ask() { sqlite3 -batch -bail -init /dev/null "$new/factory_info.db" "$@"; }

ask < "$sql" || die "$sql is not right"
tables=$(ask "select name from sqlite_master where type = 'table' and name not like 'sqlite_%'")
[ -n "$tables" ] || die "$sql makes no table"
for table in $tables; do
  rows=$(ask "select count(*) from $table")
  [ "$rows" -eq 1 ] || die "table $table has $rows rows, not 1"
done

if [ "$user" = yes ]; then
  cp -- "$new/factory_info.db" "$new/user_info.db"
  mv -f -- "$new/user_info.db" "$folder/user_info.db"
  # The journal of a write that was cut off belongs to the old file.
  rm -f -- "$folder/user_info.db-journal"
fi
mv -f -- "$new/factory_info.db" "$folder/factory_info.db"
