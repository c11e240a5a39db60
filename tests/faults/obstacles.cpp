// SPDX-License-Identifier: MIT
// What is in the place of a file: things that are no file, and files that hold something else.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <random>

#include "kelo_utils/sqlite.h"
#include "tests/faults/fault.hpp"
#include "tools/crash/files.hpp"

namespace kelo::faults {
namespace {

namespace fs = std::filesystem;

using Make = void (*)(const std::string& path);

void run_sql(const std::string& path, const char* sql) {
  sqlite3* db = nullptr;
  const bool done = sqlite3_open(path.c_str(), &db) == SQLITE_OK &&
                    sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  if (!done) std::fprintf(stderr, "%s: %s\n", path.c_str(), sqlite3_errmsg(db));
  sqlite3_close(db);
  if (!done) std::_Exit(2);
}

void make_directory(const std::string& path) { fs::create_directory(path); }
void make_full_directory(const std::string& path) {
  fs::create_directory(path);
  std::ofstream(path + "/file") << "x";
}
void make_dangling_link(const std::string& path) { fs::create_symlink("/nowhere/file", path); }
void make_link_to_itself(const std::string& path) { fs::create_symlink(path, path); }
void make_fifo(const std::string& path) {
  if (mkfifo(path.c_str(), 0644) != 0) std::perror(path.c_str());
}
void make_empty(const std::string& path) { std::ofstream file(path); }
void make_random(const std::string& path) {
  std::ofstream file(path);
  std::mt19937 random(7);
  for (int byte = 0; byte < 9000; ++byte) file.put(static_cast<char>(random()));
}
void make_foreign(const std::string& path) { run_sql(path, "create table notes (line text)"); }
// Tables of the usual names with other columns.
void make_other_schema(const std::string& path) {
  run_sql(path,
          "create table wan (name text, number real); create table lan (name text);"
          "create table state (a, b); create table SQL_VER_TAB (v); create table wifi (a);"
          "insert into wan values ('apn', 1.5); insert into wifi values (1)");
}

struct Kind {
  const char* name;
  Make make;
};

constexpr Kind kObstacles[] = {
    {"directory", make_directory},
    {"full directory", make_full_directory},
    {"dangling link", make_dangling_link},
    {"link to itself", make_link_to_itself},
    {"FIFO", make_fifo},
};

constexpr Kind kContents[] = {
    {"0 bytes", make_empty},
    {"random bytes", make_random},
    {"foreign database", make_foreign},
    {"other schema", make_other_schema},
};

// The export ends the process at a table that has not the columns of settings.
bool has_other_columns(const Kind& kind) {
  return kind.make == make_foreign || kind.make == make_other_schema;
}

constexpr const char* kStoreFiles[] = {
    "/data/config.db",        "/data/configbak.db",         "/data/state.db",
    "/data/DefItems.db",      "/data/config.db-lock",       "/data/config.db-previous",
    "/data/config.db-new",    "/data/config.db-journal",    "/data/configbak.db-previous",
    "/data/configbak.db-new", "/data/configbak.db-journal", "/data/state.db-journal",
    "/data/ExportCSV.csv",    "/kelonvbak/data/config.db"};
constexpr const char* kParameterFiles[] = {
    "/data/kelo-resource/sqlite3/user_info.db",      "/data/kelo-resource/sqlite3/factory_info.db",
    "/data/kelo-resource/sqlite3/user_info.db-lock", "/data/kelo-resource/sqlite3/user_info.db-previous",
    "/data/kelo-resource/sqlite3/user_info.db-new",  "/data/kelo-resource/sqlite3/user_info.db-journal"};
constexpr const char* kIniFiles[] = {"/data/settings.ini", "/data/settings.in~"};

std::vector<std::string> files_of(const crash::History& history) {
  const auto all = [](const auto& files) {
    return std::vector<std::string>(std::begin(files), std::end(files));
  };
  if (history.name.starts_with("parameters")) return all(kParameterFiles);
  return history.name.starts_with("ini") ? all(kIniFiles) : all(kStoreFiles);
}

// Files of which there is no second copy. The others are lost where an obstacle took their place.
bool comes_back(const crash::History& history, const std::string& path) {
  if (history.name.find("repair") != std::string::npos) return true;
  constexpr const char* kKeptElsewhere[] = {"/config.db", "/configbak.db", "/state.db"};
  return path == "/kelonvbak/data/config.db" ||
         std::none_of(std::begin(kKeptElsewhere), std::end(kKeptElsewhere),
                      [&](const char* name) { return path.ends_with(name); });
}

// What a name stood for before.
struct Original {
  bool there;
  mode_t mode;
  std::string content;
  ino_t obstacle;
};

Original take_away(const std::string& path) {
  struct stat status {};
  Original original = {lstat(path.c_str(), &status) == 0, status.st_mode, crash::read_whole(path), 0};
  fs::remove(path);
  return original;
}

ino_t inode_of(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

void put_back(const std::string& path, const Original& original, bool comes_back) {
  if (inode_of(path) != original.obstacle) return;  // the library has put something else there
  fs::remove_all(path);
  if (!original.there || !comes_back) return;
  std::ofstream(path, std::ios::binary) << original.content;
  chmod(path.c_str(), original.mode & 07777);
}

Fault in_place_of(const crash::History& history, const std::string& path, const Kind& kind, bool stays) {
  Fault fault;
  fault.name = std::string(kind.name) + " in place of " + path;
  if (stays) fault.leaves = path;
  const auto original = std::make_shared<Original>();
  fault.begin = [=] {
    *original = take_away(path);
    kind.make(path);
    original->obstacle = inode_of(path);
  };
  fault.end = [=, comes_back = comes_back(history, path)] {
    if (!stays) put_back(path, *original, comes_back);
  };
  return fault;
}

// A second, older row of the first item, as an older release may have left it.
Fault duplicate_row(const std::string& path, const char* sql) {
  Fault fault;
  fault.name = "duplicate rows in " + path;
  fault.begin = [=] {
    if (fs::exists(path) && fs::file_size(path) > 0) run_sql(path, sql);
  };
  fault.end = [] {};
  return fault;
}

}  // namespace

std::vector<Fault> obstacle_faults(const crash::History& history, const Calls& /*calls*/) {
  std::vector<Fault> faults;
  for (const std::string& path : files_of(history)) {
    for (const Kind& kind : kObstacles) {
      // SQLite itself would wait at a FIFO in the place of its rollback journal.
      if (kind.make == make_fifo && path.ends_with("-journal")) continue;
      faults.push_back(in_place_of(history, path, kind, false));
    }
  }
  return faults;
}

std::vector<Fault> content_faults(const crash::History& history, const Calls& /*calls*/) {
  std::vector<Fault> faults;
  for (const std::string& path : files_of(history)) {
    for (const Kind& kind : kContents) {
      faults.push_back(in_place_of(history, path, kind, true));
      faults.back().may_end_process = history.name == "csv export" && has_other_columns(kind);
    }
  }
  if (files_of(history).front() != kStoreFiles[0]) return faults;
  for (const char* const path : {"/data/config.db", "/data/configbak.db"}) {
    faults.push_back(
        duplicate_row(path,
                      "create table if not exists wan (id integer not null,key text not null,"
                      "type integer not null,len integer not null,crc integer not null,value blob);"
                      "insert into wan select * from wan where key='apn'"));
  }
  faults.push_back(duplicate_row("/data/state.db", "insert into state select * from state"));
  return faults;
}

}  // namespace kelo::faults
