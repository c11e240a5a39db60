// SPDX-License-Identifier: MIT
// Takes the store's lock for a look, and opens databases for reading only.
#include "tools/keloctl/look.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/deadline.hpp"
#include "tools/keloctl/command.hpp"
#include "tools/keloctl/lock_holder.hpp"

namespace kelo::ctl {
namespace {

constexpr unsigned kPatienceMilliseconds = 5000;

// The first two bytes of the lock file: the gate, which a waiting writer keeps, and the store. docs/journal.md
// describes them.
constexpr off_t kGateByte = 0;
constexpr off_t kStoreByte = 1;

bool set_lock(int fd, short type, off_t start, off_t length = 1) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;
  return base::retry_interrupted([&] { return fcntl(fd, F_OFD_SETLK, &lock); }) == 0;
}

bool lock_in_time(int fd, off_t byte, const base::Deadline& deadline) {
  constexpr unsigned kFirstPause = 100;
  constexpr unsigned kLongestPause = 4000;
  for (unsigned pause = kFirstPause; !set_lock(fd, F_RDLCK, byte);
       pause = std::min(2 * pause, kLongestPause)) {
    if (!deadline.pause(pause)) return false;
  }
  return true;
}

}  // namespace

int Look::begin(Output& out, const char* database) {
  // A lock for reading needs no more than permission to read, and so works on a read-only file system.
  const base::FixedText<96> path = lock_file(database);
  file_ = base::open_file(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  if (!file_) return kDone;
  const base::Deadline deadline(kPatienceMilliseconds);
  // The gate comes first, so that a look gets its turn among daemons that write all the time.
  if (!lock_in_time(file_.get(), kGateByte, deadline) || !lock_in_time(file_.get(), kStoreByte, deadline)) {
    const Holder holder = find_holder(database);
    out.error("%s was held for 5 s by %s", path.c_str(), holder.description.c_str());
    end();
    return kTimeOut;
  }
  static_cast<void>(set_lock(file_.get(), F_UNLCK, kGateByte));
  return kDone;
}

void Look::end() {
  if (file_) static_cast<void>(set_lock(file_.get(), F_UNLCK, 0, 0));
  file_.reset();
}

Look::~Look() { end(); }

Path effective(const char* path) {
  Path previous("%s-previous", path);
  struct stat status {};
  return lstat(previous.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? previous : Path("%s", path);
}

const char* words_of(Health health) {
  static constexpr const char* kWords[] = {"healthy", "missing", "empty", "damaged", "cut off", "unreadable"};
  return kWords[static_cast<int>(health)];
}

Health health_of(int code) {
  switch (code & 0xFF) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return Health::damaged;
    case SQLITE_READONLY:
      return Health::cut_off;  // a transaction is in the file that only a writer can roll back
    default:
      return Health::unreadable;
  }
}

Database open_for_look(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0 && (errno == ENOENT || errno == ENOTDIR)) return {Health::missing, 0, {}};
  // SQLite would wait for a writer of a pipe.
  if (!S_ISREG(status.st_mode)) return {Health::unreadable, SQLITE_CANTOPEN, {}};
  if (status.st_size == 0) return {Health::empty, 0, {}};
  sqlite3* raw = nullptr;
  int code = sqlite3_open_v2(path, &raw, SQLITE_OPEN_READONLY, nullptr);
  Connection db(raw);
  if (code == SQLITE_OK) {
    sqlite3_busy_timeout(raw, static_cast<int>(kPatienceMilliseconds));
    code = sqlite3_exec(raw, "pragma temp_store=memory; select 1 from sqlite_master limit 1", nullptr,
                        nullptr, nullptr);
  }
  if (code == SQLITE_OK) return {Health::healthy, code, std::move(db)};
  return {health_of(code), code, {}};
}

Statement prepare(sqlite3* db, const char* sql, const char* table) {
  char* const text = sqlite3_mprintf(sql, table);
  sqlite3_stmt* statement = nullptr;
  if (text != nullptr) sqlite3_prepare_v2(db, text, -1, &statement, nullptr);
  sqlite3_free(text);
  return Statement(statement);
}

}  // namespace kelo::ctl
