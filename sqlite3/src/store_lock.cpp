// SPDX-License-Identifier: MIT
// The lock of a store, and locks on ranges of bytes of its files.
#include "sqlite3/src/store_lock.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/deadline.hpp"
#include "base/file.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/file_problem.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr int kPatienceMilliseconds = 5000;

// Each of these bytes of the lock file is a lock of its own.
constexpr off_t kGateByte = 0;
constexpr off_t kStoreByte = 1;
constexpr off_t kCopyByte = 2;

using LockPath = FixedText<128>;

LockPath lock_path(const char* database) { return LockPath("%s-lock", database); }

constexpr int kLockFileFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

int open_existing_lock_file(LockDescriptor& file, const char* database) {
  return open_lock_descriptor(file, lock_path(database).c_str(), kLockFileFlags, 0);
}

struct flock range(short type, off_t start, off_t length) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;
  return lock;
}

// The locks belong to the open file and not to the process. So they work between threads as well, and closing another
// descriptor of the file does not release them.
bool try_lock(int fd, short type, off_t start, off_t length = 1) {
  struct flock lock = range(type, start, length);
  return base::retry_interrupted([&] { return fcntl(fd, F_OFD_SETLK, &lock); }) == 0;
}

bool lock_in_time(int fd, short type, off_t start, const base::Deadline& deadline, off_t length = 1) {
  constexpr unsigned kFirstPause = 100;
  constexpr unsigned kLongestPause = 4000;
  for (unsigned pause = kFirstPause; !try_lock(fd, type, start, length);
       pause = std::min(2 * pause, kLongestPause)) {
    if (!deadline.pause(pause)) return false;
  }
  return true;
}

// Makes the lock file. Only users who may write the database may lock it, since a lock that every user can hold would
// let any of them stop the store.
int make_lock_file(LockDescriptor& file, const char* database) {
  constexpr mode_t kUsualMode = 0644;  // SQLite makes a missing database with it
  struct stat status;
  const bool there = stat(database, &status) == 0;
  const mode_t writers = (there ? status.st_mode : kUsualMode) & 0222;
  const mode_t mode = writers | writers << 1;
  if (open_lock_descriptor(file, lock_path(database).c_str(), kLockFileFlags | O_CREAT | O_EXCL, mode) < 0)
    return -1;
  static_cast<void>(fchmod(file.fd, mode));  // the umask may have removed bits
  if (there && geteuid() == 0) static_cast<void>(fchown(file.fd, status.st_uid, status.st_gid) == 0);
  return file.fd;
}

// A process that may only read the database must not own its lock file.
bool may_make_lock_file(const char* database) { return access(database, W_OK) == 0 || errno == ENOENT; }

int open_lock_file(LockDescriptor& file, const char* database) {
  for (;;) {
    if (open_existing_lock_file(file, database) >= 0 || errno != ENOENT) return file.fd;
    if (!may_make_lock_file(database)) return -1;
    if (make_lock_file(file, database) >= 0) return file.fd;
    if (errno != EEXIST) return -1;
  }
}

// Returns whether SQLite will refuse to write as well when the lock file could not be opened. Then no lock is needed,
// and the caller gets SQLite's own failure.
bool sqlite_will_refuse(int error, const char* database) {
  if (error == ENOENT || error == ENOTDIR || error == EROFS) return true;
  return (error == EACCES || error == EPERM) && access(lock_path(database).c_str(), F_OK) != 0;
}

}  // namespace

StoreLock::StoreLock(const char* caller, const char* database, Access access)
    : caller_(caller), database_(database), access_(access) {
  held_ = take();
}

StoreLock::~StoreLock() { release(); }

bool StoreLock::take() {
  if (!process_may_use_sqlite()) {
    KELO_LOG_AS(caller_, LOG_LVL_ERR, "%s: forked during an operation, only a new program can use it\n",
                database_);
    return false;
  }
  if (open_lock_file(file_, database_) < 0) {
    const int error = errno;
    if (!exclusive()) return true;
    if (sqlite_will_refuse(error, database_)) {
      log_file_problem(database_, error);
      return true;
    }
    KELO_LOG_AS(caller_, LOG_LVL_ERR, "%s-lock cannot be opened, nothing was done: %s\n", database_,
                std::strerror(error));
    return false;
  }
  // Every operation locks the gate byte first. A writer holds it while it waits for the readers, so that new readers
  // wait for the writer. When no process waits, one call locks both bytes.
  const base::Deadline deadline(kPatienceMilliseconds);
  const short type = exclusive() ? F_WRLCK : F_RDLCK;
  if (try_lock(file_.fd, type, kGateByte, kStoreByte + 1) ||
      (lock_in_time(file_.fd, type, kGateByte, deadline) &&
       lock_in_time(file_.fd, type, kStoreByte, deadline))) {
    static_cast<void>(try_lock(file_.fd, F_UNLCK, kGateByte));
    return true;
  }
  KELO_LOG_AS(caller_, LOG_LVL_ERR, "%s-lock was held by others for %d ms, nothing was done\n", database_,
              kPatienceMilliseconds);
  release();
  return false;
}

void StoreLock::release() {
  const base::ErrnoKeeper keep;
  // A new child may still have the descriptor, so closing it here would not release the lock.
  if (file_.fd >= 0) static_cast<void>(try_lock(file_.fd, F_UNLCK, 0, 0));
  close_lock_descriptor(file_);
  held_ = false;
}

bool StoreLock::make_exclusive() {
  if (exclusive()) return held_;
  release();
  access_ = Access::exclusive;
  return held_ = take();
}

ByteRangeLock::~ByteRangeLock() {
  // A new child may still have the descriptor, so closing it here would not release the lock.
  if (file_.fd >= 0) static_cast<void>(try_lock(file_.fd, F_UNLCK, start_, length_));
  close_lock_descriptor(file_);
}

void ByteRangeLock::announce_copy(const char* store) {
  if (open_existing_lock_file(file_, store) < 0) return;
  if (!try_lock(file_.fd, F_WRLCK, kCopyByte)) close_lock_descriptor(file_);
}

void ByteRangeLock::leave_to_command() { close_lock_descriptor(file_); }

bool ByteRangeLock::wait_for_copies(const char* store) {
  if (open_existing_lock_file(file_, store) < 0) return true;
  start_ = kCopyByte;
  length_ = 1;
  const base::Deadline deadline(kPatienceMilliseconds);
  return lock_in_time(file_.fd, F_WRLCK, start_, deadline);
}

bool ByteRangeLock::keep_writers_out(const char* database) {
  // SQLite puts its shared locks on these bytes. They are part of its file format and do not change.
  constexpr off_t kSharedFirst = 0x40000002;
  constexpr off_t kSharedSize = 510;
  if (open_lock_descriptor(file_, database, O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0) < 0) return true;
  start_ = kSharedFirst;
  length_ = kSharedSize;
  const base::Deadline deadline(kPatienceMilliseconds);
  return lock_in_time(file_.fd, F_RDLCK, start_, deadline, length_);
}

}  // namespace kelo::store
