// SPDX-License-Identifier: MIT
// Looks at the store's files and damages them.
#include "tools/demo/store_files.hpp"

#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tools/demo/claims.hpp"

namespace kelo::demo {
namespace {

namespace fs = std::filesystem;

// Lines worth reading in a demo: repairs, versions and what the journal said, not every open and read.
constexpr std::string_view kTelling[] = {"damaged",      "ver_num",       "sqlite_ver",
                                         "read state",   "read item_key", "read primary",
                                         "no need sync", "corruption",    "Corruption"};

void print_telling(const char* line) {
  const std::string_view text(line);
  const std::size_t start = text.rfind(" | ");
  if (start == std::string_view::npos) return;
  std::string message(text.substr(start + 3));
  while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
  for (const std::string_view part : kTelling) {
    if (message.find(part) == std::string::npos) continue;
    tell("log: %s", message.c_str());
    return;
  }
}

int keep_first_cell(void* cell, int columns, char** values, char** /*names*/) {
  auto& kept = *static_cast<std::string*>(cell);
  if (kept == "-" && columns > 0 && values[0] != nullptr) kept = values[0];
  return 0;
}

}  // namespace

std::string peek(const std::string& database, const std::string& query) {
  const fs::path folder = "/tmp/peek";
  fs::remove_all(folder);
  fs::create_directory(folder);
  const fs::path copy = folder / fs::path(database).filename();
  std::error_code missing;
  fs::copy_file(database, copy, missing);
  fs::copy_file(database + "-journal", copy.string() + "-journal", missing);
  std::string cell = "-";
  sqlite3* db = nullptr;
  if (sqlite3_open(copy.c_str(), &db) == SQLITE_OK)
    sqlite3_exec(db, query.c_str(), keep_first_cell, &cell, nullptr);
  sqlite3_close(db);
  return cell;
}

std::string journal_state() {
  std::string state = peek(DB_STATE, "select state from state");
  if (state == std::to_string(WS_READY)) return "WS_READY (100)";
  if (state == std::to_string(WS_WRITE_DONE)) return "WS_WRITE_DONE (101)";
  if (state == std::to_string(WS_BACKUP_DONE)) return "WS_BACKUP_DONE (102)";
  return state;
}

void damage(const std::string& file, long offset) {
  std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
  stream.seekp(offset);
  for (auto left = static_cast<long>(fs::file_size(file)) - offset; left > 0; --left) stream.put('\xA5');
}

std::string file_text(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void show_store_log() {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_DBUG);
  set_print_interface(print_telling);
}

void hide_log() {
  kelo_set_log_tool_enable(0);
  set_print_interface([](const char*) {});
}

}  // namespace kelo::demo
