// SPDX-License-Identifier: MIT
// A forked child that is given a bounded time.
#ifndef KELO_TESTS_BOUNDED_FORK_HPP
#define KELO_TESTS_BOUNDED_FORK_HPP

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

namespace kelo::tests {

enum class ChildEnd { good, bad, hung };

// Forks on begin(); the child ends with finish(), the parent learns from end() how.
class BoundedFork {
 public:
  BoundedFork() {
    if (pipe2(alive_.data(), O_CLOEXEC) != 0) std::abort();
  }
  BoundedFork(const BoundedFork&) = delete;
  BoundedFork& operator=(const BoundedFork&) = delete;
  ~BoundedFork() { close(alive_[0]); }

  // As fork(): 0 in the child.
  pid_t begin() {
    process_ = fork();
    if (process_ < 0) std::abort();
    if (process_ != 0) close(alive_[1]);
    return process_;
  }

  [[nodiscard]] bool in_child() const { return process_ == 0; }
  [[noreturn]] static void finish(bool good) { _exit(good ? 0 : 1); }

  // The child's end of the pipe closes with the child; one that lives longer than this is killed.
  ChildEnd end() {
    static constexpr int kPatienceMilliseconds = 20000;
    pollfd end_of_child{alive_[0], POLLIN, 0};
    int ready = -1;
    do {
      ready = poll(&end_of_child, 1, kPatienceMilliseconds);
    } while (ready == -1 && errno == EINTR);
    if (ready != 1) kill(process_, SIGKILL);
    int status = 0;
    while (waitpid(process_, &status, 0) == -1 && errno == EINTR) {
    }
    if (ready != 1) return ChildEnd::hung;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ChildEnd::good : ChildEnd::bad;
  }

 private:
  std::array<int, 2> alive_{-1, -1};
  pid_t process_ = -1;
};

template <typename Body>
ChildEnd fork_bounded(Body body) {
  BoundedFork child;
  if (child.begin() == 0) BoundedFork::finish(body());
  return child.end();
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_BOUNDED_FORK_HPP
