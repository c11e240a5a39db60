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
  EXPECT_EQ('\0', text.data()[text.size()]);
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
  EXPECT_EQ("a,1;", set_pair("", "a", "1"));
  EXPECT_EQ("a,1;b,2;c,3;", set_pair("a,1;b,2;", "c", "3"));
  EXPECT_EQ("ssid,home;channel,6;", set_pair("ssid,home;", "channel", "6"));
}

TEST(KeyValueText, ReplacesInPlace) {
  EXPECT_EQ("a,9;b,2;", set_pair("a,1;b,2;", "a", "9"));
  EXPECT_EQ("a,1;b,long value;", set_pair("a,1;b,2;", "b", "long value"));
  EXPECT_EQ("a,1;b,x;c,3;", set_pair("a,1;b,22222;c,3;", "b", "x"));
}

TEST(KeyValueText, FindsTheKeyInsideALongerOne) {
  EXPECT_EQ("ba,9;", set_pair("ba,5;", "a", "9"));
  EXPECT_EQ("ba,9;a,1;", set_pair("ba,5;a,1;", "a", "9"));
}

TEST(KeyValueText, AKeyNeedsItsComma) {
  EXPECT_EQ("ab,1;a,9;", set_pair("ab,1;", "a", "9"));
  EXPECT_EQ("x,a;a,9;", set_pair("x,a;", "a", "9"));
  EXPECT_EQ("aaab,1;aa,2;", set_pair("aaab,1;", "aa", "2"));
  EXPECT_EQ("baa,2;", set_pair("baa,1;", "aa", "2"));
  EXPECT_EQ("aaa,2;", set_pair("aaa,1;", "aa", "2")) << "the second place has the comma";
}

TEST(KeyValueText, TextWithoutItsLastSemicolon) {
  EXPECT_EQ("a,9;", set_pair("a,1", "a", "9"));
  EXPECT_EQ("a,1b,2;", set_pair("a,1", "b", "2"));
  EXPECT_EQ("aa,2;", set_pair("a", "a", "2")) << "a key at the very end has no comma";
}

TEST(KeyValueText, TakesPairsApart) {
  EXPECT_EQ((Pairs{{"a", "1"}, {"b", "2"}}), all_pairs("a,1;b,2;"));
  EXPECT_EQ((Pairs{{"a", "1"}, {"b", "2"}}), all_pairs("a,1;b,2"));
  EXPECT_EQ((Pairs{{"a", "1,2"}}), all_pairs("a,1,2;")) << "the first comma divides";
  EXPECT_EQ((Pairs{{"a", ""}, {"", "1"}, {"b", ""}}), all_pairs("a;,1;b,;"));
  EXPECT_EQ((Pairs{{"a", "1"}}), all_pairs("a,1;;b,2;")) << "an empty pair ends the list";
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
    ASSERT_EQ(0, kelo_dm_reg_def_items(table));
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
  EXPECT_EQ(0, write("a", "1"));
  EXPECT_EQ(4, out_len_);
  ASSERT_EQ(1U, backend().calls.size());
  EXPECT_EQ("write", backend().calls[0].slot);
  EXPECT_EQ(7U, backend().calls[0].id);
  EXPECT_EQ("a,1;", backend().calls[0].bytes);
  EXPECT_EQ(1, said(LOG_LVL_DBUG, "write key: a, value: 1\n"));
  EXPECT_EQ(1, capture_.count(LOG_LVL_INFO, "oem_dm_read", "DM_RD_MEM ret 1024\n"));
  EXPECT_EQ(1, said(LOG_LVL_DBUG, "final str, write to db: a,1;\n"));

  backend().stored = "a,1;";
  EXPECT_EQ(0, write("bb", "22"));
  EXPECT_EQ(6, out_len_);
  EXPECT_EQ("bb,22;", backend().calls.at(1).bytes) << "each write starts from an empty list";
}

TEST_F(KeyValues, ReadFindsNoPairs) {
  backend().stored = "a,1;b,2;";
  Rows rows;
  EXPECT_EQ(0, rows.read(handle_.get()));
  EXPECT_EQ(0, rows.count);
  EXPECT_EQ('#', rows.keys[0][0]);
  EXPECT_EQ('#', rows.values[0][0]);
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_EQ(1, read_said(LOG_LVL_DBUG, "read from db: \n"));
  EXPECT_EQ(1, read_said(LOG_LVL_DBUG, "key-value pairs num: 0\n"));
}

