// SPDX-License-Identifier: MIT
// Starts programs as child processes and waits for them. The signals and streams of the calling program do not matter.
#ifndef KELO_BASE_CHILD_HPP
#define KELO_BASE_CHILD_HPP

#include <signal.h>
#include <sys/types.h>

#include <initializer_list>

#include "base/file.hpp"

namespace kelo::base {

// Blocks SIGCHLD in the calling thread while it exists. Otherwise a handler of the program that waits for every child
// could reap the child that this thread waits for. A thread that does not block the signal still runs the handler.
class [[nodiscard]] ChildSignalBlock {
 public:
  ChildSignalBlock();
  ~ChildSignalBlock();
  ChildSignalBlock(const ChildSignalBlock&) = delete;
  ChildSignalBlock& operator=(const ChildSignalBlock&) = delete;

 private:
  sigset_t before_;
};

// A pipe whose ends are close-on-exec. The ends never have the numbers of the standard streams, even in a process that
// has closed those.
struct Pipe {
  Descriptor read_end;
  Descriptor write_end;

  // Opens both ends. Returns false with errno set on failure.
  [[nodiscard]] bool open();
};

// A descriptor that a child inherits, and its number in the child. A descriptor of -1 is skipped.
struct ChildFile {
  int descriptor;
  int number;
};
using ChildFiles = std::initializer_list<ChildFile>;

// Starts a program. A name without a slash is searched for in PATH. The program starts with no signal blocked and with
// the default actions of SIGPIPE and SIGCHLD: a command that ignored SIGPIPE would go on printing after its reader has
// closed the pipe, and one that ignored SIGCHLD could not wait for its own children. Returns the process id, or -1 with
// errno set, also when the exec failed.
pid_t start_program(const char* program, char* const* arguments, ChildFiles files);

// Starts a program in the same way, as the first process of a group of its own. It is for the additions, and not in a
// library without them.
pid_t start_group(const char* program, char* const* arguments, ChildFiles files);

// Starts the shell with a command, in the same way as start_program().
pid_t start_shell(const char* command, ChildFiles files);

// Waits until a child has ended. Returns its wait status, or -1 with errno set.
int wait_for_end(pid_t child);

// Runs a shell command as system() does. Returns the wait status, or -1 with errno set. The command inherits the
// descriptor `inherited`, unless that is -1.
int run_shell(const char* command, int inherited = -1);

}  // namespace kelo::base

#endif  // KELO_BASE_CHILD_HPP
