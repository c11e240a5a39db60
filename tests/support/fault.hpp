// SPDX-License-Identifier: MIT
// Lets a test name a call and fail it. What puts itself in the place of calls asks here: sqlite_faults.hpp, the headers
// *_faults.hpp beside it, and some tests; each says which calls it knows.
#ifndef KELO_TESTS_SUPPORT_FAULT_HPP
#define KELO_TESTS_SUPPORT_FAULT_HPP

#include <dlfcn.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "tests/support/before_sanitizer.hpp"

namespace kelo::tests {

// The code of a fault with which a read or write is made, but of half of its bytes only.
inline constexpr int kShortTransfer = 0x7001;

inline constexpr int kEveryTime = 1 << 30;
// The place of a fault that only counts its calls.
inline constexpr int kNever = INT_MAX;

// What a fault does, in the order in which a test names it.
struct FaultPlan {
  std::string_view call;     // "read", "sqlite3_step"
  int code = 0;              // errno, or what a call returns that returns its error
  std::string text = {};     // only calls whose text holds this: SQL, command, path of the database or file
  int at = 1;                // the first of the matching calls that fails
  int times = 1;             // how many fail from there on
  std::string error = {};    // sqlite3_exec, sqlite3_get_table: the error text; empty: SQLite's for the code
  bool null_error = false;   // the same: no error text at all
  bool null_handle = false;  // sqlite3_open, sqlite3_open_v2: no handle, as when memory has run out
};

// Makes calls of its thread fail while it lives. Several may live.
class Fault {
 public:
  explicit Fault(FaultPlan plan) : plan_(std::move(plan)) {
    Fault** last = &first;
    while (*last != nullptr) last = &(*last)->next_;
    *last = this;
  }
  ~Fault() {
    Fault** place = &first;
    while (*place != this) place = &(*place)->next_;
    *place = next_;
  }
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;

  // Calls that matched so far, and those of them that failed.
  [[nodiscard]] int seen() const { return seen_; }
  [[nodiscard]] int failed() const { return failed_; }

  // Whether any call of this thread is to fail.
  KELO_BEFORE_SANITIZER static bool is_set() { return first != nullptr; }

  // The plan of the fault that this call is to meet, or null.
  static const FaultPlan* meet(std::string_view call, std::string_view text = {}) {
    const FaultPlan* met = nullptr;
    for (Fault* fault = first; fault != nullptr; fault = fault->next_) {
      const FaultPlan& plan = fault->plan_;
      if (plan.call != call || text.find(plan.text) == std::string_view::npos) continue;
      ++fault->seen_;
      if (fault->seen_ < plan.at || fault->seen_ - plan.at >= plan.times || met != nullptr) continue;
      ++fault->failed_;
      met = &plan;
    }
    return met;
  }

  // Whether this call is to fail; errno is set then.
  static bool meets(std::string_view call, std::string_view text = {}) {
    const FaultPlan* const plan = meet(call, text);
    if (plan != nullptr) errno = plan->code;
    return plan != nullptr;
  }

 private:
  static inline thread_local Fault* first = nullptr;

  const FaultPlan plan_;
  // Tests declare their faults const.
  mutable Fault* next_ = nullptr;
  mutable int seen_ = 0;
  mutable int failed_ = 0;
};

// Makes a read or write of `size` bytes that met a fault.
template <typename Transfer>
auto fail_transfer(std::size_t size, Transfer transfer) -> decltype(transfer(size)) {
  if (errno != kShortTransfer) return -1;
  return transfer(size > 1 ? size / 2 : size);
}

// The function that an interposed one takes the place of.
template <typename Function>
Function* next_call(const char* name, Function* /*interposer*/) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) std::abort();
  return reinterpret_cast<Function*>(found);
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_FAULT_HPP
