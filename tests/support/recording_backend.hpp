// SPDX-License-Identifier: MIT
// A storage back-end that stores nothing: it records what the data manager hands it and answers as told.
#ifndef KELO_TESTS_SUPPORT_RECORDING_BACKEND_HPP
#define KELO_TESTS_SUPPORT_RECORDING_BACKEND_HPP

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kelo_utils/data_manager.h"

namespace kelo::tests {

struct BackendCall {
  std::string slot;
  std::uint32_t id = 0;
  const kelo_dm_item_desc* item = nullptr;
  const void* address = nullptr;
  int len = 0;
  std::string bytes;  // what a write was given, at most 64 bytes of it
};

// One for the whole test program, since the slots are plain functions.
struct RecordingBackend {
  std::vector<BackendCall> calls;
  int write_result = 0;
  int read_failure = 0;  // when negative, the result of every read
  std::string stored;    // what a read copies
  int clean_result = 0;
  bool cleaning_ends = true;  // whether the clean clears the flag itself
  std::string clean_backup;
  int clean_second_argument = 0;
  std::int32_t* clean_flag = nullptr;
  std::int32_t clean_flag_seen = -1;

  [[nodiscard]] int count(const std::string& slot) const {
    return static_cast<int>(std::count_if(calls.begin(), calls.end(),
                                          [&](const BackendCall& call) { return call.slot == slot; }));
  }
};

inline RecordingBackend& backend() {
  static RecordingBackend recording;
  return recording;
}

inline int record_write(const char* slot, std::uint32_t id, kelo_dm_item_desc* item, const void* data,
                        int len) {
  const auto kept = static_cast<std::size_t>(std::clamp(len, 0, 64));
  backend().calls.push_back({slot, id, item, data, len, std::string(static_cast<const char*>(data), kept)});
  return backend().write_result;
}

inline int record_read(const char* slot, std::uint32_t id, kelo_dm_item_desc* item, void* buf, int size) {
  backend().calls.push_back({slot, id, item, buf, size, {}});
  if (backend().read_failure < 0) return backend().read_failure;
  const std::size_t count = std::min(backend().stored.size(), static_cast<std::size_t>(size));
  std::memcpy(buf, backend().stored.data(), count);
  return static_cast<int>(count);
}

// Lowers the clean flag as a back-end does when it has finished.
inline void end_cleaning() { std::atomic_ref(*backend().clean_flag).store(0); }

inline kelo_dm_operations recording_operations() {
  kelo_dm_operations operations = {};
  operations.write = [](std::uint32_t id, kelo_dm_item_desc* item, const void* data, int len) {
    return record_write("write", id, item, data, len);
  };
  operations.read = [](std::uint32_t id, kelo_dm_item_desc* item, void* buf, int size) {
    return record_read("read", id, item, buf, size);
  };
  operations.clean = [](const char* backup, int one, std::int32_t* clean_flag) {
    backend().calls.push_back({"clean", 0, nullptr, nullptr, 0, {}});
    backend().clean_backup = backup != nullptr ? backup : "(null)";
    backend().clean_second_argument = one;
    backend().clean_flag = clean_flag;
    backend().clean_flag_seen = std::atomic_ref(*clean_flag).load();
    if (backend().cleaning_ends) end_cleaning();
    return backend().clean_result;
  };
  operations.def_db_const = [](std::uint32_t id, kelo_dm_item_desc* item, const void* value, int len) {
    return record_write("def_db_const", id, item, value, len);
  };
  operations.def_db_read = [](std::uint32_t id, kelo_dm_item_desc* item, void* buf, int size) {
    return record_read("def_db_read", id, item, buf, size);
  };
  operations.read_cfg_db_version = [](std::uint32_t* /*version*/) {
    backend().calls.push_back({"read_cfg_db_version", 0, nullptr, nullptr, 0, {}});
    return 0;
  };
  operations.read_def_items_db_version = [](std::uint32_t* /*version*/) {
    backend().calls.push_back({"read_def_items_db_version", 0, nullptr, nullptr, 0, {}});
    return 0;
  };
  return operations;
}

// A handle with the recording back-end in its slots, released at the end of the scope.
class RecordingHandle {
 public:
  RecordingHandle() : handle_(kelo_dm_reg(1)) { handle_->operations = recording_operations(); }
  ~RecordingHandle() { kelo_dm_unreg(handle_); }
  RecordingHandle(const RecordingHandle&) = delete;
  RecordingHandle& operator=(const RecordingHandle&) = delete;

  [[nodiscard]] kelo_dm_handle* get() const { return handle_; }
  kelo_dm_operations* operator->() const { return &handle_->operations; }

 private:
  kelo_dm_handle* handle_;
};

// Raises the clean flag for its scope, as an asynchronous clean does.
class Cleaning {
 public:
  explicit Cleaning(const RecordingHandle& handle) {
    backend().cleaning_ends = false;
    kelo_dm_clean(handle.get(), nullptr);
    backend().calls.clear();
  }
  ~Cleaning() { end_cleaning(); }
  Cleaning(const Cleaning&) = delete;
  Cleaning& operator=(const Cleaning&) = delete;
};

// A statement that is to end in the fatal error; gtest looks for the text on standard error.
#define KELO_EXPECT_FATAL(statement)        \
  EXPECT_DEATH(                             \
      {                                     \
        dup2(STDERR_FILENO, STDOUT_FILENO); \
        statement;                          \
      },                                    \
      "data_manager/kelo_app_dm\\.c, line: [1-9][0-9]*")

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_RECORDING_BACKEND_HPP
