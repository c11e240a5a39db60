// Deletes the databases, after a dated copy where one is asked for.
#include "sqlite3/src/clean.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <tuple>

#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/shell.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr const char* kCaller = "dm_sqlite_clean";
constexpr int kKeptCopies = 3;

using Output = std::array<char, 512>;
using MaintenanceCommand = FixedText<2 * std::tuple_size_v<Output>>;  // holds a found path twice

// Runs a command and keeps the start of its output, terminated. Whether it was started.
bool run(const MaintenanceCommand& command, std::span<char> output) {
  return run_command(command.c_str(), output.first(output.size() - 1)).started;
}

bool run(const MaintenanceCommand& command) {
  Output output{};
  return run(command, output);
}

// Makes copy `number` the copy one below it, whose place is cleared first. Numbers have one digit.
bool renumber_copy(int number) {
  if (!run(MaintenanceCommand("rm %s*.db%d", db_rst_bak, number - 1))) return false;
  Output path{};
  const MaintenanceCommand find("find %s -name \"*.db%d\"", db_rst_bak, number);
  if (!run(find, path)) return false;
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "-----------------Get db name:%s-----------\n", path.data());
  const std::size_t length = std::strlen(path.data());
  if (length == 0) return true;
  constexpr std::size_t kDigitAndLineEnd = 2;
  path[length - std::min(length, kDigitAndLineEnd)] = '\0';
  return run(MaintenanceCommand("mv %s%d %s%d", path.data(), number, path.data(), number - 1));
}

// The copy is on storage before the databases go, so that a power cut cannot take both. Its name is the
// shell's, so the whole file system is synced.
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
  if (!run(MaintenanceCommand("cp -rf %s /mnt/vendor/nvdata/`date +%%Y-%%m-%%d_%%H_%%M_%%S`.db%d", DB_CONFIG,
                              number))) {
    return false;
  }
  sync_kept_copies();
  return true;
}

bool delete_databases() {
  const struct {
    const char* path;
    const char* which;
  } files[] = {{DB_CONFIG, ""}, {DB_CONFIGBAK, "bak "}, {DB_STATE, "state "}};
  for (const auto& file : files) {
    if (unlink(file.path) != 0) {
      KELO_LOG_AS(kCaller, LOG_LVL_ERR, "unlink %serror: %s\n", file.which, std::strerror(errno));
      return false;
    }
    // One after the other: a primary that came back after a power cut, beside no backup, would be half a clean.
    static_cast<void>(base::sync_directory_of(file.path));
  }
  return true;
}

}  // namespace

bool count_kept_copies(int& count) {
  std::array<char, 8> output{};
  if (!run(MaintenanceCommand("find %s -name \"*.db*\" | wc -l", db_rst_bak), output)) return false;
  count = static_cast<int>(std::strtol(output.data(), nullptr, 10));
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "-----------------Get db num:%d---------------\n", count);
  return true;
}

bool clean_databases(bool keep_a_copy, int kept_copies) {
  if (!keep_a_copy) {
    KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "just clean database no need backup\n");
  } else {
    // The copy is one file: what a cut transaction left in another would be missing in it.
    roll_back_cut_transaction(DB_CONFIG);
    if (!keep_copy(kept_copies)) return false;
  }
  return delete_databases();
}

}  // namespace kelo::store
