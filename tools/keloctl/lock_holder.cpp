// SPDX-License-Identifier: MIT
// Finds the process that holds the lock of the store. The lock belongs to an open file, so the kernel names no process
// for it: its line is found in what /proc tells of the descriptors of all processes.
#include "tools/keloctl/lock_holder.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/file.hpp"

namespace kelo::ctl {
namespace {

struct FolderCloser {
  void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, FolderCloser>;
using ProcPath = base::FixedText<64>;

constexpr long long kStoreByte = 1;

// A line such as "lock: 1: OFDLCK  ADVISORY  WRITE -1 08:01:131 1 1": the last two numbers are the first and the last
// byte.
bool line_locks_store(const char* line) {
  long long first = 0;
  char last[24] = "";
  if (std::strncmp(line, "lock:", 5) != 0) return false;
  const char* const id = std::strchr(line + 5, '-');
  // NOLINTNEXTLINE(cert-err34-c): the kernel writes these numbers
  if (id == nullptr || std::sscanf(id, "-1 %*s %lld %23s", &first, last) != 2) return false;
  const bool to_end = std::strcmp(last, "EOF") == 0;
  return first <= kStoreByte && (to_end || std::strtoll(last, nullptr, 10) >= kStoreByte);
}

bool descriptor_locks_store(long pid, const char* number) {
  const base::Stream info(std::fopen(ProcPath("/proc/%ld/fdinfo/%s", pid, number).c_str(), "re"));
  std::array<char, 256> line{};
  while (info && std::fgets(line.data(), line.size(), info.get()) != nullptr) {
    if (line_locks_store(line.data())) return true;
  }
  return false;
}

bool process_locks_store(long pid, const struct stat& lock) {
  const Folder descriptors(opendir(ProcPath("/proc/%ld/fd", pid).c_str()));
  if (!descriptors) return false;
  while (const dirent* const entry = readdir(descriptors.get())) {
    struct stat file {};
    if (stat(ProcPath("/proc/%ld/fd/%s", pid, entry->d_name).c_str(), &file) != 0) continue;
    if (file.st_dev != lock.st_dev || file.st_ino != lock.st_ino) continue;
    if (descriptor_locks_store(pid, entry->d_name)) return true;
  }
  return false;
}

long find_process(const char* lock_path) {
  struct stat lock {};
  const Folder processes(opendir("/proc"));
  if (!processes || stat(lock_path, &lock) != 0) return 0;
  while (const dirent* const entry = readdir(processes.get())) {
    const long pid = std::strtol(entry->d_name, nullptr, 10);
    if (pid > 0 && pid != getpid() && process_locks_store(pid, lock)) return pid;
  }
  return 0;
}

// Whether a lock of this type could not be had now.
bool is_refused(int fd, short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = kStoreByte;
  lock.l_len = 1;
  return fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace

base::FixedText<96> lock_file(const char* database) { return base::FixedText<96>("%s-lock", database); }

Holder find_holder(const char* database) {
  const base::FixedText<96> path = lock_file(database);
  const base::Descriptor file = base::open_file(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  if (!file) {
    const bool missing = errno == ENOENT || errno == ENOTDIR;
    return {missing ? LockState::no_file : LockState::not_readable, 0,
            base::FixedText<96>(missing ? "no lock file" : "this user may not open the lock file")};
  }
  if (!is_refused(file.get(), F_WRLCK)) return {LockState::free, 0, base::FixedText<96>("nobody")};
  const LockState state = is_refused(file.get(), F_RDLCK) ? LockState::exclusive : LockState::shared;
  const long pid = find_process(path.c_str());
  if (pid == 0) return {state, 0, base::FixedText<96>("a process that this user may not see")};
  std::array<char, 32> name{};
  const base::Descriptor source = base::open_file(ProcPath("/proc/%ld/comm", pid).c_str(), O_RDONLY);
  if (source) base::read_all(source.get(), {name.data(), name.size() - 1});
  name[std::strcspn(name.data(), "\n")] = '\0';
  return {state, static_cast<int>(pid), base::FixedText<96>("process %ld (%s)", pid, name.data())};
}

}  // namespace kelo::ctl
