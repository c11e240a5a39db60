// SPDX-License-Identifier: MIT
// What numbers the texts of cells are.
#include <clocale>
#include <cstdint>
#include <ostream>
#include <string>

#include "tests/support/parameter_files.hpp"

namespace {

using namespace kelo::tests;

constexpr std::uint64_t kGreatest = UINT64_MAX;

struct Text {
  const char* text;
  std::uint64_t number;
};
std::ostream& operator<<(std::ostream& out, const Text& text) { return out << '"' << text.text << '"'; }

class ParameterNumber : public ParameterTest {
 protected:
  static std::uint64_t read() {
    std::uint64_t number = 0xA5A5A5A5A5A5A5A5;
    EXPECT_EQ(kelo_db_get_value("wifi", "note", &number, KELO_DB_TYPE_64BIT, 0), 0);
    return number;
  }
};

TEST_F(ParameterNumber, IsReadFromTheStartOfTheText) {
  const std::vector<Text> texts = {
      {"0", 0},
      {"7", 7},
      {"007", 7},
      {"+7", 7},
      {" \t\n\v\f\r7", 7},
      {"7 8", 7},
      {"12abc", 12},
      {"0x1f", 0},
      {"", 0},
      {" ", 0},
      {"abc", 0},
      {"-", 0},
      {"+-7", 0},
      {"--7", 0},
      {"- 7", 0},
      {".", 0},
      {"e5", 0},
      {"-1", kGreatest},
      {"-0", 0},
      {"-9223372036854775808", 1ULL << 63},
      {"9223372036854775807", INT64_MAX},
      {"9223372036854775808", 1ULL << 63},
      {"18446744073709551614", kGreatest - 1},
      {"18446744073709551615", kGreatest},
      {"18446744073709551616", kGreatest},
      {"18446744073709551620", kGreatest},
      {"99999999999999999999999", kGreatest},
      {"-18446744073709551615", 1},
      {"-99999999999999999999999", 1},
      // another character set's digits are none
      {"\xD9\xA1", 0},
  };
  for (const Text& text : texts) {
    set_cell("note", "'" + std::string(text.text) + "'");
    EXPECT_EQ(read(), text.number) << text;
  }
}

TEST_F(ParameterNumber, FractionIsDroppedAndExponentCounts) {
  const std::vector<Text> texts = {
      {"1.9", 1},
      {"0.5", 0},
      {".5", 0},
      {"7.", 7},
      {"1.5e1", 15},
      {"1.59e1", 15},
      {"1E3", 1000},
      {"1e+3", 1000},
      {"1e", 1},
      {"1e-", 1},
      {"1500e-2", 15},
      {"1599e-2", 15},
      {"1e-1", 0},
      {"1e-99999999999", 0},
      {"0e99999999999", 0},
      {"1e19", 10000000000000000000ULL},
      {"1.8446744073709551615e19", kGreatest},
      {"1.8446744073709551614e19", kGreatest - 1},
      {"1e20", kGreatest},
      {"1e99999999999", kGreatest},
      {"-1.5", kGreatest},
      {"12345678901234567890.999999999999", 12345678901234567890ULL},
      {"0.00000000000000000000000000007e29", 7},
      {"1,5", 1},
      {"1.2.3e1", 1},
      {"1844674407370955161912345e-5", kGreatest},
      {"1234567890123456789012345e-6", 1234567890123456789ULL},
      {"99999999999999999999991599e-6", kGreatest},
      {"18446744073709551619e-1", 1844674407370955161ULL},
      {"1844674407370955161.9e1", kGreatest},
      {"1844674407370955161.5e1", kGreatest},
      {"1844674407370955161.95e0", 1844674407370955161ULL},
  };
  for (const Text& text : texts) {
    set_cell("note", "'" + std::string(text.text) + "'");
    EXPECT_EQ(read(), text.number) << text;
  }
}

TEST_F(ParameterNumber, OfEveryStorageClassIsRead) {
  set_cell("note", "42");
  EXPECT_EQ(read(), 42U);
  set_cell("note", "42.75");
  EXPECT_EQ(read(), 42U);
  set_cell("note", "x'3432'");
  EXPECT_EQ(read(), 42U);
  set_cell("note", "null");
  EXPECT_EQ(read(), 0U);
}

}  // namespace
