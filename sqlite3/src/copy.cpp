#include "sqlite3/src/copy.hpp"

#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include <array>
#include <cstdio>
#include <string_view>

#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

using base::Descriptor;
using PathText = FixedText<DM_SQLITE_PATH_SIZE + 16>;

PathText previous_of(const char* target) { return PathText("%s-previous", target); }

// substr() would bring in the C++ run time.
std::string_view directory_of(std::string_view path) { return {path.data(), path.rfind('/') + 1}; }

bool is_file_of(const char* path, const Descriptor& descriptor) {
  struct stat named {};
  struct stat opened {};
  return stat(path, &named) == 0 && fstat(descriptor.get(), &opened) == 0 && named.st_dev == opened.st_dev &&
         named.st_ino == opened.st_ino;
}

bool same_size(const char* path, const char* other) {
  struct stat first {};
  struct stat second {};
  return stat(path, &first) == 0 && stat(other, &second) == 0 && first.st_size == second.st_size;
}

// Waits as long for another process's copy as SQLite does for its locks.
bool lock_within_patience(const Descriptor& file) {
  constexpr timespec kPause = {0, 10'000'000};
  constexpr int kPauses = 500;
  for (int pause = 0; pause < kPauses; ++pause) {
    if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) return true;
    nanosleep(&kPause, nullptr);
  }
  return false;
}

// Moves what the target holds out of the way, locked. The lock is taken before the move: whoever finds the
// file under its second name, unlocked, knows that its copy was interrupted.
Descriptor set_aside(const char* target, const char* previous) {
  Descriptor held = base::open_file(target, O_RDONLY);
  if (held && lock_within_patience(held) && std::rename(target, previous) == 0) return held;
  return {};
}

}  // namespace

void copy_database(const char* source, const char* target) {
  const PathText previous = previous_of(target);
  // Where nothing can be set aside (no such file yet, a directory that is not ours) the copy is made in
  // place.
  const Descriptor held = set_aside(target, previous.c_str());
  const CommandText command("cp %s %s", source, target);
  std::array<char, 512> output{};
  dm_sqlite_system_cmd(command.c_str(), output.data(), output.size() - 1);
  if (const Descriptor copy = base::open_file(target, O_RDONLY)) fsync(copy.get());
  if (!held) return;
  if (same_size(source, target)) {
    unlink(previous.c_str());
  } else {
    std::rename(previous.c_str(), target);
  }
}

void undo_interrupted_copy(const char* target) {
  const PathText previous = previous_of(target);
  const Descriptor left_over = base::open_file(previous.c_str(), O_RDONLY);
  if (!left_over || !lock_within_patience(left_over)) return;
  // A copy that ended while it was waited for has removed the file or given it its first name back.
  if (is_file_of(previous.c_str(), left_over)) std::rename(previous.c_str(), target);
}

void sync_directory_of(const char* path) {
  const std::string_view directory = directory_of(path);
  const PathText name("%.*s", static_cast<int>(directory.size()), directory.data());
  base::sync_directory(name.c_str());
}

bool same_directory(const char* path, const char* other) { return directory_of(path) == directory_of(other); }

}  // namespace kelo::store
