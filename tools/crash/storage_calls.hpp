// SPDX-License-Identifier: MIT
// Turns the system calls of traced processes into changes to files.
#ifndef KELO_TOOLS_CRASH_STORAGE_CALLS_HPP
#define KELO_TOOLS_CRASH_STORAGE_CALLS_HPP

#include <optional>
#include <string>

#include "tools/crash/event.hpp"
#include "tools/crash/files.hpp"
#include "tools/crash/traced_process.hpp"

namespace kelo::crash {

class StorageCalls {
 public:
  explicit StorageCalls(const Folders& folders);

  // Lets the process make its call when it may change a file of the folders, and writes down what it changed.
  // False when the call is another one, and was not made, or when the process ended in it.
  bool follow(const TracedProcess& process, SystemCall call);

  Recording take() { return std::move(recording_); }

 private:
  struct Operands;
  bool open(const TracedProcess& process, SystemCall& call, const char* name, const Operands& operands);
  bool write(const TracedProcess& process, SystemCall& call, const char* name);
  bool copy(const TracedProcess& process, SystemCall& call, const char* name, std::uint64_t target);
  bool resize(const TracedProcess& process, SystemCall& call, const char* name, const std::string& path,
              const std::string& link);
  bool rename(const TracedProcess& process, SystemCall& call, Change change, const char* name,
              const std::string& from, const std::string& to);
  bool unlink(const TracedProcess& process, SystemCall& call, const char* name, const std::string& path);
  bool sync(const TracedProcess& process, SystemCall& call, const char* name);
  bool change_mode(const TracedProcess& process, SystemCall& call, const char* name, const std::string& path);
  bool unknown(const TracedProcess& process, SystemCall& call, const std::string& text);
  void take_mark(const std::string& bytes);
  bool inside(const std::string& path) const { return lies_in(folders_, path); }
  // The model's number of the file that a path or a link below /proc leads to; 0 when the file is not recorded.
  InodeNumber inode_of(const std::string& path) const;
  void add(Event event) { recording_.events.push_back(std::move(event)); }

  Folders folders_;
  Recording recording_;
  std::map<ino_t, InodeNumber> inodes_;
  InodeNumber last_inode_ = 0;
};

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_STORAGE_CALLS_HPP