TEST_F(KeyValues, LengthsOfKeyAndValue) {
  EXPECT_EQ(3, write("", "1"));
  EXPECT_EQ(3, write("a", ""));
  EXPECT_EQ(3, write("", ""));
  EXPECT_EQ(3, write(std::string(300, 'k'), std::string(213, 'v')));
  EXPECT_EQ(3, write("k", std::string(5000, 'v')));
  EXPECT_EQ(5, said(LOG_LVL_ERR, "length of key or value error\n"));
  EXPECT_EQ(-7, out_len_);
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_EQ(1, said(LOG_LVL_DBUG, "write key: a, value: \n")) << "what was asked for is logged before";

  EXPECT_EQ(0, write(std::string(300, 'k'), std::string(212, 'v')));
  EXPECT_EQ(514, out_len_);
  EXPECT_EQ(0, write(std::string(511, 'k'), "v"));
  EXPECT_EQ(5, said(LOG_LVL_ERR, "length of key or value error\n"));
}

TEST_F(KeyValues, NullArguments) {
  EXPECT_EQ(3, kelo_dm_write_key_value_pairs(handle_.get(), 7, nullptr, "1", &out_len_));
  EXPECT_EQ(3, kelo_dm_write_key_value_pairs(handle_.get(), 7, "a", nullptr, &out_len_));
  EXPECT_EQ(3, kelo_dm_write_key_value_pairs(handle_.get(), 7, "a", "1", nullptr));
  EXPECT_EQ(3, said(LOG_LVL_ERR, "kelo_dm_write_key_value_pairs param NULL\n"));
  char keys[1][256] = {"#"};
  char values[1][256] = {"#"};
  std::int32_t count = -7;
  EXPECT_EQ(3, kelo_dm_read_key_value_pairs(handle_.get(), 7, nullptr, values, &count));
  EXPECT_EQ(3, kelo_dm_read_key_value_pairs(handle_.get(), 7, keys, nullptr, &count));
  EXPECT_EQ(3, kelo_dm_read_key_value_pairs(handle_.get(), 7, keys, values, nullptr));
  EXPECT_EQ(3, read_said(LOG_LVL_ERR, "kelo_dm_read_key_value_pairs param NULL\n"));
  EXPECT_EQ(6U, capture_.lines().size());
  EXPECT_EQ(-7, out_len_);
  EXPECT_EQ(-7, count);
  EXPECT_TRUE(backend().calls.empty());
}

TEST_F(KeyValues, NullHandleIsAFailedRead) {
  EXPECT_EQ(-3, kelo_dm_write_key_value_pairs(nullptr, 7, "a", "1", &out_len_));
  EXPECT_EQ(-7, out_len_);
  EXPECT_EQ(1, said(LOG_LVL_ERR, "read db failed\n"));
  Rows rows;
  EXPECT_EQ(-3, rows.read(nullptr));
  EXPECT_EQ(0, rows.count);
  EXPECT_EQ('#', rows.keys[0][0]);
  EXPECT_EQ(1, read_said(LOG_LVL_ERR, "read db failed\n"));
  EXPECT_EQ(2, capture_.count(LOG_LVL_ERR, "oem_dm_read", "oem_dm_read param NULL\n"));
}

TEST_F(KeyValues, WriteErrorIsPassedOn) {
  backend().write_result = 5;
  EXPECT_EQ(5, write("a", "1"));
  EXPECT_EQ(4, out_len_) << "the length is known before the write";
  EXPECT_EQ(1, said(LOG_LVL_ERR, "write db failed\n"));
  EXPECT_EQ(-3, kelo_dm_write_key_value_pairs(handle_.get(), 8, "a", "1", &out_len_)) << "unknown id";
  EXPECT_EQ(2, said(LOG_LVL_ERR, "write db failed\n"));
}

// ---- the calls with a read that finds a text ----

