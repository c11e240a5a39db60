// SPDX-License-Identifier: MIT
// Calls of the system and of the heap that fail. The replacements of these calls are in this program.
#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <optional>

#include "tests/faults/fault.hpp"
#include "tests/faults/marks.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/storage_faults.hpp"

namespace kelo::faults {
namespace {

using tests::FailingHeap;
using tests::kShortTransfer;

constexpr int kForGood = INT_MAX / 2;

struct CallErrors {
  const char* call;
  std::vector<int> errors;
};

const std::vector<CallErrors>& call_errors() {
  static const std::vector<CallErrors> kErrors = {
      {"open", {EIO, EMFILE, ENOSPC, EROFS, EINTR}},
      {"read", {EIO, EINTR, kShortTransfer}},
      {"pread", {EIO, EINTR, kShortTransfer}},
      {"write", {ENOSPC, EIO, EINTR, kShortTransfer}},
      {"pwrite", {ENOSPC, EIO, EINTR, kShortTransfer}},
      {"copy_file_range", {ENOSPC, EIO, kShortTransfer}},
      {"fsync", {EIO, ENOSPC, EINTR}},
      {"fdatasync", {EIO, ENOSPC}},
      {"syncfs", {EIO}},
      {"rename", {EIO, ENOSPC, EROFS}},
      {"link", {EIO, ENOSPC, EROFS, EPERM}},
      {"unlink", {EIO, EROFS}},
      {"ftruncate", {EIO, ENOSPC, EINTR}},
      {"fcntl", {EIO, ENOLCK, EAGAIN, EINTR}},
      {"stat", {EIO}},
      {"lstat", {EIO}},
      {"fstat", {EIO}},
      {"access", {EIO, EROFS}},
      {"lseek", {EIO}},
      {"readlink", {EIO}},
      {"realpath", {EIO}},
      {"mkdir", {ENOSPC, EROFS}},
      {"fchmod", {EIO, EROFS}},
      {"fchown", {EIO, EPERM}},
      {"fopen", {EMFILE, EIO}},
      {"fwrite", {ENOSPC}},
  };
  return kErrors;
}

const char* name_of(int error) { return error == kShortTransfer ? "SHORT" : strerrorname_np(error); }

std::optional<tests::Fault> failing_call;
std::optional<FailingHeap> failing_heap;

std::vector<Fault> failing_calls_of(const Calls& calls, bool for_good) {
  constexpr int kInterruptions = 3;  // in a row: no caller is interrupted for ever
  std::vector<Fault> faults;
  for (const auto& [call, errors] : call_errors()) {
    for (const int error : errors) {
      const int times = error == EINTR ? kInterruptions : kForGood;
      for (int at = 1; at <= calls.storage.at(call); ++at) {
        faults.push_back(failing(call, error, at, for_good ? times : 1));
      }
    }
  }
  return faults;
}

std::vector<Fault> calls_once(const crash::History& /*history*/, const Calls& calls) {
  return failing_calls_of(calls, false);
}

std::vector<Fault> calls_for_good(const crash::History& /*history*/, const Calls& calls) {
  return failing_calls_of(calls, true);
}

std::vector<Fault> failing_heaps(const Calls& calls, int failures, const char* name) {
  std::vector<Fault> faults;
  for (int at = 0; at < calls.allocations; ++at) {
    Fault fault;
    fault.name = name + std::to_string(at + 1);
    fault.may_end_process = true;
    fault.begin = [=] { failing_heap.emplace(at, failures); };
    fault.end = [] { failing_heap.reset(); };
    faults.push_back(std::move(fault));
  }
  return faults;
}

std::vector<Fault> memory_once(const crash::History& /*history*/, const Calls& calls) {
  return failing_heaps(calls, 1, "allocation ");
}

std::vector<Fault> memory_for_good(const crash::History& /*history*/, const Calls& calls) {
  return failing_heaps(calls, INT_MAX, "allocation from ");
}

std::vector<Fault> clock_jumps(const crash::History& /*history*/, const Calls& calls) {
  std::vector<Fault> faults;
  for (const int years : {10, -10}) {
    for (int at = 1; at <= calls.storage.at("clock"); ++at) {
      Fault fault = failing("clock", EIO, at, kForGood);
      fault.name = "clock " + std::to_string(at) + " by " + std::to_string(years) + " years";
      fault.begin = [=] {
        failing_call.emplace(tests::FaultPlan{.call = "clock", .code = years, .at = at, .times = kForGood});
      };
      faults.push_back(std::move(fault));
    }
  }
  return faults;
}

}  // namespace

const std::vector<FaultKind>& fault_kinds() {
  static const std::vector<FaultKind> kKinds = {
      {"call once", calls_once},     {"call for good", calls_for_good},
      {"memory once", memory_once},  {"memory for good", memory_for_good},
      {"process", process_faults},   {"folder", folder_faults},
      {"obstacle", obstacle_faults}, {"content", content_faults},
      {"clock", clock_jumps},
  };
  return kKinds;
}

Fault failing(const char* call, int error, int at, int times) {
  Fault fault;
  fault.name = std::string(call) + " " + std::to_string(at) + " " + name_of(error);
  fault.begin = [=] {
    failing_call.emplace(tests::FaultPlan{.call = call, .code = error, .at = at, .times = times});
  };
  fault.end = [] { failing_call.reset(); };
  return fault;
}

std::vector<const char*> failing_calls() {
  std::vector<const char*> names = {"clock"};
  for (const CallErrors& errors : call_errors()) names.push_back(errors.call);
  return names;
}

Fault counting(const char* call, int& seen) {
  Fault fault;
  fault.name = call;
  fault.begin = [=] { failing_call.emplace(tests::FaultPlan{.call = call, .at = tests::kNever}); };
  fault.end = [&seen] {
    seen = failing_call->seen();
    failing_call.reset();
  };
  return fault;
}

Fault counting_allocations(int& seen) {
  Fault fault;
  fault.name = "counting allocations";
  fault.begin = [] { failing_heap.emplace(INT_MAX); };
  fault.end = [&seen] {
    seen = INT_MAX - tests::heap_calls_left;
    failing_heap.reset();
  };
  return fault;
}

}  // namespace kelo::faults

// The memory of the histories themselves does not run out.
void* operator new(std::size_t size) {
  if (void* const block = kelo::tests::next_malloc(size)) return block;
  std::abort();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t /*size*/) noexcept { std::free(block); }

// The marks of a history are calls that no descriptor takes.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" long syscall(long number, ...) noexcept {
  static const auto real = kelo::tests::next_call("syscall", syscall);
  va_list list;
  va_start(list, number);
  long arguments[6];
  for (long& argument : arguments) argument = va_arg(list, long);
  va_end(list);
  if (kelo::faults::take_mark(number, static_cast<int>(arguments[0]),
                              reinterpret_cast<const void*>(arguments[1]))) {
    return 0;
  }
  return real(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}
