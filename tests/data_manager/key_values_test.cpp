// SPDX-License-Identifier: MIT
// Lists of keys and values in one item: parsing, replacing, appending and their limits.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "data_manager/key_value_text.hpp"
#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/recording_backend.hpp"

// The linker hands the library's calls of its read to the second (--wrap).
extern "C" {
std::int32_t read_of_library(kelo_dm_handle* handle, std::int32_t id, void* buf,
                             std::int32_t size) asm("__real_kelo_dm_read");
std::int32_t read_with_text(kelo_dm_handle* handle, std::int32_t id, void* buf,
                            std::int32_t size) asm("__wrap_kelo_dm_read");
}

namespace {

using kelo::tests::backend;
using kelo::tests::LogCapture;
using kelo::tests::RecordingHandle;

// What a read of the text is made to find; without it the library's own read answers.
std::optional<std::string> text_in_memory;

// ---- the text by itself ----

std::string set_pair(std::string_view list, std::string_view key, std::string_view value) {
  const kelo::dm::KeyValue pair = {key, value};
  // A block of exactly the promised size, for the address sanitizer.
  const std::size_t size = list.size() + kelo::dm::text_size(pair) + 1;
  const std::unique_ptr<char[]> out(new char[size]);
  const std::string_view text = kelo::dm::set_pair(list, pair, {out.get(), size});
  EXPECT_EQ(out.get(), text.data());
  EXPECT_EQ(text.data()[text.size()], '\0');
  return std::string(text);
}

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs all_pairs(std::string_view list) {
  Pairs pairs;
  for (auto pair = kelo::dm::take_pair(list); pair; pair = kelo::dm::take_pair(list))
    pairs.emplace_back(pair->key, pair->value);
  return pairs;
}

TEST(KeyValueText, AppendsANewKey) {
  EXPECT_EQ(set_pair("", "a", "1"), "a,1;");
  EXPECT_EQ(set_pair("a,1;b,2;", "c", "3"), "a,1;b,2;c,3;");
  EXPECT_EQ(set_pair("ssid,home;", "channel", "6"), "ssid,home;channel,6;");
}

TEST(KeyValueText, ReplacesInPlace) {
  EXPECT_EQ(set_pair("a,1;b,2;", "a", "9"), "a,9;b,2;");
  EXPECT_EQ(set_pair("a,1;b,2;", "b", "long value"), "a,1;b,long value;");
  EXPECT_EQ(set_pair("a,1;b,22222;c,3;", "b", "x"), "a,1;b,x;c,3;");
}

TEST(KeyValueText, FindsTheKeyInsideALongerOne) {
  EXPECT_EQ(set_pair("ba,5;", "a", "9"), "ba,9;");
  EXPECT_EQ(set_pair("ba,5;a,1;", "a", "9"), "ba,9;a,1;");
}

TEST(KeyValueText, AKeyNeedsItsComma) {
  EXPECT_EQ(set_pair("ab,1;", "a", "9"), "ab,1;a,9;");
  EXPECT_EQ(set_pair("x,a;", "a", "9"), "x,a;a,9;");
  EXPECT_EQ(set_pair("aaab,1;", "aa", "2"), "aaab,1;aa,2;");
  EXPECT_EQ(set_pair("baa,1;", "aa", "2"), "baa,2;");
  EXPECT_EQ(set_pair("aaa,1;", "aa", "2"), "aaa,2;") << "the second place has the comma";
}

TEST(KeyValueText, TextWithoutItsLastSemicolon) {
  EXPECT_EQ(set_pair("a,1", "a", "9"), "a,9;");
  EXPECT_EQ(set_pair("a,1", "b", "2"), "a,1b,2;");
  EXPECT_EQ(set_pair("a", "a", "2"), "aa,2;") << "a key at the very end has no comma";
}

TEST(KeyValueText, TakesPairsApart) {
  EXPECT_EQ(all_pairs("a,1;b,2;"), (Pairs{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(all_pairs("a,1;b,2"), (Pairs{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(all_pairs("a,1,2;"), (Pairs{{"a", "1,2"}})) << "the first comma divides";
  EXPECT_EQ(all_pairs("a;,1;b,;"), (Pairs{{"a", ""}, {"", "1"}, {"b", ""}}));
  EXPECT_EQ(all_pairs("a,1;;b,2;"), (Pairs{{"a", "1"}})) << "an empty pair ends the list";
  EXPECT_EQ(Pairs{}, all_pairs(""));
  EXPECT_EQ(Pairs{}, all_pairs(";a,1;"));
}

TEST(KeyValueText, RowsAreCut) {
  std::array<char, 8> row;
  row.fill('#');
  kelo::dm::fill_row({row.data(), 4}, "abc");
  EXPECT_EQ(std::string_view("abc\0####", 8), std::string_view(row.data(), 8));
  kelo::dm::fill_row({row.data(), 4}, "wxyz");
  EXPECT_EQ(std::string_view("wxy\0####", 8), std::string_view(row.data(), 8));
  kelo::dm::fill_row({row.data(), 4}, "");
  EXPECT_EQ(std::string_view("\0xy\0####", 8), std::string_view(row.data(), 8));
}

// ---- the calls ----

struct Rows {
  std::vector<std::array<char, KELO_DM_KEY_VALUE_ROW_SIZE>> keys;
  std::vector<std::array<char, KELO_DM_KEY_VALUE_ROW_SIZE>> values;
  std::int32_t count = -7;

  explicit Rows(std::size_t rows = KELO_DM_KEY_VALUE_ROWS) : keys(rows), values(rows) {
    for (auto& row : keys) row.fill('#');
    for (auto& row : values) row.fill('#');
  }
  std::int32_t read(kelo_dm_handle* handle) {
    return kelo_dm_read_key_value_pairs(handle, 7, reinterpret_cast<char(*)[256]>(keys.data()),
                                        reinterpret_cast<char(*)[256]>(values.data()), &count);
  }
};

class KeyValues : public testing::Test {
 protected:
  void SetUp() override {
    static kelo_dm_item table[] = {KELO_DM_ITEM(7, "TAB", "KEY", KELO_DM_TYPE_STRING, 0, 0), KELO_DM_END};
    ASSERT_EQ(kelo_dm_reg_def_items(table), 0);
  }

  std::int32_t write(const std::string& key, const std::string& value) {
    return kelo_dm_write_key_value_pairs(handle_.get(), 7, key.c_str(), value.c_str(), &out_len_);
  }

  [[nodiscard]] int said(int level, std::string_view text) const {
    return capture_.count(level, "oem_dm_write_key_value_pairs", text);
  }
  [[nodiscard]] int read_said(int level, std::string_view text) const {
    return capture_.count(level, "oem_dm_read_key_value_pairs", text);
  }

  const LogCapture capture_;
  const RecordingHandle handle_;
  std::int32_t out_len_ = -7;
};

TEST_F(KeyValues, WriteStoresThePairAlone) {
  EXPECT_EQ(write("a", "1"), 0);
  EXPECT_EQ(out_len_, 4);
  ASSERT_EQ(backend().calls.size(), 1U);
  EXPECT_EQ(backend().calls[0].slot, "write");
  EXPECT_EQ(backend().calls[0].id, 7U);
  EXPECT_EQ(backend().calls[0].bytes, "a,1;");
  EXPECT_EQ(said(LOG_LVL_DBUG, "write key: a, value: 1\n"), 1);
  EXPECT_EQ(capture_.count(LOG_LVL_INFO, "oem_dm_read", "DM_RD_MEM ret 1024\n"), 1);
  EXPECT_EQ(said(LOG_LVL_DBUG, "final str, write to db: a,1;\n"), 1);

  backend().stored = "a,1;";
  EXPECT_EQ(write("bb", "22"), 0);
  EXPECT_EQ(out_len_, 6);
  EXPECT_EQ(backend().calls.at(1).bytes, "bb,22;") << "each write starts from an empty list";
}

TEST_F(KeyValues, ReadFindsNoPairs) {
  backend().stored = "a,1;b,2;";
  Rows rows;
  EXPECT_EQ(rows.read(handle_.get()), 0);
  EXPECT_EQ(rows.count, 0);
  EXPECT_EQ(rows.keys[0][0], '#');
  EXPECT_EQ(rows.values[0][0], '#');
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_EQ(read_said(LOG_LVL_DBUG, "read from db: \n"), 1);
  EXPECT_EQ(read_said(LOG_LVL_DBUG, "key-value pairs num: 0\n"), 1);
}

TEST_F(KeyValues, LengthsOfKeyAndValue) {
  EXPECT_EQ(write("", "1"), 3);
  EXPECT_EQ(write("a", ""), 3);
  EXPECT_EQ(write("", ""), 3);
  EXPECT_EQ(write(std::string(300, 'k'), std::string(213, 'v')), 3);
  EXPECT_EQ(write("k", std::string(5000, 'v')), 3);
  EXPECT_EQ(said(LOG_LVL_ERR, "length of key or value error\n"), 5);
  EXPECT_EQ(out_len_, -7);
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_EQ(said(LOG_LVL_DBUG, "write key: a, value: \n"), 1) << "what was asked for is logged before";

  EXPECT_EQ(write(std::string(300, 'k'), std::string(212, 'v')), 0);
  EXPECT_EQ(out_len_, 514);
  EXPECT_EQ(write(std::string(511, 'k'), "v"), 0);
  EXPECT_EQ(said(LOG_LVL_ERR, "length of key or value error\n"), 5);
}

TEST_F(KeyValues, NullArguments) {
  EXPECT_EQ(kelo_dm_write_key_value_pairs(handle_.get(), 7, nullptr, "1", &out_len_), 3);
  EXPECT_EQ(kelo_dm_write_key_value_pairs(handle_.get(), 7, "a", nullptr, &out_len_), 3);
  EXPECT_EQ(kelo_dm_write_key_value_pairs(handle_.get(), 7, "a", "1", nullptr), 3);
  EXPECT_EQ(said(LOG_LVL_ERR, "kelo_dm_write_key_value_pairs param NULL\n"), 3);
  char keys[1][256] = {"#"};
  char values[1][256] = {"#"};
  std::int32_t count = -7;
  EXPECT_EQ(kelo_dm_read_key_value_pairs(handle_.get(), 7, nullptr, values, &count), 3);
  EXPECT_EQ(kelo_dm_read_key_value_pairs(handle_.get(), 7, keys, nullptr, &count), 3);
  EXPECT_EQ(kelo_dm_read_key_value_pairs(handle_.get(), 7, keys, values, nullptr), 3);
  EXPECT_EQ(read_said(LOG_LVL_ERR, "kelo_dm_read_key_value_pairs param NULL\n"), 3);
  EXPECT_EQ(capture_.lines().size(), 6U);
  EXPECT_EQ(out_len_, -7);
  EXPECT_EQ(count, -7);
  EXPECT_TRUE(backend().calls.empty());
}

TEST_F(KeyValues, NullHandleIsAFailedRead) {
  EXPECT_EQ(kelo_dm_write_key_value_pairs(nullptr, 7, "a", "1", &out_len_), -3);
  EXPECT_EQ(out_len_, -7);
  EXPECT_EQ(said(LOG_LVL_ERR, "read db failed\n"), 1);
  Rows rows;
  EXPECT_EQ(rows.read(nullptr), -3);
  EXPECT_EQ(rows.count, 0);
  EXPECT_EQ(rows.keys[0][0], '#');
  EXPECT_EQ(read_said(LOG_LVL_ERR, "read db failed\n"), 1);
  EXPECT_EQ(capture_.count(LOG_LVL_ERR, "oem_dm_read", "oem_dm_read param NULL\n"), 2);
}

TEST_F(KeyValues, WriteErrorIsPassedOn) {
  backend().write_result = 5;
  EXPECT_EQ(write("a", "1"), 5);
  EXPECT_EQ(out_len_, 4) << "the length is known before the write";
  EXPECT_EQ(said(LOG_LVL_ERR, "write db failed\n"), 1);
  EXPECT_EQ(kelo_dm_write_key_value_pairs(handle_.get(), 8, "a", "1", &out_len_), -3) << "unknown id";
  EXPECT_EQ(said(LOG_LVL_ERR, "write db failed\n"), 2);
}

// ---- the calls with a read that finds a text ----

TEST_F(KeyValues, TextInMemoryIsEdited) {
  text_in_memory = "a,1;b,2;";
  EXPECT_EQ(write("a", "9"), 0);
  EXPECT_EQ(out_len_, 8);
  EXPECT_EQ(backend().calls.at(0).bytes, "a,9;b,2;");
  EXPECT_EQ(write("c", "3"), 0);
  EXPECT_EQ(out_len_, 12);
  EXPECT_EQ(backend().calls.at(1).bytes, "a,1;b,2;c,3;");
  EXPECT_EQ(said(LOG_LVL_DBUG, "final str, write to db: a,1;b,2;c,3;\n"), 1);
  text_in_memory = "ba,5;";
  EXPECT_EQ(write("a", "9"), 0);
  EXPECT_EQ(backend().calls.at(2).bytes, "ba,9;");
}

TEST_F(KeyValues, TextInMemoryIsUnpacked) {
  text_in_memory = "a,1;b,2;";
  Rows rows(2);
  EXPECT_EQ(rows.read(handle_.get()), 0);
  EXPECT_EQ(rows.count, 2);
  EXPECT_STREQ(rows.keys[0].data(), "a");
  EXPECT_STREQ(rows.values[0].data(), "1");
  EXPECT_STREQ(rows.keys[1].data(), "b");
  EXPECT_STREQ(rows.values[1].data(), "2");
  EXPECT_EQ(read_said(LOG_LVL_DBUG, "read from db: a,1;b,2;\n"), 1);
  EXPECT_EQ(read_said(LOG_LVL_DBUG, "key: a, value: 1\n"), 1);
  EXPECT_EQ(read_said(LOG_LVL_DBUG, "key: b, value: 2\n"), 1);
  EXPECT_EQ(read_said(LOG_LVL_DBUG, "key-value pairs num: 2\n"), 1);
}

TEST_F(KeyValues, ListThatWouldGrowTooLong) {
  text_in_memory = std::string(1020, 'x');
  EXPECT_EQ(write("a", "1"), 0);  // 1 + 1 + 2 + 1020 bytes
  EXPECT_EQ(out_len_, 1024);
  EXPECT_EQ(said(LOG_LVL_ERR, "ERROR: the length of db str out of DM_MAX_KEY_VALUE_STRLEN\n"), 0);
  text_in_memory = std::string(1021, 'x');
  EXPECT_EQ(write("a", "1"), 3);
  EXPECT_EQ(out_len_, 1024) << "untouched";
  EXPECT_EQ(backend().count("write"), 1);
  EXPECT_EQ(said(LOG_LVL_ERR, "ERROR: the length of db str out of DM_MAX_KEY_VALUE_STRLEN\n"), 1);
  text_in_memory = "a,1;" + std::string(1017, 'x');
  EXPECT_EQ(write("a", "2"), 3) << "refused although the replacement would fit";
}

TEST_F(KeyValues, TextThatFillsTheBuffer) {
  std::string text;
  while (text.size() < DM_MAX_KEY_VALUE_STRLEN) text += "k;";
  text_in_memory = text;
  Rows rows;  // the address sanitizer sees a row too many
  EXPECT_EQ(rows.read(handle_.get()), 0);
  EXPECT_EQ(rows.count, KELO_DM_KEY_VALUE_ROWS);
  EXPECT_STREQ(rows.keys[511].data(), "k");
  EXPECT_STREQ(rows.values[511].data(), "");
  EXPECT_EQ(write("a", "1"), 3);
}

TEST_F(KeyValues, LongKeysAndValuesAreCutToTheirRows) {
  text_in_memory = std::string(255, 'k') + "," + std::string(255, 'v') + ";" + std::string(256, 'K') + "," +
                   std::string(250, 'V') + ";";
  Rows rows(2);
  EXPECT_EQ(rows.read(handle_.get()), 0);
  EXPECT_EQ(rows.count, 2);
  EXPECT_EQ(rows.keys[0].data(), std::string(255, 'k'));
  EXPECT_EQ(rows.values[0].data(), std::string(255, 'v'));
  EXPECT_EQ(rows.keys[1].data(), std::string(255, 'K'));
  EXPECT_EQ(rows.values[1].data(), std::string(250, 'V'));

  text_in_memory = "k," + std::string(256, 'v') + ";";
  Rows cut(1);
  EXPECT_EQ(cut.read(handle_.get()), 0);
  EXPECT_EQ(cut.values[0].data(), std::string(255, 'v'));
}

}  // namespace

// Finds a text where the library's own leaves the buffer as it is.
std::int32_t read_with_text(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size) {
  if (text_in_memory) {
    const std::size_t count = std::min(text_in_memory->size(), static_cast<std::size_t>(size));
    std::memcpy(buf, text_in_memory->data(), count);
  }
  return read_of_library(handle, id, buf, size);
}
