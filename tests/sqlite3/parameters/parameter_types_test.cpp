// SPDX-License-Identifier: MIT
// How each type of parameter is read and written.
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/support/exact_buffer.hpp"
#include "tests/support/parameter_files.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<std::uint32_t, 2> kBytes = {0, 1};
constexpr std::array<std::uint32_t, 3> kWords = {2, 4, 7};

class ParameterTypes : public ParameterTest {
 protected:
  template <typename Number>
  static Number read(const char* name, std::uint32_t type) {
    // One byte beyond would be seen by the sanitizer, and one that is left by the comparison.
    const ExactBuffer variable(sizeof(Number));
    EXPECT_EQ(kelo_db_get_value("wifi", name, variable.data(), type, 0), 0);
    Number number{};
    std::memcpy(&number, variable.data(), sizeof number);
    return number;
  }
  template <typename Number>
  static int write(const char* name, std::uint32_t type, Number number) {
    const ExactBuffer variable(sizeof number);
    std::memcpy(variable.data(), &number, sizeof number);
    return kelo_db_update_value("wifi", name, variable.data(), type);
  }
  static std::string read_text(std::size_t size) {
    const ExactBuffer variable(size);
    EXPECT_EQ(kelo_db_get_value("wifi", "ssid", variable.data(), 6, static_cast<std::uint32_t>(size)), 0);
    return variable.bytes();
  }
  static int write_text(const std::string& text) {
    const ExactBuffer variable(text);
    return kelo_db_update_value("wifi", "ssid", variable.data(), 6);
  }
};

TEST_F(ParameterTypes, EightBitsKeepTheLowBitsOfANumber) {
  for (const std::uint32_t type : kBytes) {
    set_cell("channel", "255");
    EXPECT_EQ(read<std::uint8_t>("channel", type), 255);
    set_cell("channel", "256");
    EXPECT_EQ(read<std::uint8_t>("channel", type), 0);
    set_cell("channel", "300");
    EXPECT_EQ(read<std::uint8_t>("channel", type), 44);
    set_cell("channel", "-1");
    EXPECT_EQ(read<std::uint8_t>("channel", type), 255);
  }
}

TEST_F(ParameterTypes, EightBitsAreWrittenWithoutASign) {
  for (const std::uint32_t type : kBytes) {
    for (const int number : {0, 1, 127, 128, 255}) {
      const CallTrace trace;
      EXPECT_EQ(write("channel", type, static_cast<std::uint8_t>(number)), 0);
      EXPECT_EQ(cell("channel"), std::to_string(number));
      EXPECT_EQ(trace.count("sqlite3_exec", "update wifi set  channel = " + std::to_string(number) + ";"), 1);
      EXPECT_EQ(read<std::uint8_t>("channel", type), number);
    }
  }
}

TEST_F(ParameterTypes, ThirtyTwoBitsAreReadWithOrWithoutASign) {
  for (const std::uint32_t type : kWords) {
    set_cell("users", "4294967295");
    EXPECT_EQ(read<std::uint32_t>("users", type), 4294967295U);
    set_cell("users", "-1");
    EXPECT_EQ(read<std::uint32_t>("users", type), 4294967295U);
    set_cell("users", "-2147483648");
    EXPECT_EQ(read<std::int32_t>("users", type), INT32_MIN);
    set_cell("users", "2147483648");
    EXPECT_EQ(read<std::uint32_t>("users", type), 2147483648U);
    set_cell("users", "4294967296");
    EXPECT_EQ(read<std::uint32_t>("users", type), 0U);
    set_cell("users", "4294967338");
    EXPECT_EQ(read<std::uint32_t>("users", type), 42U);
  }
}

TEST_F(ParameterTypes, ThirtyTwoBitsAreWrittenWithASign) {
  for (const std::uint32_t type : kWords) {
    for (const std::int32_t number : {0, 1, -1, INT32_MAX, INT32_MIN}) {
      EXPECT_EQ(write("users", type, number), 0);
      EXPECT_EQ(cell("users"), std::to_string(number));
      EXPECT_EQ(read<std::int32_t>("users", type), number);
    }
    EXPECT_EQ(write("users", type, 4294967295U), 0);
    EXPECT_EQ(cell("users"), "-1");
    EXPECT_EQ(read<std::uint32_t>("users", type), 4294967295U);
  }
}

