// Lets a test name a call and fail it, for headers that put themselves in the place of calls.
#ifndef KELO_TESTS_SUPPORT_FAILING_CALL_HPP
#define KELO_TESTS_SUPPORT_FAILING_CALL_HPP

#include <dlfcn.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "tests/support/before_sanitizer.hpp"

namespace kelo::tests {

// The error of a fault with which a read or write is made, but of half of its bytes only.
inline constexpr int kShortTransfer = 0x7001;

// Names a call and fails it: the `at`-th one of this thread, `times` times from there on. One at a time.
class FailingCall {
 public:
  FailingCall(std::string_view call, int error, int at = 1, int times = 1)
      : call_(call), error_(error), at_(at), times_(times) {
    current = this;
  }
  ~FailingCall() { current = nullptr; }
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;

  // Calls of that name so far.
  [[nodiscard]] int seen() const { return seen_; }

  // Whether any call of this thread is to fail.
  KELO_BEFORE_SANITIZER static bool is_set() { return current != nullptr; }

  // Whether this call is to fail; errno is set then.
  static bool meets(std::string_view call) {
    FailingCall* const fault = current;
    if (fault == nullptr || fault->call_ != call) return false;
    ++fault->seen_;
    if (fault->seen_ < fault->at_ || fault->seen_ - fault->at_ >= fault->times_) return false;
    errno = fault->error_;
    return true;
  }

 private:
  static inline thread_local FailingCall* current = nullptr;

  const std::string_view call_;
  const int error_;
  const int at_;
  const int times_;
  int seen_ = 0;
};

// Makes a read or write of `size` bytes that met a fault.
template <typename Transfer>
auto fail_transfer(std::size_t size, Transfer transfer) -> decltype(transfer(size)) {
  if (errno != kShortTransfer) return -1;
  return transfer(size > 1 ? size / 2 : size);
}

template <typename Function>
Function* next_call(const char* name, Function* /*interposer*/) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) std::abort();
  return reinterpret_cast<Function*>(found);
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_FAILING_CALL_HPP
