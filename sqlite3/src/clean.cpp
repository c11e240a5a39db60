#include "sqlite3/src/clean.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/file.hpp"
#include "base/lock.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/copy.hpp"
#include "sqlite3/src/mutex.hpp"
#include "sqlite3/src/sql.hpp"

namespace {

using namespace kelo::store;

constexpr char kCaller[] = "dm_sqlite_clean";
constexpr int kKeptCopies = 3;

using Output = std::array<char, 512>;
using MaintenanceCommand = FixedText<2 * std::tuple_size_v<Output>>;  // room for a found path twice

bool run(const MaintenanceCommand& command) {
  Output output{};
  return dm_sqlite_system_cmd(command.c_str(), output.data(), output.size() - 1) == 0;
}

// How many files under the backup directory are taken for kept copies; nothing when they could not be
// counted.
bool count_copies(int& count) {
  std::array<char, 8> output{};
  const MaintenanceCommand find("find %s -name \"*.db*\" | wc -l", db_rst_bak);
  if (dm_sqlite_system_cmd(find.c_str(), output.data(), output.size() - 1) != 0) return false;
  count = static_cast<int>(std::strtol(output.data(), nullptr, 10));
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "-----------------Get db num:%d---------------\n", count);
  return true;
}

// Makes copy `number` the copy one below it, whose place is cleared first. Numbers have one digit.
bool renumber_copy(int number) {
  if (!run(MaintenanceCommand("rm %s*.db%d", db_rst_bak, number - 1))) return false;
  Output path{};
  const MaintenanceCommand find("find %s -name \"*.db%d\"", db_rst_bak, number);
  if (dm_sqlite_system_cmd(find.c_str(), path.data(), path.size() - 1) != 0) return false;
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
  const kelo::base::Descriptor directory =
      kelo::base::open_file("/mnt/vendor/nvdata/", O_RDONLY | O_DIRECTORY);
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

// What a crash left of a copy must not come back as the database that the next start finds.
void finish_interrupted_copies() {
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK}) undo_interrupted_copy(path);
}

bool delete_databases() {
  const struct {
    const char* path;
    const char* which;
  } files[] = {{DB_CONFIG, ""}, {DB_CONFIGBAK, "bak "}, {DB_STATE, "state "}};
  for (const auto& file : files) {
    if (unlink(file.path) == 0) continue;
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "unlink %serror: %s\n", file.which, std::strerror(errno));
    return false;
  }
  return true;
}

}  // namespace

int dm_sqlite_clean(const char* backup) {
  int count = 0;
  if (!count_copies(count)) return -1;
  const kelo::base::LockGuard lock(sqlite_mutex);
  finish_interrupted_copies();
  if (backup == nullptr) {
    KELO_LOG(LOG_LVL_DBUG, "just clean database no need backup\n");
  } else if (!keep_copy(count)) {
    return -1;
  }
  return delete_databases() ? 0 : -1;
}

int kelo::store::clean_slot(const char* backup, int /*one*/, std::int32_t* clean_flag) {
  const int result = dm_sqlite_clean(backup);
  if (clean_flag != nullptr) std::atomic_ref<std::int32_t>(*clean_flag).store(0, std::memory_order_release);
  return result;
}
