// SPDX-License-Identifier: MIT
// Composes local log lines.
#include "log/local_line.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/time.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <span>

#include "base/file.hpp"
#include "base/text_builder.hpp"
#include "base/utc.hpp"
#include "kelo_utils/log.h"
#include "log/line_parts.hpp"
#include "log/moved_data.hpp"

char log_msg[KELO_LOG_LINE_SIZE];
char str_t[KELO_LOG_STAMP_SIZE];

// Second names of the two objects, which no object of a program can replace.
extern "C" {
extern __attribute__((visibility("hidden"), alias("log_msg"))) char kelo_log_own_line[KELO_LOG_LINE_SIZE];
extern __attribute__((visibility("hidden"), alias("str_t"))) char kelo_log_own_stamp[KELO_LOG_STAMP_SIZE];
}

namespace kelo::log {
namespace {

using base::TextBuilder;

// The buffers in which lines and stamps are composed, guarded by the log lock. A program may define unrelated objects
// with the exported names, of any size. The library does not write to those.
std::span<char> line_place;
std::span<char> stamp_place;

std::span<char> place_of(std::span<char> exported, std::span<char> own) {
  return is_librarys(exported.data(), own.data(), own.size()) ? exported : own;
}

void find_places() {
  if (!line_place.empty()) return;
  stamp_place = place_of(str_t, kelo_log_own_stamp);
  line_place = place_of(log_msg, kelo_log_own_line);
}

// The lookup returns only the first five of the six tags. Lines of the last level and of level -1 contain the text that
// the C library prints for a null string.
constexpr char kTags[][6] = {" DBUG", " INFO", "-WRN-", "=ERR=", "*CRT*", "*EMR*"};
constexpr unsigned kLastServedTag = 4;

const char* tag_of(int level) {
  const auto index = static_cast<unsigned>(level);
  return index <= kLastServedTag ? kTags[index] : nullptr;
}

void stamp_time() {
  timeval now{};
  gettimeofday(&now, nullptr);
  const base::CalendarTime utc = base::calendar_from_seconds(now.tv_sec);
  TextBuilder stamp(stamp_place);
  append_stamp(stamp, {utc.year, utc.month, utc.day, utc.hour, utc.minute, utc.second,
                       static_cast<int>(now.tv_usec / 1000)});
}

// A thread whose name could be read from its file. The variable belongs to that thread. After fork() the process number
// differs, so the child reads its own file first.
struct KnownThread {
  int process;
  int thread;
};
thread_local KnownThread known_thread;

// Writes the calling thread's name into `name` and returns the thread's number. The name is "NULL" until it could be
// read from the proc file system. After that prctl() is used, which takes a tenth of the time.
int read_thread_name(int process, std::span<char> name) {
  KnownThread& known = known_thread;
  if (known.process == process) {
    prctl(PR_GET_NAME, name.data());
  } else {
    const int thread = get_tid();
    const base::FixedText<128> path("/proc/%d/task/%d/comm", process, thread);
    ssize_t count = -1;
    if (const base::Descriptor comm = base::open_file(path.c_str(), O_RDONLY)) {
      count = base::read_some(comm.get(), name.first(name.size() - 1));
    }
    if (count <= 0) {
      TextBuilder(name).append("NULL");
      return thread;
    }
    name[static_cast<std::size_t>(count)] = '\0';
    known = {process, thread};
  }
  name[std::strcspn(name.data(), "\n")] = '\0';
  return known.thread;
}

}  // namespace

const char* compose_local_line(const Message& message) {
  find_places();
  std::array<char, 64> thread_name{};  // the kernel limits names to 16 bytes
  const int thread = read_thread_name(message.process, thread_name);
  // Programs read both buffers, so nothing of an earlier, longer line may remain after the terminators.
  std::memset(stamp_place.data(), 0, stamp_place.size());
  std::memset(line_place.data(), 0, line_place.size());
  stamp_time();
  TextBuilder line(line_place);
  line.print("%s : %s | [%d | %d-%s] | ", stamp_place.data(), tag_of(message.level), message.process, thread,
             thread_name.data());
  append_display_name(line, message.func);
  line.print(" %d | %s", message.line, message.text);
  return line_place.data();
}

}  // namespace kelo::log