TEST_F(ParameterTypes, SixtyFourBitsAreExactUpToTheGreatestIntegerOfSqlite) {
  for (const std::uint64_t number : {0ULL, 1ULL, 4294967296ULL, 9223372036854775807ULL}) {
    EXPECT_EQ(write("bands", 5, number), 0);
    EXPECT_EQ(cell("typeof(bands)"), "integer");
    EXPECT_EQ(cell("bands"), std::to_string(number));
    EXPECT_EQ(read<std::uint64_t>("bands", 5), number);
  }
}

TEST_F(ParameterTypes, GreaterSixtyFourBitNumbersKeepTheirFirstDigits) {
  for (const std::uint64_t number : {1ULL << 63, 12345678901234567890ULL}) {
    const CallTrace trace;
    EXPECT_EQ(write("bands", 5, number), 0);
    EXPECT_EQ(trace.count("sqlite3_exec", "update wifi set  bands = " + std::to_string(number) + ";"), 1);
    EXPECT_EQ(cell("typeof(bands)"), "real");
    const auto back = read<std::uint64_t>("bands", 5);
    EXPECT_LT(back > number ? back - number : number - back, 100000U) << back;
  }
  EXPECT_EQ(write("bands", 5, UINT64_MAX), 0);
  const auto back = read<std::uint64_t>("bands", 5);
  EXPECT_GE(back, UINT64_MAX - 100000) << back;
}

// docs/parameters.md shows these numbers.
TEST_F(ParameterTypes, RealNumberOfTheExampleIsReadByItsLowBits) {
  set_cell("note", "'9.22337203685478e+18'");
  EXPECT_EQ(read<std::uint64_t>("note", 5), 9223372036854780000U);
  EXPECT_EQ(read<std::uint32_t>("note", 2), 4192U);
  EXPECT_EQ(read<std::uint8_t>("note", 0), 96);
}

TEST_F(ParameterTypes, EmptyAndNullCellsAreZero) {
  for (const char* const literal : {"''", "null", "'none'"}) {
    set_cell("note", literal);
    EXPECT_EQ(read<std::uint8_t>("note", 0), 0);
    EXPECT_EQ(read<std::uint8_t>("note", 1), 0);
    for (const std::uint32_t type : kWords) EXPECT_EQ(read<std::uint32_t>("note", type), 0U);
    EXPECT_EQ(read<std::uint64_t>("note", 5), 0U);
  }
}

TEST_F(ParameterTypes, TextIsCutToItsVariableAndFilledWithZeros) {
  EXPECT_EQ(read_text(10), std::string("factory\0\0\0", 10));
  EXPECT_EQ(read_text(8), std::string("factory\0", 8));
  EXPECT_EQ(read_text(7), std::string("factor\0", 7));
  EXPECT_EQ(read_text(2), std::string("f\0", 2));
  EXPECT_EQ(read_text(1), std::string("\0", 1));
}

TEST_F(ParameterTypes, EmptyAndNullCellsAreTheEmptyText) {
  for (const char* const literal : {"''", "null"}) {
    set_cell("ssid", literal);
    EXPECT_EQ(read_text(4), std::string(4, '\0')) << literal;
  }
}

TEST_F(ParameterTypes, NumberReadAsTextIsItsDigits) {
  set_cell("ssid", "-5");
  EXPECT_EQ(read_text(3), std::string("-5\0", 3));
}

TEST_F(ParameterTypes, TextVariableOfNoBytesIsRefused) {
  const ExactBuffer variable(4);
  EXPECT_EQ(kelo_db_get_value("wifi", "ssid", variable.data(), 6, 0), -1);
  EXPECT_TRUE(variable.untouched());
  EXPECT_THAT(errors(), ElementsAre("ERR oem_db_get_value: Error, param_type:6 \n"));
}

TEST_F(ParameterTypes, UnsupportedTypesAreRefused) {
  for (const std::uint32_t type : {3U, 8U, 255U, 256U, UINT32_MAX}) {
    log.clear();
    const ExactBuffer variable(16);
    EXPECT_EQ(kelo_db_get_value("wifi", "channel", variable.data(), type, 16), -1);
    EXPECT_TRUE(variable.untouched());
    const CallTrace trace;
    EXPECT_EQ(kelo_db_update_value("wifi", "channel", variable.data(), type), -1);
    EXPECT_THAT(trace.calls(), IsEmpty());
    const std::string number = std::to_string(static_cast<int>(type));
    EXPECT_THAT(errors(), ElementsAre("ERR oem_db_get_value: Error, param_type:" + number + " \n",
                                      "ERR oem_db_update_value: Error, param_type:" + number + " \n"));
  }
  EXPECT_EQ(cell("channel"), "36");
}

