// SPDX-License-Identifier: MIT
// Receives the log lines of the library. The library would send them to the system's log, which an operator does not
// see, and the results of its functions do not tell a full disk from a lock.
#include "tools/keloctl/channel.hpp"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/file.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/log.h"

namespace kelo::ctl {
namespace {

bool shown = false;
bool in_vain = false;
char reason[256];

// A healthy write logs errors, too. These parts are in the lines that say why one has failed.
constexpr struct {
  const char* part;
  bool is_wait;
} kReasons[] = {{"-lock was held by others", true},
                {"a cp that was left running", true},
                {"cannot be opened, nothing was done", false},
                {"step failed rc: ", false},
                {"sqlite3_open failed", false},
                {"create table error", false},
                {"unlink ", false},
                {"open failed:", false},
                {"sql_cmd err info:", false},
                {"sql_cmd err info:[database is locked]", true},
                {"could not be copied", false}};

void keep(const char* message) {
  for (const auto& known : kReasons) {
    if (std::strstr(message, known.part) == nullptr) continue;
    in_vain |= known.is_wait;
    base::TextBuilder(reason).append({message, std::strcspn(message, "\n")});
  }
}

}  // namespace

void show_log_lines() { shown = true; }
bool waited_in_vain() { return in_vain; }
const char* reason_of_failure() { return reason; }

}  // namespace kelo::ctl

extern "C" {

// NOLINTNEXTLINE(misc-definitions-in-headers): the library calls both functions of the program
int Diag_LSM_Init(char* /*environment*/) { return 1; }

void msg_sprintf(const LogDiagDescriptor* descriptor, ...) {
  const kelo::base::ErrnoKeeper keeper;
  va_list arguments;
  va_start(arguments, descriptor);
  static_cast<void>(va_arg(arguments, int));  // the process id
  const char* const function = va_arg(arguments, const char*);
  const char* const message = va_arg(arguments, const char*);
  va_end(arguments);
  if (message == nullptr) return;
  kelo::ctl::keep(message);
  if (kelo::ctl::shown)
    std::fprintf(stderr, "%s: %.*s\n", function, static_cast<int>(std::strcspn(message, "\n")), message);
}

}  // extern "C"