TEST_F(KeyValues, TextInMemoryIsEdited) {
  text_in_memory = "a,1;b,2;";
  EXPECT_EQ(0, write("a", "9"));
  EXPECT_EQ(8, out_len_);
  EXPECT_EQ("a,9;b,2;", backend().calls.at(0).bytes);
  EXPECT_EQ(0, write("c", "3"));
  EXPECT_EQ(12, out_len_);
  EXPECT_EQ("a,1;b,2;c,3;", backend().calls.at(1).bytes);
  EXPECT_EQ(1, said(LOG_LVL_DBUG, "final str, write to db: a,1;b,2;c,3;\n"));
  text_in_memory = "ba,5;";
  EXPECT_EQ(0, write("a", "9"));
  EXPECT_EQ("ba,9;", backend().calls.at(2).bytes);
}

TEST_F(KeyValues, TextInMemoryIsUnpacked) {
  text_in_memory = "a,1;b,2;";
  Rows rows(2);
  EXPECT_EQ(0, rows.read(handle_.get()));
  EXPECT_EQ(2, rows.count);
  EXPECT_STREQ("a", rows.keys[0].data());
  EXPECT_STREQ("1", rows.values[0].data());
  EXPECT_STREQ("b", rows.keys[1].data());
  EXPECT_STREQ("2", rows.values[1].data());
  EXPECT_EQ(1, read_said(LOG_LVL_DBUG, "read from db: a,1;b,2;\n"));
  EXPECT_EQ(1, read_said(LOG_LVL_DBUG, "key: a, value: 1\n"));
  EXPECT_EQ(1, read_said(LOG_LVL_DBUG, "key: b, value: 2\n"));
  EXPECT_EQ(1, read_said(LOG_LVL_DBUG, "key-value pairs num: 2\n"));
}

TEST_F(KeyValues, ListThatWouldGrowTooLong) {
  text_in_memory = std::string(1020, 'x');
  EXPECT_EQ(0, write("a", "1"));  // 1 + 1 + 2 + 1020 bytes
  EXPECT_EQ(1024, out_len_);
  EXPECT_EQ(0, said(LOG_LVL_ERR, "ERROR: the length of db str out of DM_MAX_KEY_VALUE_STRLEN\n"));
  text_in_memory = std::string(1021, 'x');
  EXPECT_EQ(3, write("a", "1"));
  EXPECT_EQ(1024, out_len_) << "untouched";
  EXPECT_EQ(1, backend().count("write"));
  EXPECT_EQ(1, said(LOG_LVL_ERR, "ERROR: the length of db str out of DM_MAX_KEY_VALUE_STRLEN\n"));
  text_in_memory = "a,1;" + std::string(1017, 'x');
  EXPECT_EQ(3, write("a", "2")) << "refused although the replacement would fit";
}

TEST_F(KeyValues, TextThatFillsTheBuffer) {
  std::string text;
  while (text.size() < DM_MAX_KEY_VALUE_STRLEN) text += "k;";
  text_in_memory = text;
  Rows rows;  // the address sanitizer sees a row too many
  EXPECT_EQ(0, rows.read(handle_.get()));
  EXPECT_EQ(KELO_DM_KEY_VALUE_ROWS, rows.count);
  EXPECT_STREQ("k", rows.keys[511].data());
  EXPECT_STREQ("", rows.values[511].data());
  EXPECT_EQ(3, write("a", "1"));
}

TEST_F(KeyValues, LongKeysAndValuesAreCutToTheirRows) {
  text_in_memory = std::string(255, 'k') + "," + std::string(255, 'v') + ";" + std::string(256, 'K') + "," +
                   std::string(250, 'V') + ";";
  Rows rows(2);
  EXPECT_EQ(0, rows.read(handle_.get()));
  EXPECT_EQ(2, rows.count);
  EXPECT_EQ(std::string(255, 'k'), rows.keys[0].data());
  EXPECT_EQ(std::string(255, 'v'), rows.values[0].data());
  EXPECT_EQ(std::string(255, 'K'), rows.keys[1].data());
  EXPECT_EQ(std::string(250, 'V'), rows.values[1].data());

  text_in_memory = "k," + std::string(256, 'v') + ";";
  Rows cut(1);
  EXPECT_EQ(0, cut.read(handle_.get()));
  EXPECT_EQ(std::string(255, 'v'), cut.values[0].data());
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
