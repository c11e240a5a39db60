// SPDX-License-Identifier: MIT
// Items read and written as values of a type: every result, and lengths below, at and above the right ones.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/settings.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/recording_backend.hpp"

namespace {

using kelo::tests::backend;
using kelo::tests::LogCapture;
using kelo::tests::RecordingHandle;

enum ItemId { kWord = 1, kByte, kShort, kText, kNoText, kBytes, kUnknownType, kNoScalar };

const std::uint8_t factory_bytes[] = {0x00, 0xFF, 0x02};

kelo_dm_item items[] = {
    KELO_DM_ITEM(kWord, "net", "word", KELO_DM_TYPE_SCALAR3, -6, 4),
    KELO_DM_ITEM(kByte, "net", "byte", KELO_DM_TYPE_SCALAR1, 1, 1),
    KELO_DM_ITEM(kShort, "net", "short", KELO_DM_TYPE_SCALAR2, 7, 2),
    KELO_DM_TEXT_ITEM(kText, "net", "text", "home"),
    KELO_DM_ITEM(kNoText, "net", "notext", KELO_DM_TYPE_STRING, 0, 4),
    KELO_DM_BYTES_ITEM(kBytes, "net", "bytes", factory_bytes),
    KELO_DM_ITEM(kUnknownType, "net", "unknown", 7, 5, 4),
    KELO_DM_ITEM(kNoScalar, "net", "noscalar", KELO_DM_TYPE_SCALAR4, 5, 0),
    KELO_DM_END,
};

int store(std::uint32_t /*id*/, kelo_dm_item_desc* /*item*/, const void* data, int len) {
  backend().stored.assign(static_cast<const char*>(data), static_cast<std::size_t>(len));
  return backend().write_result;
}

class TypedItems : public testing::Test {
 protected:
  TypedItems() {
    kelo_dm_reg_def_items(items);
    handle()->operations.write = store;
    backend().read_failure = -1;  // nothing is stored
  }

  kelo_dm_handle* handle() { return handle_.get(); }

  static void store_bytes(std::string bytes) {
    backend().read_failure = 0;
    backend().stored = std::move(bytes);
  }

