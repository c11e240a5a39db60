// Copies a database over another so that its old content is there until the new one is whole and synced.
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

// A path with an ending. A file that a link leads to may have a longer one, and is then not set aside.
using LongPath = FixedText<256>;

struct stat status_of(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) {
    status.st_mode = 0;
    status.st_size = errno == ENOENT ? 0 : -1;
  }
  return status;
}

// The file that a path leads to in the end: what is set aside must lie in the same directory as that.
class FinalPath {
 public:
  explicit FinalPath(const char* path) : path_(path) {
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

// The names that a copy works with.
struct Names {
  explicit Names(const char* target)
      : file(target), previous("%s-previous", file.c_str()), fresh("%s-new", file.c_str()) {}

  FinalPath file;
  LongPath previous;
  LongPath fresh;
};

// What a crash leaves at any moment is either without "-previous", and then the file is whole, or with it, and
// then that holds the old content: each name is on storage before the step that relies on it.
//
// The new file is empty at first and takes the old one's place under its name, so that a `cp` of a process that
// died writes where nobody looks.
bool set_aside(const Names& names, const struct stat& old, bool& renamed) {
  unlink(names.fresh.c_str());
  Descriptor fresh = base::open_file(names.fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (!fresh) return false;
  static_cast<void>(fchown(fresh.get(), old.st_uid, old.st_gid) == 0);
  static_cast<void>(fchmod(fresh.get(), old.st_mode & 07777));
  unlink(names.previous.c_str());
  renamed = false;
  if (link(names.file.c_str(), names.previous.c_str()) != 0) {
    // A file system without hard links.
    if (rename(names.file.c_str(), names.previous.c_str()) != 0) return false;
    renamed = true;
  }
  return base::sync_directory_of(names.file.c_str()) && rename(names.fresh.c_str(), names.file.c_str()) == 0;
}

void undo(const Names& names) {
  const struct stat previous = status_of(names.previous.c_str());
  if (!S_ISREG(previous.st_mode)) {
    // The file was not set aside yet, and still holds what it held.
  } else if (previous.st_size == 0) {
    unlink(names.file.c_str());
    static_cast<void>(base::sync_directory_of(names.file.c_str()));
  } else {
    rename(names.previous.c_str(), names.file.c_str());
  }
  // Two names of one file are not renamed.
  unlink(names.previous.c_str());
  unlink(names.fresh.c_str());
  static_cast<void>(base::sync_directory_of(names.file.c_str()));
}

bool run_copy(const CopyOrder& order) {
  const CommandText command("cp %s %s", order.source, order.target);
  ByteLock under_way;
  under_way.announce_copy(order.store);
  const bool done = order.run(command.c_str(), under_way);
  under_way.leave_to_command();
  return done;
}

bool came_out_whole(const CopyOrder& order) {
  if (size_of(order.source) != size_of(order.target)) return false;
  const Descriptor copy = base::open_file(order.target, O_RDONLY);
  return copy && fsync(copy.get()) == 0;
}

bool copy_with_undo(const CopyOrder& order) {
  const Names names(order.target);
  const struct stat old = status_of(names.file.c_str());
  // A pipe as the source would be waited for.
  if (!S_ISREG(old.st_mode) || S_ISFIFO(status_of(order.source).st_mode) || names.previous.cut())
    return false;
  roll_back_cut_transaction(order.target);
  // What SQLite could not roll back must not be rolled back into the copy.
  unlink(LongPath("%s-journal", names.file.c_str()).c_str());
  bool renamed = false;
  if (!set_aside(names, old, renamed)) {
    const bool read_only_directory = errno == EACCES || errno == EPERM || errno == EROFS;
    undo(names);
    // Where the directory takes no new names there is only the copy in place.
    return read_only_directory && run_copy(order) && came_out_whole(order);
  }
  ByteLock steady;
  // The old content must not keep its second name: the next operation would put it back.
  if (steady.keep_writers_out(order.source) && run_copy(order) && came_out_whole(order) &&
      (!renamed || base::sync_directory_of(names.file.c_str())) && unlink(names.previous.c_str()) == 0)
    return true;
  undo(names);
  return false;
}

// A file that is missing is made, so that there is something to set aside. It gets the mode that `cp` would give it.
void make_missing(const CopyOrder& order) {
  if (access(order.target, F_OK) == 0) return;
  const Descriptor made =
      base::open_file(order.target, O_WRONLY | O_CREAT, status_of(order.source).st_mode & 0777);
}

}  // namespace

bool copy_database(const CopyOrder& order) {
  make_missing(order);
  return copy_with_undo(order);
}

bool copy_was_interrupted(const char* target) {
  const FinalPath file(target);
  struct stat status {};
  return lstat(LongPath("%s-previous", file.c_str()).c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void undo_interrupted_copy(const char* target) {
  if (copy_was_interrupted(target)) undo(Names(target));
}

bool unused_copy_is_there(const char* target) { return access(Names(target).fresh.c_str(), F_OK) == 0; }

void remove_unused_copy(const char* target) { unlink(Names(target).fresh.c_str()); }

void roll_back_cut_transaction(const char* path) {
  const FinalPath file(path);
  if (access(LongPath("%s-journal", file.c_str()).c_str(), F_OK) != 0) return;
  const Opening opening = open_for_writing(path);
  if (opening.ok()) static_cast<void>(execute(opening.db.get(), sql::kReadSchema));
}

long long size_of(const char* path) { return status_of(path).st_size; }

}  // namespace kelo::store
