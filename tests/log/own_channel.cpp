// SPDX-License-Identifier: MIT
// A diagnostic channel that keeps what it gets.
#include "tests/log/own_channel.hpp"

#include <cerrno>
#include <cstdarg>
#include <mutex>

namespace kelo::tests {
namespace {

OwnChannel channel;
std::mutex mutex;
std::vector<ChannelRecord> records;

}  // namespace

OwnChannel& own_channel() { return channel; }

std::vector<ChannelRecord> channel_records() {
  const std::scoped_lock lock(mutex);
  return records;
}

}  // namespace kelo::tests

// Both set an errno of their own, as a platform library may.

int Diag_LSM_Init(char* environment) {
  using kelo::tests::channel;
  ++channel.starts;
  if (environment != nullptr) channel.environment_given = true;
  if (channel.during_start) channel.during_start();
  errno = ENODEV;
  return channel.start_result;
}

void msg_sprintf(const LogDiagDescriptor* descriptor, ...) {
  va_list arguments;
  va_start(arguments, descriptor);
  const int process = va_arg(arguments, int);
  const char* const function = va_arg(arguments, const char*);
  const char* const text = va_arg(arguments, const char*);
  va_end(arguments);
  {
    const std::scoped_lock lock(kelo::tests::mutex);
    kelo::tests::records.push_back({descriptor, descriptor->line, descriptor->subsystem, descriptor->mask,
                                    descriptor->format, descriptor->file, process,
                                    function == nullptr ? "(none)" : function,
                                    text == nullptr ? "(none)" : text});
  }
  errno = EPIPE;
}
