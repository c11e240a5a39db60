// Collects the library's log lines without allocating, for tests whose heap has run out.
#ifndef KELO_TESTS_SUPPORT_HEAP_FREE_LOG_HPP
#define KELO_TESTS_SUPPORT_HEAP_FREE_LOG_HPP

#include <array>
#include <cstddef>
#include <cstring>
#include <string>

#include "kelo_utils/log.h"

namespace kelo::tests {

// From construction to destruction every line of every level is kept, one behind the other, until the room
// for them is full. One at a time in a process.
class HeapFreeLog {
 public:
  HeapFreeLog() {
    length() = 0;
    kelo_set_log_tool_enable(0);
    kelo_set_log_level(LOG_LVL_DBUG);
    set_print_interface([](const char* line) {
      const std::size_t size = strnlen(line, room().size() - length());
      std::memcpy(room().data() + length(), line, size);
      length() += size;
    });
  }
  ~HeapFreeLog() {
    set_print_interface(nullptr);
    kelo_set_log_level(LOG_LVL_INFO);
  }
  HeapFreeLog(const HeapFreeLog&) = delete;
  HeapFreeLog& operator=(const HeapFreeLog&) = delete;

  [[nodiscard]] std::string lines() const { return {room().data(), length()}; }

 private:
  static std::array<char, 16384>& room() {
    static std::array<char, 16384> room;
    return room;
  }
  static std::size_t& length() {
    static std::size_t length = 0;
    return length;
  }
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_HEAP_FREE_LOG_HPP
