// SPDX-License-Identifier: MIT
// The safe copy: the old content of the target exists until the new content is complete and synced.
#include "sqlite3/src/safe_copy.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "base/file.hpp"
#include "base/heap.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

using base::Descriptor;

// A path with a suffix. The path that a symbolic link leads to may be too long: such a file is not copied.
using PathWithSuffix = FixedText<256>;

struct stat status_of(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) {
    status.st_mode = 0;
    status.st_size = errno == ENOENT ? 0 : -1;
  }
  return status;
}

// The path of a file with symbolic links resolved. The target is set aside in the directory of the file itself.
class ResolvedPath {
 public:
  explicit ResolvedPath(const char* path) : path_(path) {
    char first = 0;
    if (readlink(path, &first, sizeof first) < 0) return;  // not a link
    resolved_.reset(realpath(path, nullptr));
    if (resolved_) path_ = resolved_.get();
  }
  [[nodiscard]] const char* c_str() const { return path_; }

 private:
  const char* path_;
  base::HeapPtr<char> resolved_;
};

// Calls `use` with the path of a file and a suffix, and returns its result. The buffer is here and not in the callers, of
// which each would take 60 bytes more on the device, also for the guard of its stack.
int use_with_suffix(const char* file, const char* suffix, int (*use)(const char* path)) {
  return use(PathWithSuffix("%s%s", ResolvedPath(file).c_str(), suffix).c_str());
}

// The paths of a copy: the target, its old content, and the new file for the target.
struct CopyNames {
  explicit CopyNames(const char* target)
      : file(target), previous("%s-previous", file.c_str()), replacement("%s-new", file.c_str()) {}

  ResolvedPath file;
  PathWithSuffix previous;
  PathWithSuffix replacement;
};

// After a crash at any moment one of two things is true. When there is no "-previous", the target is complete. When
// there is one, it has the old content. Each name is on storage before the step that relies on it.
//
// The copy writes into a new file with the name of the target. When a process has died and left its `cp` running, the
// undo gives that name back to the old file. So `cp` writes into a file that has no name any more.
bool set_target_aside(const CopyNames& names, const struct stat& old, bool& renamed) {
  unlink(names.replacement.c_str());
  Descriptor replacement = base::open_file(names.replacement.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (!replacement) return false;
  static_cast<void>(fchown(replacement.get(), old.st_uid, old.st_gid) == 0);
  static_cast<void>(fchmod(replacement.get(), old.st_mode & 07777));
  unlink(names.previous.c_str());
  renamed = false;
  if (link(names.file.c_str(), names.previous.c_str()) != 0) {
    // The file system has no hard links.
    if (rename(names.file.c_str(), names.previous.c_str()) != 0) return false;
    renamed = true;
  }
  if (!base::sync_directory_of(names.file.c_str())) return false;
  return rename(names.replacement.c_str(), names.file.c_str()) == 0;
}

void restore_previous(const CopyNames& names) {
  const struct stat previous = status_of(names.previous.c_str());
  if (!S_ISREG(previous.st_mode)) {
    // The file was not set aside yet and has its old content.
  } else if (previous.st_size == 0) {
    unlink(names.file.c_str());
    static_cast<void>(base::sync_directory_of(names.file.c_str()));
  } else {
    rename(names.previous.c_str(), names.file.c_str());
  }
  // rename() does nothing when both names are links to the same file, so "-previous" may still exist.
  unlink(names.previous.c_str());
  unlink(names.replacement.c_str());
  static_cast<void>(base::sync_directory_of(names.file.c_str()));
}

bool run_copy(const CopyRequest& request) {
  const CommandText command("cp %s %s", request.source, request.target);
  ByteRangeLock copy_lock;
  copy_lock.announce_copy(request.store);
  const bool done = request.run(command.c_str(), copy_lock);
  copy_lock.leave_to_command();
  return done;
}

bool copy_is_complete(const CopyRequest& request) {
  if (size_of(request.source) != size_of(request.target)) return false;
  const Descriptor copy = base::open_file(request.target, O_RDONLY);
  return copy && fsync(copy.get()) == 0;
}

bool copy_with_undo(const CopyRequest& request) {
  const CopyNames names(request.target);
  const struct stat old = status_of(names.file.c_str());
  // `cp` would wait for data from a pipe.
  if (!S_ISREG(old.st_mode) || S_ISFIFO(status_of(request.source).st_mode) || names.previous.cut())
    return false;
  roll_back_cut_transaction(request.target);
  // A journal that SQLite could not roll back must not be applied to the copy.
  use_with_suffix(request.target, "-journal", unlink);
  bool renamed = false;
  if (!set_target_aside(names, old, renamed)) {
    const bool read_only_directory = errno == EACCES || errno == EPERM || errno == EROFS;
    restore_previous(names);
    // The directory cannot take new files, so the target is overwritten directly.
    return read_only_directory && run_copy(request) && copy_is_complete(request);
  }
  ByteRangeLock source_lock;
  // "-previous" must be deleted at the end, since the next operation would restore it.
  if (source_lock.keep_writers_out(request.source) && run_copy(request) && copy_is_complete(request) &&
      (!renamed || base::sync_directory_of(names.file.c_str())) && unlink(names.previous.c_str()) == 0)
    return true;
  restore_previous(names);
  return false;
}

// These are for use_with_suffix(), so they return an int.
int is_missing(const char* path) { return access(path, F_OK); }

int is_regular(const char* path) {
  struct stat status;
  return lstat(path, &status) == 0 && S_ISREG(status.st_mode) ? 1 : 0;
}

// A missing target is made, so that it can be set aside. It gets the mode that `cp` would give it.
void make_missing_target(const CopyRequest& request) {
  if (access(request.target, F_OK) == 0) return;
  const Descriptor made =
      base::open_file(request.target, O_WRONLY | O_CREAT, status_of(request.source).st_mode & 0777);
}

}  // namespace

bool copy_database(const CopyRequest& request) {
  make_missing_target(request);
  return copy_with_undo(request);
}

bool copy_was_interrupted(const char* target) {
  return use_with_suffix(target, "-previous", is_regular) != 0;
}

void undo_interrupted_copy(const char* target) {
  if (copy_was_interrupted(target)) restore_previous(CopyNames(target));
}

bool unused_copy_exists(const char* target) { return use_with_suffix(target, "-new", is_missing) == 0; }

void remove_unused_copy(const char* target) { use_with_suffix(target, "-new", unlink); }

void roll_back_cut_transaction(const char* path) {
  if (use_with_suffix(path, "-journal", is_missing) != 0) return;
  const OpenResult opening = open_for_writing(path);
  if (opening.ok()) static_cast<void>(execute(opening.db.get(), sql::kBeginReading));
}

long long size_of(const char* path) { return status_of(path).st_size; }

}  // namespace kelo::store
