// SPDX-License-Identifier: MIT
// The clean: deletes the databases, after a dated copy of the primary when the caller wants one.
#include "sqlite3/src/clean.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <span>
#include <tuple>

#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/shell.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr const char* kCaller = "dm_sqlite_clean";
constexpr int kKeptCopies = 3;

using Output = std::array<char, 512>;
using MaintenanceCommand = FixedText<2 * std::tuple_size_v<Output>>;  // two paths that `find` has printed

// Runs a command, which is formatted as by printf(). Stores the first bytes of its output and a terminator. Returns
// whether it was started.
KELO_PRINTF(2, 3) bool run(std::span<char> output, const char* format, ...) {
  MaintenanceCommand command;
  va_list arguments;
  va_start(arguments, format);
  command.vprint(format, arguments);
  va_end(arguments);
  std::memset(output.data(), 0, output.size());
  return run_command(command.c_str(), output.first(output.size() - 1)).started;
}

// Deletes the copy with the number below `number` and gives that number to copy `number`. Numbers have one digit.
bool renumber_copy(int number) {
  Output output;
  if (!run(output, "rm %s*.db%d", db_rst_bak, number - 1)) return false;
  Output path;
  if (!run(path, "find %s -name \"*.db%d\"", db_rst_bak, number)) return false;
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "-----------------Get db name:%s-----------\n", path.data());
  const std::size_t length = std::strlen(path.data());
  if (length == 0) return true;
  constexpr std::size_t kDigitAndLineEnd = 2;
  path[length - std::min(length, kDigitAndLineEnd)] = '\0';
  return run(output, "mv %s%d %s%d", path.data(), number, path.data(), number - 1);
}

// The copy must be on storage before the databases are deleted, so that a power cut cannot take both. The shell has
// made up its name, so the whole file system is synced.
void sync_kept_copies() {
  const base::Descriptor directory = base::open_file("/mnt/vendor/nvdata/", O_RDONLY | O_DIRECTORY);
  if (directory) syncfs(directory.get());
}

bool keep_copy(int count) {
  int number = count + 1;
  if (count >= kKeptCopies) {
    for (int i = 2; i <= count; ++i) {
      if (!renumber_copy(i)) return false;
    }
    number = count;
  }
  Output output;
  if (!run(output, "cp -rf %s /mnt/vendor/nvdata/`date +%%Y-%%m-%%d_%%H_%%M_%%S`.db%d", primary_path(),
           number))
    return false;
  sync_kept_copies();
  return true;
}

bool delete_databases() {
  const struct {
    const char* path;
    const char* log_word;
  } files[] = {{primary_path(), ""}, {backup_path(), "bak "}, {journal_path(), "state "}};
  for (const auto& file : files) {
    if (unlink(file.path) != 0) {
      KELO_LOG_AS(kCaller, LOG_LVL_ERR, "unlink %serror: %s\n", file.log_word, std::strerror(errno));
      return false;
    }
    // Each deletion is synced before the next: after a power cut there must not be a primary without its backup.
    static_cast<void>(base::sync_directory_of(file.path));
  }
  return true;
}

}  // namespace

bool count_kept_copies(int& count) {
  std::array<char, 8> output;
  if (!run(output, "find %s -name \"*.db*\" | wc -l", db_rst_bak)) return false;
  count = static_cast<int>(std::strtol(output.data(), nullptr, 10));
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "-----------------Get db num:%d---------------\n", count);
  return true;
}

bool clean_databases(bool keep_a_copy, int kept_copies) {
  if (!keep_a_copy) {
    KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "just clean database no need backup\n");
  } else {
    // Only the database file is copied, so the journal of an interrupted transaction must be rolled back first.
    roll_back_cut_transaction(primary_path());
    if (!keep_copy(kept_copies)) return false;
  }
  return delete_databases();
}

}  // namespace kelo::store
