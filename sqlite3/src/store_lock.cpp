// Takes and releases the lock that the processes of a store share.
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
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr int kPatienceMilliseconds = 5000;

// The bytes of the lock file that are locked, each for itself.
constexpr off_t kGateByte = 0;
constexpr off_t kStoreByte = 1;
constexpr off_t kCopyByte = 2;

using LockPath = FixedText<128>;

LockPath lock_path(const char* database) { return LockPath("%s-lock", database); }

struct flock range(short type, off_t start, off_t length) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;
  return lock;
}

// The locks belong to the open file and not to the process, so that threads exclude each other as well, and
// closing another descriptor of the file takes none away.
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

// Makes the lock file. Whoever may write the database may lock it, and nobody else: a lock that anybody can take and
// keep would stop the store.
int make_lock_file(LockDescriptor& file, const char* path, int flags, const char* database) {
  constexpr mode_t kUsualMode = 0644;  // SQLite's, for a database that is not there yet
  struct stat status {};
  const bool there = stat(database, &status) == 0;
  const mode_t writers = (there ? status.st_mode : kUsualMode) & 0222;
  const mode_t mode = writers | writers << 1;
  if (open_closed_in_child(file, path, flags | O_CREAT | O_EXCL, mode) < 0) return -1;
  static_cast<void>(fchmod(file.fd, mode));  // whatever the umask took away
  if (there && geteuid() == 0) static_cast<void>(fchown(file.fd, status.st_uid, status.st_gid) == 0);
  return file.fd;
}

// A process that may only read the database must not be the one that owns its lock file.
bool may_make_lock_file(const char* database) { return access(database, W_OK) == 0 || errno == ENOENT; }

int open_lock_file(LockDescriptor& file, const char* database) {
  constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const LockPath path = lock_path(database);
  for (;;) {
    if (open_closed_in_child(file, path.c_str(), kFlags, 0) >= 0 || errno != ENOENT) return file.fd;
    if (!may_make_lock_file(database)) return -1;
    if (make_lock_file(file, path.c_str(), kFlags, database) >= 0) return file.fd;
    if (errno != EEXIST) return -1;
  }
}

// Whether SQLite itself will refuse to write where the lock file cannot be opened: then there is nothing to
// lock, and its own failure is what the caller gets to see.
bool nothing_to_write(int error, const char* database) {
  if (error == ENOENT || error == ENOTDIR || error == EROFS) return true;
  return (error == EACCES || error == EPERM) && access(lock_path(database).c_str(), F_OK) != 0;
}

}  // namespace

StoreLock::StoreLock(const char* caller, const char* database, Access access)
    : caller_(caller), database_(database), access_(access) {
  held_ = take();
}

StoreLock::~StoreLock() { give_up(); }

bool StoreLock::take() {
  if (!sqlite_usable()) {
    KELO_LOG_AS(caller_, LOG_LVL_ERR, "%s: forked during an operation, only a new program can use it\n",
                database_);
    return false;
  }
  if (open_lock_file(file_, database_) < 0) {
    if (!exclusive() || nothing_to_write(errno, database_)) return true;
    KELO_LOG_AS(caller_, LOG_LVL_ERR, "%s-lock cannot be opened, nothing was done: %s\n", database_,
                std::strerror(errno));
    return false;
  }
  // Everybody passes the gate, where a writer waits until those who read have left: new ones cannot keep it
  // out for ever. Usually nobody waits, and one call takes both bytes.
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
  give_up();
  return false;
}

void StoreLock::give_up() {
  const base::ErrnoKeeper keep;
  // A child that was made just now may still have the descriptor, so closing it alone would not do.
  if (file_.fd >= 0) static_cast<void>(try_lock(file_.fd, F_UNLCK, 0, 0));
  close_lock_descriptor(file_);
  held_ = false;
}

bool StoreLock::make_exclusive() {
  if (exclusive()) return held_;
  give_up();
  access_ = Access::exclusive;
  return held_ = take();
}

ByteLock::~ByteLock() {
  // A child that was made just now may still have the descriptor.
  if (file_.fd >= 0) static_cast<void>(try_lock(file_.fd, F_UNLCK, start_, length_));
  close_lock_descriptor(file_);
}

void ByteLock::announce_copy(const char* store) {
  constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  if (open_closed_in_child(file_, lock_path(store).c_str(), kFlags, 0) < 0) return;
  if (!try_lock(file_.fd, F_WRLCK, kCopyByte)) close_lock_descriptor(file_);
}

void ByteLock::leave_to_command() { close_lock_descriptor(file_); }

bool ByteLock::wait_for_copies(const char* store) {
  constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  if (open_closed_in_child(file_, lock_path(store).c_str(), kFlags, 0) < 0) return true;
  start_ = kCopyByte;
  length_ = 1;
  const base::Deadline deadline(kPatienceMilliseconds);
  return lock_in_time(file_.fd, F_WRLCK, start_, deadline);
}

bool ByteLock::keep_writers_out(const char* database) {
  // Where SQLite keeps its shared locks, a part of the file's form that does not change.
  constexpr off_t kSharedFirst = 0x40000002;
  constexpr off_t kSharedSize = 510;
  if (open_closed_in_child(file_, database, O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0) < 0) return true;
  start_ = kSharedFirst;
  length_ = kSharedSize;
  const base::Deadline deadline(kPatienceMilliseconds);
  return lock_in_time(file_.fd, F_RDLCK, start_, deadline, length_);
}

}  // namespace kelo::store
