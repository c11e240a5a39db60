// Programs started as children, whatever state the calling program's signals and streams are in.
#ifndef KELO_BASE_CHILD_HPP
#define KELO_BASE_CHILD_HPP

#include <signal.h>
#include <sys/types.h>

#include <initializer_list>

#include "base/file.hpp"

namespace kelo::base {

// Keeps SIGCHLD from the calling thread while it lives, as a handler that waits for every child would take the
// one that this thread waits for. Another thread that lets the signal in still runs the handler.
class [[nodiscard]] ChildSignalBlock {
 public:
  ChildSignalBlock();
  ~ChildSignalBlock();
  ChildSignalBlock(const ChildSignalBlock&) = delete;
  ChildSignalBlock& operator=(const ChildSignalBlock&) = delete;

 private:
  sigset_t before_;
};

// A pipe that no program inherits. Its ends stay clear of the numbers of the standard streams, which a process
// without those would give to them.
struct Pipe {
  Descriptor read_end;
  Descriptor write_end;

  // False with errno set on failure.
  [[nodiscard]] bool open();
};

// A descriptor that a child gets, and the number that it has there. It gets nothing for a descriptor of -1.
struct ChildFile {
  int descriptor;
  int number;
};
using ChildFiles = std::initializer_list<ChildFile>;

// Starts a program, which is looked for in the search path when it has no slash. It begins with no signal
// blocked, and with the default action of SIGPIPE and SIGCHLD: who ignores the first never ends a command that
// prints more than is read, and who ignores the second cannot wait. Returns its process id, or -1 with errno
// set, that of a failed exec included.
pid_t start_program(const char* program, char* const* arguments, ChildFiles files);

// Has the shell run a command, as start_program() does.
pid_t start_shell(const char* command, ChildFiles files);

// Waits for the end of a child. Its wait status, or -1 with errno set.
int wait_for_end(pid_t child);

// Does what system() does. The wait status, or -1 with errno set. The command keeps the descriptor `inherited`,
// unless that is -1.
int run_shell(const char* command, int inherited = -1);

}  // namespace kelo::base

#endif  // KELO_BASE_CHILD_HPP
