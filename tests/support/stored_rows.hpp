// SPDX-License-Identifier: MIT
// Rows of items put there without the store, and what tests of their reading share.
#ifndef KELO_TESTS_STORED_ROWS_HPP
#define KELO_TESTS_STORED_ROWS_HPP

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/log_capture.hpp"

namespace kelo::tests {

inline std::string hex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 0xF];
  }
  return text;
}

inline std::int32_t crc_of(std::string_view value) {
  return kelo_dm_Crc32Calc(value.data(), static_cast<std::uint16_t>(value.size()), 0);
}

inline constexpr char kCreateItems[] =
    "create table if not exists net (id integer not null,key text not null,type integer not null,"
    "len integer not null,crc integer not null,value blob);";

// A row as the store keeps it, with any checksum.
inline void put_row(const char* path, const std::string& key, std::string_view value, std::int32_t crc) {
  execute_sql(path, kCreateItems + ("delete from net where key='" + key + "'; insert into net values (7, '" +
                                    key + "', 6, " + std::to_string(value.size()) + ", " +
                                    std::to_string(crc) + ", x'" + hex(value) + "')"));
}
inline void put(const char* path, const std::string& key, std::string_view value) {
  put_row(path, key, value, crc_of(value));
}

// A heap block of exactly `size` bytes, so that the sanitizer sees a byte too many, preset to a mark.
class MarkedBuffer {
 public:
  static constexpr char kMark = '\x5A';
  explicit MarkedBuffer(std::size_t size) : size_(size), bytes_(new char[size]) {
    std::memset(bytes_.get(), kMark, size);
  }
  [[nodiscard]] char* data() { return bytes_.get(); }
  [[nodiscard]] int size() const { return static_cast<int>(size_); }
  [[nodiscard]] std::string first(std::size_t count) const { return {bytes_.get(), count}; }
  [[nodiscard]] bool untouched_from(std::size_t start) const {
    return std::string(bytes_.get() + start, size_ - start) == std::string(size_ - start, kMark);
  }

 private:
  std::size_t size_;
  std::unique_ptr<char[]> bytes_;
};

// Eight bytes, so that the checksum covers the first one; its known value is the polynomial itself.
inline constexpr char kValue[] = "\x01wireles";
inline constexpr std::size_t kLength = 8;
inline constexpr std::uint32_t kCrc = 0x04C11DB7;

// Reads the row "ssid" of the primary, and sees that no connection is left open.
class ReadRow : public testing::Test {
 protected:
  static constexpr std::uint32_t kUnset = 0xDEADBEEF;

  void TearDown() override { EXPECT_EQ(descriptors_, open_descriptors()) << "a connection was left open"; }

  int read(MarkedBuffer& buffer) {
    return dm_read_db(DB_CONFIG, "net", "ssid", buffer.data(), &crc_, buffer.size());
  }
  [[nodiscard]] int logged(const char* text) const { return log_.count(LOG_LVL_ERR, "dm_read_db", text); }
  [[nodiscard]] int prepare_errors(int code) const {
    return log_.count_matching(LOG_LVL_ERR,
                               R"(\[\d+\] sqlite3_prepare error, )" + std::to_string(code) + " \n");
  }

  const std::set<std::string> descriptors_ = open_descriptors();
  std::uint32_t crc_ = kUnset;
  LogCapture log_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_STORED_ROWS_HPP