 private:
  RecordingHandle handle_;
};

constexpr std::int32_t kUntouched = 77;

std::int32_t int32_of(kelo_dm_handle* handle, std::int32_t id, std::int32_t expected_result = 0) {
  std::int32_t value = kUntouched;
  EXPECT_EQ(kelo_dm_get_int32(handle, id, &value), expected_result) << id;
  return value;
}

std::uint32_t uint32_of(kelo_dm_handle* handle, std::int32_t id, std::int32_t expected_result = 0) {
  std::uint32_t value = kUntouched;
  EXPECT_EQ(kelo_dm_get_uint32(handle, id, &value), expected_result) << id;
  return value;
}

std::int32_t bool_of(kelo_dm_handle* handle, std::int32_t id, std::int32_t expected_result = 0) {
  std::int32_t value = kUntouched;
  EXPECT_EQ(kelo_dm_get_bool(handle, id, &value), expected_result) << id;
  return value;
}

TEST_F(TypedItems, DefaultsAreRead) {
  EXPECT_EQ(int32_of(handle(), kWord), -6);
  EXPECT_EQ(uint32_of(handle(), kWord), 0xFFFFFFFAU);
  EXPECT_EQ(bool_of(handle(), kWord), 1);
  EXPECT_EQ(bool_of(handle(), kByte), 1);
  char text[8];
  EXPECT_EQ(kelo_dm_get_text(handle(), kText, text, sizeof text), KELO_DM_VALUE_OK);
  EXPECT_STREQ(text, "home");
  std::uint8_t bytes[3] = {};
  std::int32_t len = 0;
  EXPECT_EQ(kelo_dm_get_bytes(handle(), kBytes, bytes, sizeof bytes, &len), KELO_DM_VALUE_OK);
  EXPECT_EQ(len, 3);
  EXPECT_EQ(std::memcmp(bytes, factory_bytes, sizeof bytes), 0);
}

TEST_F(TypedItems, NumbersAreStoredAndRead) {
  backend().read_failure = 0;
  for (const std::int32_t number : {INT32_MIN, -1, 0, 1, INT32_MAX}) {
    EXPECT_EQ(kelo_dm_set_int32(handle(), kWord, number), 0);
    EXPECT_EQ(int32_of(handle(), kWord), number);
    backend().stored.clear();
    EXPECT_EQ(kelo_dm_set_uint32(handle(), kWord, static_cast<std::uint32_t>(number)), 0);
    EXPECT_EQ(uint32_of(handle(), kWord), static_cast<std::uint32_t>(number));
    EXPECT_EQ(backend().stored.size(), 4U);
  }
}

TEST_F(TypedItems, TruthValuesAreStoredInTheLengthOfTheItem) {
  backend().read_failure = 0;
  for (const std::int32_t truth : {0, 1, -1, 256}) {
    for (const auto& [id, size] : {std::pair{kByte, 1U}, std::pair{kWord, 4U}}) {
      EXPECT_EQ(kelo_dm_set_bool(handle(), id, truth), 0);
      EXPECT_EQ(backend().stored.size(), size);
      EXPECT_EQ(bool_of(handle(), id), truth != 0 ? 1 : 0);
    }
  }
}

TEST_F(TypedItems, AnyBitOfATruthValueCounts) {
  store_bytes(std::string("\0\0\0\x80", 4));
  EXPECT_EQ(bool_of(handle(), kWord), 1);
  store_bytes("\x80");
  EXPECT_EQ(bool_of(handle(), kByte), 1);
  store_bytes(std::string(1, '\0'));
  EXPECT_EQ(bool_of(handle(), kByte), 0);
}

TEST_F(TypedItems, ScalarsOfAnotherLengthAreRefused) {
  for (const std::size_t size : {0U, 1U, 2U, 3U, 4U, 5U, 100U}) {
    store_bytes(std::string(size, '\x01'));
    const bool is_word = size == 4;
    const std::int32_t expected = is_word ? KELO_DM_VALUE_OK : KELO_DM_VALUE_WRONG_LENGTH;
    EXPECT_EQ(int32_of(handle(), kWord, expected), is_word ? 0x01010101 : kUntouched) << size;
    EXPECT_EQ(uint32_of(handle(), kWord, expected), is_word ? 0x01010101U : 77U) << size;
    const bool is_truth = is_word || size == 1;
    EXPECT_EQ(bool_of(handle(), kByte, is_truth ? KELO_DM_VALUE_OK : KELO_DM_VALUE_WRONG_LENGTH),
              is_truth ? 1 : kUntouched)
        << size;
  }
  backend().read_failure = -1;
  EXPECT_EQ(int32_of(handle(), kShort, KELO_DM_VALUE_WRONG_LENGTH), kUntouched)
      << "the default has two bytes";
  for (const ItemId id : {kShort, kNoScalar}) {
    EXPECT_EQ(kelo_dm_set_int32(handle(), id, 1), KELO_DM_VALUE_WRONG_LENGTH);
    EXPECT_EQ(kelo_dm_set_uint32(handle(), id, 1), KELO_DM_VALUE_WRONG_LENGTH);
    EXPECT_EQ(kelo_dm_set_bool(handle(), id, 1), KELO_DM_VALUE_WRONG_LENGTH);
  }
  EXPECT_EQ(kelo_dm_set_int32(handle(), kByte, 1), KELO_DM_VALUE_WRONG_LENGTH);
  EXPECT_EQ(kelo_dm_set_uint32(handle(), kByte, 1), KELO_DM_VALUE_WRONG_LENGTH);
  EXPECT_NE(backend().stored, "\x01");
}

TEST_F(TypedItems, TextFitsWithItsTerminator) {
  backend().read_failure = 0;
  EXPECT_EQ(kelo_dm_set_text(handle(), kText, "cabin"), 0);
  EXPECT_EQ(backend().stored, "cabin");
  for (const std::int32_t size : {1, 4, 5, 6, 7}) {
    std::string buffer(8, '#');
    const bool fits = size > 5;
    EXPECT_EQ(kelo_dm_get_text(handle(), kText, buffer.data(), size),
              fits ? KELO_DM_VALUE_OK : KELO_DM_VALUE_TOO_LONG)
        << size;
    EXPECT_STREQ(buffer.c_str(), fits ? "cabin" : "") << size;
    EXPECT_EQ(buffer.substr(static_cast<std::size_t>(size)),
              std::string(8 - static_cast<std::size_t>(size), '#'));
  }
}

TEST_F(TypedItems, BytesFit) {
  backend().read_failure = 0;
  EXPECT_EQ(kelo_dm_set_bytes(handle(), kBytes, "a\0c", 3), 0);
  for (const std::int32_t size : {1, 2, 3, 4}) {
    std::string buffer(4, '#');
    std::int32_t len = kUntouched;
    EXPECT_EQ(kelo_dm_get_bytes(handle(), kBytes, buffer.data(), size, &len),
              size < 3 ? KELO_DM_VALUE_TOO_LONG : KELO_DM_VALUE_OK);
    EXPECT_EQ(len, 3);
    EXPECT_EQ(buffer, size < 3 ? std::string("####") : std::string("a\0c#", 4));
  }
}

TEST_F(TypedItems, EmptyValuesAreNotStored) {
  EXPECT_EQ(kelo_dm_set_text(handle(), kText, ""), KELO_DM_VALUE_WRONG_LENGTH);
  EXPECT_EQ(kelo_dm_set_bytes(handle(), kBytes, "a", 0), KELO_DM_VALUE_WRONG_LENGTH);
  EXPECT_EQ(kelo_dm_set_bytes(handle(), kBytes, "a", -1), KELO_DM_VALUE_WRONG_LENGTH);
  EXPECT_EQ(backend().count("read"), 0);
}

TEST_F(TypedItems, AnotherTypeIsRefused) {
  char text[8] = "#";
  std::int32_t len = kUntouched;
  for (const ItemId id : {kText, kNoText, kBytes, kUnknownType}) {
    EXPECT_EQ(int32_of(handle(), id, KELO_DM_VALUE_WRONG_TYPE), kUntouched);
    EXPECT_EQ(uint32_of(handle(), id, KELO_DM_VALUE_WRONG_TYPE), 77U);
    EXPECT_EQ(bool_of(handle(), id, KELO_DM_VALUE_WRONG_TYPE), kUntouched);
    EXPECT_EQ(kelo_dm_set_int32(handle(), id, 1), KELO_DM_VALUE_WRONG_TYPE);
    EXPECT_EQ(kelo_dm_set_uint32(handle(), id, 1), KELO_DM_VALUE_WRONG_TYPE);
    EXPECT_EQ(kelo_dm_set_bool(handle(), id, 1), KELO_DM_VALUE_WRONG_TYPE);
  }
  for (const ItemId id : {kWord, kByte, kBytes, kUnknownType}) {
    std::strcpy(text, "#");
    EXPECT_EQ(kelo_dm_get_text(handle(), id, text, sizeof text), KELO_DM_VALUE_WRONG_TYPE);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(kelo_dm_set_text(handle(), id, "a"), KELO_DM_VALUE_WRONG_TYPE);
  }
  for (const ItemId id : {kWord, kByte, kText, kUnknownType}) {
    EXPECT_EQ(kelo_dm_get_bytes(handle(), id, text, sizeof text, &len), KELO_DM_VALUE_WRONG_TYPE);
    EXPECT_EQ(kelo_dm_set_bytes(handle(), id, "a", 1), KELO_DM_VALUE_WRONG_TYPE);
  }
  EXPECT_EQ(len, kUntouched);
  EXPECT_EQ(backend().count("read"), 0);
}

TEST_F(TypedItems, BadArgumentsAreRefused) {
  const LogCapture log;
  std::int32_t value = kUntouched;
  std::uint32_t number = 0;
  char text[4] = "#";
  const std::vector<std::int32_t> results = {
      kelo_dm_get_int32(nullptr, kWord, &value),
      kelo_dm_get_int32(handle(), kWord, nullptr),
      kelo_dm_get_uint32(nullptr, kWord, &number),
      kelo_dm_get_uint32(handle(), kWord, nullptr),
      kelo_dm_get_bool(nullptr, kWord, &value),
      kelo_dm_get_bool(handle(), kWord, nullptr),
      kelo_dm_get_text(nullptr, kText, text, sizeof text),
      kelo_dm_get_text(handle(), kText, nullptr, sizeof text),
      kelo_dm_get_text(handle(), kText, text, 0),
      kelo_dm_get_text(handle(), kText, text, -1),
      kelo_dm_get_bytes(nullptr, kBytes, text, sizeof text, &value),
      kelo_dm_get_bytes(handle(), kBytes, nullptr, sizeof text, &value),
      kelo_dm_get_bytes(handle(), kBytes, text, 0, &value),
      kelo_dm_get_bytes(handle(), kBytes, text, -1, &value),
      kelo_dm_get_bytes(handle(), kBytes, text, sizeof text, nullptr),
      kelo_dm_set_int32(nullptr, kWord, 1),
      kelo_dm_set_uint32(nullptr, kWord, 1),
      kelo_dm_set_bool(nullptr, kWord, 1),
      kelo_dm_set_text(nullptr, kText, "a"),
      kelo_dm_set_text(handle(), kText, nullptr),
      kelo_dm_set_bytes(nullptr, kBytes, "a", 1),
      kelo_dm_set_bytes(handle(), kBytes, nullptr, 1),
  };
  for (std::size_t i = 0; i < results.size(); ++i) EXPECT_EQ(results[i], KELO_DM_VALUE_BAD_ARGUMENT) << i;
  EXPECT_EQ(value, kUntouched);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(TypedItems, UnknownIdIsLogged) {
  const LogCapture log;
  EXPECT_EQ(int32_of(handle(), 99, KELO_DM_VALUE_BAD_ARGUMENT), kUntouched);
  EXPECT_EQ(kelo_dm_set_text(handle(), 99, "a"), KELO_DM_VALUE_BAD_ARGUMENT);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_dm_get_int32", "symLookup failed: 99\n"), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_dm_set_text", "symLookup failed: 99\n"), 1) << log.dump();
}

TEST_F(TypedItems, FailuresOfTheStorageAreHandedOn) {
  char text[4] = "#";
  EXPECT_EQ(kelo_dm_get_text(handle(), kNoText, text, sizeof text), KELO_DM_VALUE_NONE);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(int32_of(handle(), kNoScalar, KELO_DM_VALUE_NONE), kUntouched);
  backend().read_failure = -102;
  EXPECT_EQ(int32_of(handle(), kWord, KELO_DM_VALUE_DAMAGED), kUntouched);
  backend().read_failure = -101;
  EXPECT_EQ(bool_of(handle(), kWord, KELO_DM_VALUE_NOT_READABLE), kUntouched);
  EXPECT_EQ(kelo_dm_set_uint32(handle(), kWord, 5), KELO_DM_VALUE_NONE) << "it cannot be read back";
  backend().write_result = -1;
  EXPECT_EQ(kelo_dm_set_text(handle(), kText, "a"), KELO_DM_VALUE_NONE);
}

}  // namespace
