// SPDX-License-Identifier: MIT
// A diagnostic channel of the test program's own, which keeps every record.
#ifndef KELO_TESTS_OWN_CHANNEL_HPP
#define KELO_TESTS_OWN_CHANNEL_HPP

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "kelo_utils/log.h"

namespace kelo::tests {

struct ChannelRecord {
  const LogDiagDescriptor* site;  // only for comparison: the library's own descriptors end with the call
  int line;
  int subsystem;
  unsigned mask;
  std::string format;
  std::string file;
  int process;
  std::string function;
  std::string text;
};

struct OwnChannel {
  std::atomic<int> starts{0};
  std::atomic<int> start_result{1};
  std::atomic<bool> environment_given{false};  // by any start
  std::function<void()> during_start;          // set before threads are
};

OwnChannel& own_channel();
std::vector<ChannelRecord> channel_records();

}  // namespace kelo::tests

#endif  // KELO_TESTS_OWN_CHANNEL_HPP
