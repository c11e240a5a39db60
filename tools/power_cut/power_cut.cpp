// SPDX-License-Identifier: MIT
// Ends a program before one of its calls that change files.
#include "tools/power_cut/power_cut.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string_view>

namespace kelo::power_cut {
namespace {

enum class Operand { descriptor, path, path_at, opened_path, opened_path_at, second_descriptor };

struct TracedCall {
  long number;
  const char* name;
  Operand operand;
};

constexpr TracedCall kTracedCalls[] = {
    {SYS_write, "write", Operand::descriptor},
    {SYS_pwrite64, "pwrite64", Operand::descriptor},
    {SYS_writev, "writev", Operand::descriptor},
    {SYS_pwritev, "pwritev", Operand::descriptor},
    {SYS_fsync, "fsync", Operand::descriptor},
    {SYS_fdatasync, "fdatasync", Operand::descriptor},
    {SYS_ftruncate, "ftruncate", Operand::descriptor},
    {SYS_fallocate, "fallocate", Operand::descriptor},
    {SYS_sendfile, "sendfile", Operand::descriptor},
    {SYS_copy_file_range, "copy_file_range", Operand::second_descriptor},
    {SYS_truncate, "truncate", Operand::path},
#ifdef SYS_ftruncate64
    {SYS_ftruncate64, "ftruncate", Operand::descriptor},
    {SYS_truncate64, "truncate", Operand::path},
    {SYS_sendfile64, "sendfile", Operand::descriptor},
#endif
#ifdef SYS_rename
    {SYS_rename, "rename", Operand::path},
#endif
    {SYS_renameat, "rename", Operand::path_at},
    {SYS_renameat2, "rename", Operand::path_at},
#ifdef SYS_unlink
    {SYS_unlink, "unlink", Operand::path},
#endif
    {SYS_unlinkat, "unlink", Operand::path_at},
#ifdef SYS_open
    {SYS_open, "open", Operand::opened_path},
#endif
    {SYS_openat, "open", Operand::opened_path_at},
};

const TracedCall* find_traced(std::uint64_t number) {
  for (const TracedCall& call : kTracedCalls) {
    if (static_cast<std::uint64_t>(call.number) == number) return &call;
  }
  return nullptr;
}

std::string target_of_link(const std::string& link) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlink(link.c_str(), target.data(), target.size() - 1);
  return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : std::string();
}

std::string descriptor_path(pid_t process, std::uint64_t descriptor) {
  return target_of_link("/proc/" + std::to_string(process) + "/fd/" +
                        std::to_string(static_cast<int>(descriptor)));
}

std::string string_at(pid_t process, std::uint64_t address) {
  std::array<char, PATH_MAX> text{};
  const iovec local = {text.data(), text.size() - 1};
  const iovec remote = {reinterpret_cast<void*>(static_cast<std::uintptr_t>(address)), text.size() - 1};
  process_vm_readv(process, &local, 1, &remote, 1, 0);
  return text.data();
}

// An open changes the file system only when it empties a file or makes one that is not there.
bool open_changes(const std::string& path, std::uint64_t flags) {
  if ((flags & O_TRUNC) != 0) return true;
  return (flags & O_CREAT) != 0 && !std::filesystem::exists(path);
}

// The storage call that a stopped process is about to make; nothing when it is another call or on another
// file.
std::optional<StorageCall> storage_call(pid_t process, const __ptrace_syscall_info& info,
                                        std::string_view folder) {
  const TracedCall* const traced = find_traced(info.entry.nr);
  if (traced == nullptr) return {};
  const auto& args = info.entry.args;
  StorageCall call = {traced->name, {}};
  std::optional<std::uint64_t> open_flags;
  switch (traced->operand) {
    case Operand::descriptor:
      call.file = descriptor_path(process, args[0]);
      break;
    case Operand::second_descriptor:
      call.file = descriptor_path(process, args[2]);
      break;
    case Operand::path:
      call.file = string_at(process, args[0]);
      break;
    case Operand::path_at:
      call.file = string_at(process, args[1]);
      break;
    case Operand::opened_path:
      call.file = string_at(process, args[0]);
      open_flags = args[1];
      break;
    case Operand::opened_path_at:
      call.file = string_at(process, args[1]);
      open_flags = args[2];
      break;
  }
  if (!call.file.starts_with(folder)) return {};
  if (open_flags && !open_changes(call.file, *open_flags)) return {};
  return call;
}

class Tracer {
 public:
  Tracer(pid_t first, std::string folder, CutHere cut_here)
      : first_(first), folder_(std::move(folder)), cut_here_(std::move(cut_here)), living_{first} {}

  Run follow() {
    int status = 0;
    waitpid(first_, &status, 0);
    ptrace(PTRACE_SETOPTIONS, first_, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
               PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL);
    ptrace(PTRACE_SYSCALL, first_, nullptr, nullptr);
    while (!living_.empty()) {
      const pid_t process = waitpid(-1, &status, __WALL);
      if (process < 0) break;
      if (WIFSTOPPED(status)) {
        living_.insert(process);
        stopped(process, status);
      } else {
        ended(process, status);
      }
    }
    return std::move(run_);
  }

 private:
  void stopped(pid_t process, int status) {
    const int signal = WSTOPSIG(status);
    const bool at_call = signal == (SIGTRAP | 0x80);
    if (at_call && !run_.cut) inspect(process);
    if (run_.cut) return;
    // Stops that the tracing itself causes are not passed on; a new process starts with a SIGSTOP of its own.
    const bool own_stop = at_call || signal == SIGTRAP || signal == SIGSTOP;
    ptrace(PTRACE_SYSCALL, process, nullptr, own_stop ? 0 : signal);
  }

  void inspect(pid_t process) {
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return;
    std::optional<StorageCall> call = storage_call(process, info, folder_);
    if (!call) return;
    run_.cut = cut_here_(run_.calls.size(), *call);
    run_.calls.push_back(std::move(*call));
    if (!run_.cut) return;
    for (const pid_t member : living_) kill(member, SIGKILL);
  }

  void ended(pid_t process, int status) {
    living_.erase(process);
    if (process == first_ && WIFEXITED(status)) run_.exit_status = WEXITSTATUS(status);
  }

  pid_t first_;
  std::string folder_;
  CutHere cut_here_;
  std::set<pid_t> living_;
  Run run_;
};

}  // namespace

bool can_trace() {
  const pid_t child = fork();
  if (child == 0) _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

Run run(const std::string& folder, const std::function<void()>& body, const CutHere& cut_here) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    body();
    std::fflush(nullptr);
    _exit(0);
  }
  if (child < 0) {
    std::perror("fork");
    std::abort();
  }
  return Tracer(child, folder, cut_here).follow();
}

}  // namespace kelo::power_cut
