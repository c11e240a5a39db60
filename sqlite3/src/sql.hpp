// SPDX-License-Identifier: MIT
// The SQL texts of the configuration databases and the buffers for statements and commands.
// The texts are pointers, since arrays shared by the sources would need a table that the loader fills.
#ifndef KELO_SQLITE3_SQL_HPP
#define KELO_SQLITE3_SQL_HPP

#include "base/text_builder.hpp"

namespace kelo::store {

using base::FixedText;
using SqlText = FixedText<512>;
using CommandText = FixedText<128>;

namespace sql {

// Tables of items have the columns id, key, type, len, crc and value. The statements that store a row get the arguments
// table, key, type, len, id and crc, and the formats pick them by number.
inline constexpr const char* kCreateItems =
    "create table if not exists %s (id integer not null,key text not null,type integer not null,"
    "len integer not null,crc integer not null,value blob)";
inline constexpr const char* kUpdateItem =
    "update %1$s set id=%5$d, type=%3$d, len=%4$d, crc=%6$d,value=:1 where key='%2$s'";
inline constexpr const char* kInsertItem =
    "insert into %1$s (id, key, type, len, crc, value) values(%5$d, '%2$s',%3$d, %4$d, %6$d, ?)";
inline constexpr const char* kSelectRows = "select value,crc,key,id,type,rowid from %s";
inline constexpr const char* kSelectRow = "select 1 from %s where rowid=%d";
// This changes nothing and fails when the table cannot be written.
inline constexpr const char* kTryUpdate = "update %s set id=0,key=0,type=0,len=0,crc=0,value=0 where 0";
inline constexpr const char* kSelectItem = "select value,crc from %s where key='%s' limit 1";

// Tables of defaults have the columns key, type, len and value. A default has no id and no crc.
inline constexpr const char* kCreateDefaults =
    "create table if not exists %s (key text not null,type integer not null,len integer not null,value blob)";
inline constexpr const char* kUpdateDefault =
    "update %1$s set type=%3$d, len=%4$d, value=:1 where key='%2$s'";
inline constexpr const char* kInsertDefault =
    "insert into %s (key, type, len, value) values('%s', '%d', %d, ?)";
// These are prepared once for many rows.
inline constexpr const char* kUpdateDefaults = "update %s set type=?,len=?,value=? where key=?";
inline constexpr const char* kInsertDefaults = "insert into %s (type,len,value,key) values(?,?,?,?)";
inline constexpr const char* kSelectDefaults = "select type,len,value,key from %s";
inline constexpr const char* kSelectDefault = "select value,type from %s where key='%s' limit 1";

// The write journal has one row.
inline constexpr const char* kJournalTable = "state";
inline constexpr const char* kJournalKey = "write_state";
inline constexpr const char* kCreateJournal =
    "create table if not exists state (key text not null,item_table text not null,id integer not null,"
    "item_key text not null,type integer,len integer,state integer)";
inline constexpr const char* kUpdateJournal =
    "update state set item_table='%s',id=%d,item_key='%s',type=%d,len=%d,state=%d where key='write_state'";
inline constexpr const char* kInsertJournal =
    "insert into state (key,item_table,id,item_key,type,len,state) "
    "values('write_state','%s',%d,'%s',%d,%d,%d)";
inline constexpr const char* kSelectJournal =
    "select item_table,item_key,id,type,len,state from state where key='write_state'";

// These are for tables of any kind.
inline constexpr const char* kSelectExistence = "select 1 from %s where key='%s'";
inline constexpr const char* kSelectIdAndType = "select id,type from %s where key='%s' limit 1";
inline constexpr const char* kAddId = "alter table %s add column id integer";
inline constexpr const char* kAddType = "alter table %s add column type integer";
inline constexpr const char* kQuickCheck = "PRAGMA quick_check;";
// This locks the file until the connection is closed, and makes SQLite roll back an interrupted transaction.
inline constexpr const char* kBeginReading = "begin;PRAGMA schema_version";
// These find a key that has several rows, and delete all but the newest row of each key.
inline constexpr const char* kSelectDuplicate = "select key from %s group by key having count(*)>1 limit 1";
inline constexpr const char* kDeleteDuplicates =
    "delete from %s where rowid not in (select max(rowid) from %s group by key)";
inline constexpr const char* kSelectTables = "SELECT name FROM sqlite_master WHERE type='table';";
inline constexpr const char* kSelectExport = "select key, len, type, value from %s";

}  // namespace sql
}  // namespace kelo::store

#endif  // KELO_SQLITE3_SQL_HPP
