// SPDX-License-Identifier: MIT
// What each system call on files changes. A call is decoded before it is made and written down after it.
#include "tools/crash/storage_calls.hpp"

#include <fcntl.h>
#include <linux/falloc.h>
#include <linux/fs.h>
#include <linux/openat2.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

#include "tools/crash/marks.hpp"

namespace kelo::crash {

struct StorageCalls::Operands {
  std::string path;
  std::uint64_t flags;
};

StorageCalls::StorageCalls(const Folders& folders) : folders_(folders) {
  recording_.before = scan(folders_, &inodes_);
  last_inode_ = static_cast<InodeNumber>(inodes_.size());
}

InodeNumber StorageCalls::inode_of(const std::string& path) const {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  const auto found = inodes_.find(status.st_ino);
  return found == inodes_.end() ? 0 : found->second;
}

bool StorageCalls::follow(const TracedProcess& process, SystemCall call) {
  const auto& arguments = call.arguments;
  const auto first = arguments[0];
  const auto second = arguments[1];
  const auto third = arguments[2];
  const auto here = static_cast<std::uint64_t>(AT_FDCWD);
  switch (call.number) {
    case SYS_write:
      if (static_cast<int>(first) == kMarkDescriptor) {
        take_mark(process.bytes(second, third));
        return false;
      }
      return write(process, call, "write");
    case SYS_pwrite64:
      return write(process, call, "pwrite64");
    case SYS_writev:
      return write(process, call, "writev");
    case SYS_pwritev:
      return write(process, call, "pwritev");
    case SYS_openat:
      return open(process, call, "open", {process.path(first, second), third});
    case SYS_openat2: {
      open_how how{};
      const std::string bytes = process.bytes(third, sizeof how);
      std::memcpy(&how, bytes.data(), bytes.size());
      return open(process, call, "open", {process.path(first, second), how.flags});
    }
    case SYS_sendfile:
      return copy(process, call, "sendfile", first);
    case SYS_copy_file_range:
      return copy(process, call, "copy_file_range", third);
    case SYS_ioctl:
      return second == FICLONE && copy(process, call, "FICLONE", first);
    case SYS_ftruncate:
      return resize(process, call, "ftruncate", process.path_of(first), process.link_of(first));
    case SYS_fallocate:
      if ((second & FALLOC_FL_KEEP_SIZE) != 0 && (second & FALLOC_FL_PUNCH_HOLE) == 0) return false;
      return resize(process, call, "fallocate", process.path_of(first), process.link_of(first));
    case SYS_truncate:
      return resize(process, call, "truncate", process.path(here, first), process.path(here, first));
    case SYS_renameat:
    case SYS_renameat2:
      return rename(process, call, Change::rename, "rename", process.path(first, second),
                    process.path(third, arguments[3]));
    case SYS_linkat:
      return rename(process, call, Change::link, "link", process.path(first, second),
                    process.path(third, arguments[3]));
    case SYS_unlinkat:
      return (third & AT_REMOVEDIR) == 0 && unlink(process, call, "unlink", process.path(first, second));
    case SYS_fsync:
      return sync(process, call, "fsync");
    case SYS_fdatasync:
      return sync(process, call, "fdatasync");
    case SYS_sync:
    case SYS_syncfs:
      if (!process.finish(call)) return false;
      add({.change = Change::sync_all, .call = "sync"});
      return true;
    case SYS_fchmod:
      return change_mode(process, call, "fchmod", process.link_of(first));
    case SYS_fchmodat:
      return change_mode(process, call, "chmod", process.path(first, second));
    case SYS_mkdirat:
      return inside(process.path(first, second)) &&
             unknown(process, call, "mkdir " + process.path(first, second));
    case SYS_symlinkat:
      return inside(process.path(second, third)) &&
             unknown(process, call, "symlink " + process.path(second, third));
    case SYS_mmap:
      // What is written through memory is not seen.
      return (third & PROT_WRITE) != 0 && (arguments[3] & MAP_TYPE) == MAP_SHARED &&
             static_cast<int>(arguments[4]) >= 0 && inside(process.path_of(arguments[4])) &&
             unknown(process, call, "mmap " + process.path_of(arguments[4]));
#ifdef SYS_open
    case SYS_open:
      return open(process, call, "open", {process.path(here, first), second});
    case SYS_creat:
      return open(process, call, "creat", {process.path(here, first), O_CREAT | O_TRUNC | O_WRONLY});
    case SYS_rename:
      return rename(process, call, Change::rename, "rename", process.path(here, first),
                    process.path(here, second));
    case SYS_link:
      return rename(process, call, Change::link, "link", process.path(here, first),
                    process.path(here, second));
    case SYS_unlink:
      return unlink(process, call, "unlink", process.path(here, first));
    case SYS_chmod:
      return change_mode(process, call, "chmod", process.path(here, first));
    case SYS_mkdir:
      return inside(process.path(here, first)) &&
             unknown(process, call, "mkdir " + process.path(here, first));
    case SYS_symlink:
      return inside(process.path(here, second)) &&
             unknown(process, call, "symlink " + process.path(here, second));
#endif
    default:
      return false;
  }
}

void StorageCalls::take_mark(const std::string& bytes) {
  Event event = {.change = Change::mark, .call = "mark"};
  if (bytes.size() == sizeof event.mark) std::memcpy(&event.mark, bytes.data(), bytes.size());
  add(std::move(event));
}

bool StorageCalls::open(const TracedProcess& process, SystemCall& call, const char* name,
                        const Operands& operands) {
  const auto& [path, flags] = operands;
  if ((flags & (O_CREAT | O_TRUNC)) == 0 || !inside(path)) return false;
  struct stat before {};
  const bool existed = stat(path.c_str(), &before) == 0;
  if (!process.finish(call)) return false;
  if (call.result < 0) return true;
  if (!existed) {
    struct stat made {};
    stat(path.c_str(), &made);
    inodes_[made.st_ino] = ++last_inode_;
    add({.change = Change::create, .call = name, .inode = last_inode_, .path = path, .mode = made.st_mode});
  } else if ((flags & O_TRUNC) != 0 && before.st_size > 0) {
    add({.change = Change::resize, .call = name, .inode = inode_of(path), .path = path, .size = 0});
  }
  return true;
}

bool StorageCalls::write(const TracedProcess& process, SystemCall& call, const char* name) {
  const auto descriptor = call.arguments[0];
  const InodeNumber inode = inode_of(process.link_of(descriptor));
  if (inode == 0) return false;
  if (!process.finish(call)) return false;
  if (call.result <= 0) return true;
  const auto count = static_cast<std::size_t>(call.result);
  const bool parts = call.number == SYS_writev || call.number == SYS_pwritev;
  const bool placed = call.number == SYS_pwrite64 || call.number == SYS_pwritev;
  Event event = {.change = Change::write, .call = name, .inode = inode, .path = process.path_of(descriptor)};
  event.offset = placed ? call.arguments[3] : process.position_of(descriptor) - count;
  event.data = parts ? process.gathered(call.arguments[1], call.arguments[2], count)
                     : process.bytes(call.arguments[1], count);
  add(std::move(event));
  return true;
}

// The bytes never pass through the process: they are read back from the file after the call.
bool StorageCalls::copy(const TracedProcess& process, SystemCall& call, const char* name,
                        std::uint64_t target) {
  const std::string link = process.link_of(target);
  const InodeNumber inode = inode_of(link);
  if (inode == 0) return false;
  const bool range = call.number == SYS_copy_file_range && call.arguments[3] != 0;
  std::uint64_t start = 0;
  if (range) std::memcpy(&start, process.bytes(call.arguments[3], sizeof start).data(), sizeof start);
  if (!process.finish(call)) return false;
  if (call.result < 0 || (call.result == 0 && call.number != SYS_ioctl)) return true;
  const std::string whole = read_whole(link);
  auto count = static_cast<std::size_t>(call.result);
  if (call.number == SYS_ioctl) {
    count = whole.size();
  } else if (!range) {
    start = process.position_of(target) - count;
  }
  Event event = {.change = Change::write, .call = name, .inode = inode, .path = process.path_of(target)};
  event.offset = start;
  event.data = whole.substr(start, count);
  add(std::move(event));
  return true;
}

bool StorageCalls::resize(const TracedProcess& process, SystemCall& call, const char* name,
                          const std::string& path, const std::string& link) {
  const InodeNumber inode = inode_of(link);
  if (inode == 0) return false;
  if (!process.finish(call)) return false;
  struct stat after {};
  if (call.result < 0 || stat(link.c_str(), &after) != 0) return true;
  if (call.number == SYS_fallocate && (call.arguments[1] & ~std::uint64_t{FALLOC_FL_KEEP_SIZE}) != 0) {
    recording_.unknown.push_back("fallocate with a mode " + path);
  }
  add({.change = Change::resize,
       .call = name,
       .inode = inode,
       .path = path,
       .size = static_cast<std::size_t>(after.st_size)});
  return true;
}

bool StorageCalls::rename(const TracedProcess& process, SystemCall& call, Change change, const char* name,
                          const std::string& from, const std::string& to) {
  if (!inside(from) && !inside(to)) return false;
  if (!process.finish(call)) return false;
  if (call.result < 0) return true;
  const bool exchange = call.number == SYS_renameat2 && (call.arguments[4] & RENAME_EXCHANGE) != 0;
  if (!inside(from) || !inside(to) || exchange) {
    recording_.unknown.push_back(std::string(name) + " " + from + " " + to);
  } else {
    add({.change = change, .call = name, .path = from, .second = to});
  }
  return true;
}

bool StorageCalls::unlink(const TracedProcess& process, SystemCall& call, const char* name,
                          const std::string& path) {
  if (!inside(path)) return false;
  if (!process.finish(call)) return false;
  if (call.result == 0) add({.change = Change::unlink, .call = name, .path = path});
  return true;
}

bool StorageCalls::sync(const TracedProcess& process, SystemCall& call, const char* name) {
  const std::string path = process.path_of(call.arguments[0]);
  const std::string link = process.link_of(call.arguments[0]);
  const InodeNumber inode = inode_of(link);
  struct stat status {};
  const bool directory = inside(path) && stat(link.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  if (inode == 0 && !directory) return false;
  if (!process.finish(call)) return false;
  if (call.result < 0) return true;
  const Change change = directory ? Change::sync_directory : Change::sync_file;
  add({.change = change, .call = name, .inode = inode, .path = path});
  return true;
}

bool StorageCalls::change_mode(const TracedProcess& process, SystemCall& call, const char* name,
                               const std::string& path) {
  const InodeNumber inode = inode_of(path);
  if (inode == 0) return false;
  if (!process.finish(call)) return false;
  struct stat status {};
  if (call.result < 0 || stat(path.c_str(), &status) != 0) return true;
  add({.change = Change::mode, .call = name, .inode = inode, .path = path, .mode = status.st_mode});
  return true;
}

bool StorageCalls::unknown(const TracedProcess& process, SystemCall& call, const std::string& text) {
  if (!process.finish(call)) return false;
  if (call.result >= 0) recording_.unknown.push_back(text);
  return true;
}

}  // namespace kelo::crash
