// SPDX-License-Identifier: MIT
// Looks into a traced process through ptrace and /proc.
#include "tools/crash/traced_process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>

#include "tools/crash/files.hpp"

namespace kelo::crash {
namespace {

std::string target_of(const std::string& link) {
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

std::optional<SystemCall> TracedProcess::entered_call() const {
  __ptrace_syscall_info info{};
  ptrace(PTRACE_GET_SYSCALL_INFO, id_, sizeof info, &info);
  if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return {};
  SystemCall call;
  call.number = static_cast<long>(info.entry.nr);
  std::copy(std::begin(info.entry.args), std::end(info.entry.args), call.arguments.begin());
  return call;
}

bool TracedProcess::finish(SystemCall& call) const {
  for (int signal = 0;;) {
    ptrace(PTRACE_SYSCALL, id_, nullptr, signal);
    int status = 0;
    if (waitpid(id_, &status, __WALL) != id_ || !WIFSTOPPED(status)) return false;
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, id_, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
      call.result = info.exit.rval;
      return true;
    }
    signal = (WSTOPSIG(status) & ~0x80) == SIGTRAP ? 0 : WSTOPSIG(status);
  }
}

std::string TracedProcess::bytes(std::uint64_t address, std::size_t count) const {
  std::string read(count, '\0');
  const iovec local = {read.data(), count};
  const iovec remote = {reinterpret_cast<void*>(static_cast<std::uintptr_t>(address)), count};
  const ssize_t got = process_vm_readv(id_, &local, 1, &remote, 1, 0);
  read.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return read;
}

std::string TracedProcess::text(std::uint64_t address) const {
  // A read across the end of the mapping stops there, after the text.
  const std::string read = bytes(address, PATH_MAX);
  return read.substr(0, read.find('\0'));
}

std::string TracedProcess::gathered(std::uint64_t parts, std::size_t count, std::size_t limit) const {
  const std::string table = bytes(parts, count * sizeof(iovec));
  std::string all;
  for (std::size_t at = 0; at + sizeof(iovec) <= table.size(); at += sizeof(iovec)) {
    iovec part{};
    std::memcpy(&part, table.data() + at, sizeof part);
    all += bytes(reinterpret_cast<std::uintptr_t>(part.iov_base), part.iov_len);
  }
  all.resize(std::min(all.size(), limit));
  return all;
}

std::string TracedProcess::proc(const char* what) const {
  return "/proc/" + std::to_string(id_) + "/" + what;
}

std::string TracedProcess::path(std::uint64_t folder, std::uint64_t name) const {
  const std::string given = text(name);
  if (given.starts_with("/")) return std::filesystem::path(given).lexically_normal();
  const bool working = static_cast<int>(folder) == AT_FDCWD;
  const std::filesystem::path base = working ? target_of(proc("cwd")) : path_of(folder);
  return (base / given).lexically_normal();
}

std::string TracedProcess::link_of(std::uint64_t descriptor) const {
  return proc("fd/") + std::to_string(static_cast<int>(descriptor));
}

std::string TracedProcess::path_of(std::uint64_t descriptor) const { return target_of(link_of(descriptor)); }

std::uint64_t TracedProcess::position_of(std::uint64_t descriptor) const {
  const std::string info = read_whole(proc("fdinfo/") + std::to_string(static_cast<int>(descriptor)));
  const std::size_t found = info.find("pos:");
  return found == std::string::npos ? 0 : std::strtoull(info.c_str() + found + 4, nullptr, 10);
}

}  // namespace kelo::crash
