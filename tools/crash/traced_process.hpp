// SPDX-License-Identifier: MIT
// A process that is being traced: its memory, its descriptors, its system calls.
#ifndef KELO_TOOLS_CRASH_TRACED_PROCESS_HPP
#define KELO_TOOLS_CRASH_TRACED_PROCESS_HPP

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace kelo::crash {

struct SystemCall {
  long number = 0;
  std::array<std::uint64_t, 6> arguments{};
  std::int64_t result = 0;
};

class TracedProcess {
 public:
  explicit TracedProcess(pid_t id) : id_(id) {}

  pid_t id() const { return id_; }
  // The call that the stopped process is about to make; nothing at any other stop.
  std::optional<SystemCall> entered_call() const;
  // Lets the process make the call and stops it again after it. False when the process ended instead.
  bool finish(SystemCall& call) const;

  std::string text(std::uint64_t address) const;
  std::string bytes(std::uint64_t address, std::size_t count) const;
  // The bytes that an array of `count` parts describes, `limit` at most.
  std::string gathered(std::uint64_t parts, std::size_t count, std::size_t limit) const;
  // The absolute path that a name means in this process, seen from a folder's descriptor or AT_FDCWD.
  std::string path(std::uint64_t folder, std::uint64_t name) const;

  std::string link_of(std::uint64_t descriptor) const;  // below /proc
  std::string path_of(std::uint64_t descriptor) const;
  std::uint64_t position_of(std::uint64_t descriptor) const;

 private:
  std::string proc(const char* what) const;
  pid_t id_;
};

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_TRACED_PROCESS_HPP