TEST_F(ParameterTypes, TextIsWrittenAsItIs) {
  for (const char* const text : {"", "plain", "it's", "a;b", "-- x", "per%cent %s", "back\\slash",
                                 "line\nbreak", "Z\xC3\xBCrich", "\xFF\xFE"}) {
    EXPECT_EQ(write_text(text), 0) << text;
    EXPECT_EQ(cell("ssid"), text);
    EXPECT_EQ(read_text(std::strlen(text) + 1), std::string(text, std::strlen(text) + 1));
  }
}

TEST_F(ParameterTypes, TextThatNamesAColumnIsATextAllTheSame) {
  for (const char* const text :
       {"note", "NOTE", "ssid", "channel", "rowid", "oid", "_rowid_", "true", "null", "current_time"}) {
    EXPECT_EQ(write_text(text), 0) << text;
    EXPECT_EQ(cell("ssid"), text);
    EXPECT_EQ(cell("typeof(ssid)"), "text");
  }
  EXPECT_THAT(errors(), IsEmpty());
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "update_item_to_db",
                      "sqlite3_exec sql_cmd:[update wifi set  ssid = \"note\";].\n"),
            1);
}

TEST_F(ParameterTypes, TriggerOfTheTableMayReadItsColumns) {
  execute_sql(kUserFile,
              "create trigger t after update of ssid on wifi begin "
              "update wifi set note = new.ssid || channel; end");
  EXPECT_EQ(write_text("home"), 0);
  EXPECT_EQ(cell("note"), "home36");
  EXPECT_EQ(write_text("channel"), 0);
  EXPECT_EQ(cell("note"), "channel36");
  EXPECT_EQ(write_text("it's"), 0);
  EXPECT_EQ(cell("note"), "it's36");
}

TEST_F(ParameterTypes, TextThatNamesAColumnWithAnApostropheIsRefused) {
  execute_sql(kUserFile, "alter table wifi add column \"a', channel = '1\" default 'x'");
  const std::vector<std::string> before = user_row();
  EXPECT_EQ(write_text("a', channel = '1"), -1);
  EXPECT_EQ(user_row(), before);
  EXPECT_THAT(errors(),
              ElementsAre(testing::HasSubstr("update_item_to_db: Error, sql_cmd err info:[access to wifi."),
                          "ERR oem_db_update_value: Error, tbl_name:wifi update key:[ssid] failed.\n"));
}

TEST_F(ParameterTypes, TextWithADoubleQuoteIsRefused) {
  const std::vector<std::string> before = user_row();
  for (const char* const text : {"\"", "a\"b", "\"; drop table wifi; --", "a\", channel = \"1", "tail\""}) {
    log.clear();
    const CallTrace trace;
    EXPECT_EQ(write_text(text), -1) << text;
    EXPECT_THAT(trace.calls(), IsEmpty());
    EXPECT_THAT(lines(),
                ElementsAre("ERR oem_db_update_value: Error, tbl_name:wifi update key:[ssid] failed.\n"));
  }
  EXPECT_EQ(user_row(), before);
}

TEST_F(ParameterTypes, StatementFillsItsBufferAndIsNeverCut) {
  // 19 bytes, "wifi" and "ssid" are around the text
  const std::string longest(255 - 19 - 8, 'x');
  EXPECT_EQ(write_text(longest), 0);
  EXPECT_EQ(cell("ssid"), longest);
  for (const std::size_t length : {longest.size() + 1, longest.size() + 2, std::size_t{254}, std::size_t{255},
                                   std::size_t{256}, std::size_t{257}, std::size_t{5000}}) {
    log.clear();
    const CallTrace trace;
    EXPECT_EQ(write_text(std::string(length, 'y')), -1) << length;
    EXPECT_THAT(trace.calls(), IsEmpty());
    EXPECT_THAT(lines(),
                ElementsAre("ERR oem_db_update_value: Error, tbl_name:wifi update key:[ssid] failed.\n"));
  }
  EXPECT_EQ(cell("ssid"), longest);
}

}  // namespace
