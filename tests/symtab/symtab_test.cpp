// SPDX-License-Identifier: MIT
// The symbol table: every operation and the order of its walk.
#include "kelo_utils/symtab.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/failing_heap.hpp"
#include "tests/support/lasting_allocations.hpp"

namespace {

using kelo::tests::FailingHeap;
using kelo::tests::LastingAllocations;
using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::vector<std::string>;

constexpr int kNoTables[] = {-1, INT_MIN, 0, 1, 15, 16, 1000, INT_MAX};

class Table {
 public:
  explicit Table(int hash_size) : sd_(symOpen(hash_size)) {}
  ~Table() { symClose(sd_); }
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  operator sym_fd() const { return sd_; }

 private:
  sym_fd sd_;
};

const char* name_of(const sym_t* symbol) { return symbol->name.payload.string; }

sym_t* enter(sym_fd sd, const std::string& name, int arg = 0) {
  return symEnter(sd, name.c_str(), valueInteger(arg), arg);
}

void enter_all(sym_fd sd, const Names& names) {
  for (const std::string& name : names) ASSERT_NE(enter(sd, name), nullptr) << name;
}

Names walk_from(sym_fd sd, const sym_t* symbol) {
  Names names;
  for (; symbol != nullptr; symbol = symNext(sd)) names.emplace_back(name_of(symbol));
  return names;
}

Names walk(sym_fd sd) { return walk_from(sd, symFirst(sd)); }

// One name for each byte value but NUL; in a table of n buckets the byte b belongs in bucket b mod n.
Names single_byte_names() {
  Names names;
  for (int byte = 1; byte <= 255; ++byte) names.emplace_back(1, static_cast<char>(byte));
  return names;
}

std::uint32_t expected_hash(const std::string& name) {
  std::uint64_t sum = 0;
  unsigned shift = 0;
  for (const char c : name) {
    sum += std::uint64_t{static_cast<std::uint8_t>(c)} << shift;
    shift = (shift + 7) % 24;
  }
  return static_cast<std::uint32_t>(sum);
}

Names in_bucket_order(Names names, unsigned buckets) {
  std::stable_sort(names.begin(), names.end(), [buckets](const std::string& a, const std::string& b) {
    return expected_hash(a) % buckets < expected_hash(b) % buckets;
  });
  return names;
}

// --- opening and closing

struct BucketCase {
  int hash_size;
  unsigned buckets;
};

class BucketCount : public testing::TestWithParam<BucketCase> {};

TEST_P(BucketCount, ShowsInTheOrderOfTheWalk) {
  const Table table(GetParam().hash_size);
  ASSERT_GE(table, 0);
  const Names names = single_byte_names();
  enter_all(table, names);
  EXPECT_EQ(in_bucket_order(names, GetParam().buckets), walk(table));
}

INSTANTIATE_TEST_SUITE_P(
    Symtab, BucketCount,
    testing::Values(BucketCase{INT_MIN, 1}, BucketCase{-1, 1}, BucketCase{0, 1}, BucketCase{1, 1},
                    BucketCase{2, 2}, BucketCase{3, 3}, BucketCase{4, 3}, BucketCase{5, 5}, BucketCase{6, 5},
                    BucketCase{8, 7}, BucketCase{9, 7}, BucketCase{10, 7}, BucketCase{11, 11},
                    BucketCase{25, 23}, BucketCase{28, 23}, BucketCase{49, 47}, BucketCase{61, 61},
                    BucketCase{64, 61}, BucketCase{66, 61}, BucketCase{67, 67}, BucketCase{121, 113},
                    BucketCase{126, 113}, BucketCase{170, 167}),
    [](const auto& bucket_case) {
      const int size = bucket_case.param.hash_size;
      return size < 0 ? "below_zero_" + std::to_string(bucket_case.index) : std::to_string(size);
    });

TEST(Symtab, OpenReturnsTheLowestFreeSlot) {
  for (int i = 0; i < 20; ++i) EXPECT_EQ(i, symOpen(1));
  symClose(7);
  symClose(3);
  EXPECT_EQ(symOpen(1), 3);
  EXPECT_EQ(symOpen(1), 7);
  EXPECT_EQ(symOpen(1), 20);
  for (int i = 0; i <= 20; ++i) symClose(i);
  EXPECT_EQ(symOpen(1), 0);
  symClose(0);
}

TEST(Symtab, ClosingTheHighestTableLeavesTheOthersOpen) {
  const Table low(1);
  const sym_fd middle = symOpen(1);
  const sym_fd high = symOpen(1);
  enter(low, "low");
  enter(high, "high");
  symClose(middle);
  EXPECT_NE(symLookup(high, "high"), nullptr);
  symClose(high);
  EXPECT_EQ(symLookup(high, "high"), nullptr);
  EXPECT_NE(symLookup(low, "low"), nullptr);
}

TEST(Symtab, TablesAreApart) {
  const Table first(8);
  const Table second(8);
  enter(first, "name", 1);
  EXPECT_EQ(symLookup(second, "name"), nullptr);
  enter(second, "name", 2);
  EXPECT_EQ(symLookup(first, "name")->arg, 1);
  EXPECT_EQ(symLookup(second, "name")->arg, 2);
}

TEST(Symtab, CloseFreesOwnedStringsAndLeavesSymbolValuesAlone) {
  int target = 7;
  const sym_fd sd = symOpen(2);
  symEnter(sd, "owned", valueString("text", VALUE_FLAG_COPY), 0);
  symEnter(sd, "held", valueString("text", 0), 0);
  symEnter(sd, "pointer", valueSymbol(&target), 0);
  symClose(sd);
  EXPECT_EQ(target, 7);
  EXPECT_EQ(symLookup(sd, "owned"), nullptr);
}

TEST(Symtab, HandlesThatNameNoTableAreHarmless) {
  for (const bool with_others_open : {false, true}) {
    const sym_fd opened = with_others_open ? symOpen(64) : -1;
    for (const sym_fd sd : kNoTables) {
      if (sd == opened) continue;
      EXPECT_EQ(symLookup(sd, "name"), nullptr) << sd;
      EXPECT_EQ(symEnter(sd, "name", valueInteger(1), 1), nullptr) << sd;
      EXPECT_EQ(symDelete(sd, "name"), -1) << sd;
      EXPECT_EQ(symFirst(sd), nullptr) << sd;
      EXPECT_EQ(symNext(sd), nullptr) << sd;
      symClose(sd);
    }
    if (opened >= 0) {
      EXPECT_NE(enter(opened, "still open"), nullptr);
    }
    symClose(opened);
    symClose(opened);
  }
}

TEST(Symtab, ASlotClosedBelowAnOpenOneNamesNoTable) {
  const sym_fd low = symOpen(4);
  const Table high(4);
  symClose(low);
  EXPECT_EQ(symLookup(low, "name"), nullptr);
  EXPECT_EQ(enter(low, "name"), nullptr);
  EXPECT_EQ(symDelete(low, "name"), -1);
  EXPECT_EQ(symFirst(low), nullptr);
  EXPECT_EQ(symNext(low), nullptr);
  symClose(low);
  EXPECT_NE(enter(high, "name"), nullptr);
}

TEST(Symtab, FirstSubOpenForgetsTheTablesOpenedBefore) {
  const LastingAllocations forgotten_tables;
  EXPECT_EQ(symOpen(4), 0);
  EXPECT_EQ(symOpen(4), 1);
  const sym_t* const entry = enter(1, "name", 9);
  EXPECT_EQ(symSubOpen(), 0);
  EXPECT_EQ(symLookup(1, "name"), nullptr);
  EXPECT_STREQ(name_of(entry), "name");
  EXPECT_EQ(entry->arg, 9);

  EXPECT_EQ(symOpen(4), 0);
  EXPECT_NE(enter(0, "name"), nullptr);
  EXPECT_EQ(symSubOpen(), 0);
  EXPECT_NE(symLookup(0, "name"), nullptr);

  symSubClose();
  EXPECT_EQ(symSubOpen(), 0);
  EXPECT_NE(symLookup(0, "name"), nullptr);

  for (int i = 0; i < 5; ++i) symSubClose();
  EXPECT_NE(symLookup(0, "name"), nullptr);
  EXPECT_EQ(symSubOpen(), 0);
  EXPECT_EQ(symLookup(0, "name"), nullptr);
  symSubClose();
}

// --- entries

TEST(Symtab, LookupFindsWhatWasEntered) {
  int target = 0;
  const Table table(64);
  sym_t* const entered = symEnter(table, "1203", valueSymbol(&target), -5);
  ASSERT_NE(entered, nullptr);
  EXPECT_EQ(entered, symLookup(table, "1203"));
  EXPECT_STREQ(name_of(entered), "1203");
  EXPECT_EQ(entered->name.type, VALUE_TYPE_STRING);
  EXPECT_EQ(entered->name.valid, 1);
  EXPECT_EQ(entered->name.allocated, 1);
  EXPECT_EQ(entered->content.type, VALUE_TYPE_SYMBOL);
  EXPECT_EQ(&target, entered->content.payload.symbol);
  EXPECT_EQ(entered->arg, -5);
  EXPECT_EQ(entered->next, nullptr);
}

TEST(Symtab, ArgIsKeptUnchanged) {
  const Table table(4);
  for (const int arg : {0, 1, -1, INT_MAX, INT_MIN}) {
    symEnter(table, "name", valueInteger(0), arg);
    EXPECT_EQ(arg, symLookup(table, "name")->arg);
  }
}

TEST(Symtab, TheKeyIsAPrivateCopy) {
  char name[] = "1203";
  const Table table(64);
  enter(table, name);
  name[0] = '9';
  EXPECT_EQ(symLookup(table, name), nullptr);
  EXPECT_NE(symLookup(table, "1203"), nullptr);
}

TEST(Symtab, LookupComparesWholeNames) {
  const Table table(1);
  enter_all(table, {"12", "120", "1203"});
  EXPECT_EQ(symLookup(table, "1"), nullptr);
  EXPECT_EQ(symLookup(table, "12034"), nullptr);
  EXPECT_EQ(symLookup(table, "2203"), nullptr);
  EXPECT_STREQ(name_of(symLookup(table, "120")), "120");
}

TEST(Symtab, ThreeThousandIdsAreAllFound) {
  const Table table(64);
  for (int id = 0; id < 3000; ++id) ASSERT_NE(enter(table, std::to_string(id * 37), id), nullptr);
  for (int id = 0; id < 3000; ++id) {
    const sym_t* const found = symLookup(table, std::to_string(id * 37).c_str());
    ASSERT_NE(found, nullptr) << id;
    EXPECT_EQ(id, found->arg);
  }
  EXPECT_EQ(symLookup(table, "1"), nullptr);
}

TEST(Symtab, LookupOfNothingFindsNothing) {
  const Table table(4);
  enter(table, "name");
  EXPECT_EQ(symLookup(table, nullptr), nullptr);
  EXPECT_EQ(symLookup(table, ""), nullptr);
}

TEST(Symtab, TheEmptyNameIsEnteredButNeverFound) {
  const Table table(4);
  enter(table, "\x03");  // the other entry of the first bucket
  sym_t* const entered = enter(table, "", 1);
  ASSERT_NE(entered, nullptr);
  EXPECT_EQ(symLookup(table, ""), nullptr);
  EXPECT_EQ(symDelete(table, ""), -1);
  EXPECT_EQ(entered, enter(table, "", 2));
  EXPECT_EQ(entered->arg, 2);
  EXPECT_THAT(walk(table), ElementsAre("\x03", ""));
}

TEST(Symtab, NullNamesAreRefused) {
  const Table table(4);
  EXPECT_EQ(symEnter(table, nullptr, valueInteger(1), 1), nullptr);
  EXPECT_EQ(symDelete(table, nullptr), -1);
  EXPECT_THAT(walk(table), IsEmpty());
}

TEST(Symtab, EnteringANameAgainReplacesContentAndArg) {
  const Table table(64);
  sym_t* const first = symEnter(table, "1203", valueString("old", VALUE_FLAG_COPY), 1);
  sym_t* const second = symEnter(table, "1203", valueString("new", VALUE_FLAG_COPY), 2);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(second->content.payload.string, "new");
  EXPECT_EQ(second->arg, 2);
  symEnter(table, "1203", valueInteger(5), 3);
  EXPECT_EQ(second->content.type, VALUE_TYPE_INTEGER);
  EXPECT_EQ(second->content.payload.integer, 5);
  EXPECT_THAT(walk(table), ElementsAre("1203"));
}

TEST(Symtab, EnteringAnEntrysOwnContentAgainKeepsItsString) {
  const Table table(64);
  sym_t* const entry = symEnter(table, "1203", valueString("text", VALUE_FLAG_COPY), 1);
  EXPECT_EQ(entry, symEnter(table, "1203", entry->content, 2));
  EXPECT_STREQ(entry->content.payload.string, "text");
  EXPECT_EQ(entry->arg, 2);
}

TEST(Symtab, DeleteRemovesTheNamedEntryOnly) {
  for (const char* const victim : {"first", "middle", "last"}) {
    const Table table(1);
    Names names = {"first", "middle", "last"};
    enter_all(table, names);
    EXPECT_EQ(symDelete(table, victim), 0);
    EXPECT_EQ(symLookup(table, victim), nullptr);
    EXPECT_EQ(symDelete(table, victim), -1);
    std::erase(names, victim);
    EXPECT_EQ(names, walk(table));
    enter(table, victim);
    EXPECT_EQ(victim, walk(table).back());
  }
}

TEST(Symtab, DeleteOfAnUnknownNameChangesNothing) {
  const Table table(1);
  enter_all(table, {"a", "b"});
  EXPECT_EQ(symDelete(table, "c"), -1);
  EXPECT_THAT(walk(table), ElementsAre("a", "b"));
}

TEST(Symtab, DeleteFreesTheStringsOfTheEntry) {
  int target = 7;
  const Table table(4);
  symEnter(table, "owned", valueString("text", VALUE_FLAG_COPY), 0);
  symEnter(table, "pointer", valueSymbol(&target), 0);
  EXPECT_EQ(symDelete(table, "owned"), 0);
  EXPECT_EQ(symDelete(table, "pointer"), 0);
  EXPECT_EQ(target, 7);
}

TEST(Symtab, DeleteTakesTheEntrysOwnNameAsArgument) {
  const Table table(4);
  EXPECT_EQ(symDelete(table, name_of(enter(table, "name"))), 0);
  EXPECT_THAT(walk(table), IsEmpty());
}

// --- hashing

TEST(Symtab, SwappedDigitsHashApart) {
  // 0x31 + (0x32 << 7) = 6449 and 0x32 + (0x31 << 7) = 6322: buckets 44 and 39 of 61.
  const Table table(64);
  enter_all(table, {"12", "21"});
  EXPECT_THAT(walk(table), ElementsAre("21", "12"));
}

TEST(Symtab, EveryByteOfALongNameCounts) {
  Names names = {"", "0", "1203", "-1", "2147483647", "\xff\xfe\x80", std::string(200, '\xff')};
  for (std::size_t position = 0; position < 50; ++position) {
    std::string name(50, 'a');
    name[position] = '\xe9';
    names.push_back(name);
  }
  for (const unsigned buckets : {2u, 61u, 997u}) {
    const Table table(static_cast<int>(buckets));
    enter_all(table, names);
    EXPECT_EQ(in_bucket_order(names, buckets), walk(table)) << buckets;
  }
}

// --- walks. In a table of three buckets "c", "f", "i" and "l" fall in bucket 0, "a" and "d" in 1, "b" and
// "e" in 2.

TEST(Symtab, WalkOfAnEmptyTableIsEmpty) {
  const Table table(3);
  EXPECT_EQ(symFirst(table), nullptr);
}

TEST(Symtab, WalkGoesThroughBucketsAndOldestFirst) {
  const Table table(3);
  enter_all(table, {"b", "a", "f", "c", "e", "d"});
  EXPECT_THAT(walk(table), ElementsAre("f", "c", "a", "d", "b", "e"));
  EXPECT_EQ(symNext(table), nullptr);
  EXPECT_THAT(walk(table), ElementsAre("f", "c", "a", "d", "b", "e"));
}

TEST(Symtab, WalkSkipsEmptyBuckets) {
  const Table table(64);
  enter_all(table, {"<", "=", "Z"});  // buckets 60, 0 and 29
  EXPECT_THAT(walk(table), ElementsAre("=", "Z", "<"));
}

TEST(Symtab, WalkEndsAfterTheLastBucket) {
  const Table table(3);
  enter(table, "b");
  EXPECT_STREQ(name_of(symFirst(table)), "b");
  EXPECT_EQ(symNext(table), nullptr);
  EXPECT_EQ(symNext(table), nullptr);
}

TEST(Symtab, WalkOfASingleBucketEnds) {
  const Table table(1);
  enter(table, "only");
  EXPECT_THAT(walk(table), ElementsAre("only"));
}

TEST(Symtab, ABucketEmptiedByDeletionIsSkipped) {
  const Table table(3);
  enter_all(table, {"c", "a", "b"});
  EXPECT_EQ(symDelete(table, "a"), 0);
  EXPECT_THAT(walk(table), ElementsAre("c", "b"));
}

TEST(Symtab, AnEmptyTableLeavesTheWalkOfAnotherAlone) {
  const Table table(3);
  const Table empty(3);
  enter_all(table, {"c", "a"});
  EXPECT_STREQ(name_of(symFirst(table)), "c");
  EXPECT_EQ(symFirst(empty), nullptr);
  EXPECT_STREQ(name_of(symNext(table)), "a");
}

TEST(Symtab, TheEntryJustHandedOutMayBeDeleted) {
  const Table table(3);
  enter_all(table, {"b", "a", "f", "c", "e", "d"});
  Names seen;
  for (const sym_t* symbol = symFirst(table); symbol != nullptr; symbol = symNext(table)) {
    seen.emplace_back(name_of(symbol));
    EXPECT_EQ(symDelete(table, seen.back().c_str()), 0);
  }
  EXPECT_THAT(seen, ElementsAre("f", "c", "a", "d", "b", "e"));
  EXPECT_THAT(walk(table), IsEmpty());
}

TEST(Symtab, DeletingTheNextEntryOfTheChainMovesTheWalkOn) {
  const Table table(3);
  enter_all(table, {"c", "f", "i", "a"});
  EXPECT_STREQ(name_of(symFirst(table)), "c");
  EXPECT_EQ(symDelete(table, "f"), 0);
  EXPECT_THAT(walk_from(table, symNext(table)), ElementsAre("i", "a"));
}

TEST(Symtab, DeletingTheLastEntryOfTheChainMovesTheWalkToTheNextBucket) {
  const Table table(3);
  enter_all(table, {"c", "f", "a", "d"});
  EXPECT_STREQ(name_of(symFirst(table)), "c");
  EXPECT_EQ(symDelete(table, "f"), 0);
  EXPECT_THAT(walk_from(table, symNext(table)), ElementsAre("a", "d"));
}

TEST(Symtab, DeletingTheHeadOfTheNextBucketMovesTheWalkOn) {
  const Table table(3);
  enter_all(table, {"c", "a", "d", "b"});
  EXPECT_STREQ(name_of(symFirst(table)), "c");
  EXPECT_EQ(symDelete(table, "a"), 0);
  EXPECT_EQ(symDelete(table, "d"), 0);
  EXPECT_THAT(walk_from(table, symNext(table)), ElementsAre("b"));
}

TEST(Symtab, DeletingTheVeryLastEntryEndsTheWalk) {
  const Table table(3);
  enter_all(table, {"b", "e"});
  EXPECT_STREQ(name_of(symFirst(table)), "b");
  EXPECT_EQ(symDelete(table, "e"), 0);
  EXPECT_EQ(symNext(table), nullptr);
}

TEST(Symtab, DeletingAnEntryFurtherOnLeavesTheWalkWhereItIs) {
  const Table table(3);
  enter_all(table, {"c", "f", "i", "b"});
  EXPECT_STREQ(name_of(symFirst(table)), "c");
  EXPECT_EQ(symDelete(table, "i"), 0);
  EXPECT_THAT(walk_from(table, symNext(table)), ElementsAre("f", "b"));
}

TEST(Symtab, ClosingTheWalkedTableEndsTheWalk) {
  const sym_fd walked = symOpen(3);
  const Table other(3);
  enter_all(walked, {"c", "f", "a"});
  enter_all(other, {"c", "a", "b"});
  EXPECT_STREQ(name_of(symFirst(walked)), "c");
  symClose(walked);
  EXPECT_EQ(symNext(walked), nullptr);
  EXPECT_EQ(symNext(other), nullptr);
  EXPECT_THAT(walk(other), ElementsAre("c", "a", "b"));
}

TEST(Symtab, ClosingAnotherTableLeavesTheWalkAlone) {
  const Table walked(3);
  const sym_fd other = symOpen(3);
  enter_all(walked, {"c", "f"});
  enter_all(other, {"c", "f"});
  EXPECT_STREQ(name_of(symFirst(walked)), "c");
  symClose(other);
  EXPECT_THAT(walk_from(walked, symNext(walked)), ElementsAre("f"));
}

TEST(Symtab, OneWalkForAllTables) {
  const Table wide(61);
  const Table narrow(1);
  enter_all(wide, {"Z", "<"});
  enter_all(narrow, {"a", "b"});
  EXPECT_STREQ(name_of(symFirst(wide)), "Z");
  // A walk that is beyond the last bucket of the table it is asked for has ended.
  EXPECT_EQ(symNext(narrow), nullptr);
  EXPECT_STREQ(name_of(symFirst(narrow)), "a");
  EXPECT_STREQ(name_of(symNext(wide)), "b");
}

// --- without memory

TEST(Symtab, OpenWithoutMemoryFails) {
  for (int served = 0; served < 4; ++served) {
    sym_fd sd = 0;
    {
      const FailingHeap heap(served);
      sd = symOpen(64);
    }
    EXPECT_EQ(sd, -1) << served;
    EXPECT_EQ(symLookup(0, "name"), nullptr);
  }
  const Table table(64);
  EXPECT_EQ(table, 0);
  EXPECT_NE(enter(table, "name"), nullptr);
}

TEST(Symtab, OpenWithoutMemoryLeavesOtherTablesAlone) {
  const Table table(64);
  enter(table, "name");
  sym_fd sd = 0;
  {
    const FailingHeap heap(0);
    sd = symOpen(64);
  }
  EXPECT_EQ(sd, -1);
  EXPECT_EQ(symLookup(1, "name"), nullptr);
  EXPECT_NE(symLookup(table, "name"), nullptr);
  const Table next(64);
  EXPECT_EQ(next, 1);
}

TEST(Symtab, ATableWithoutBucketsHoldsNothing) {
#ifndef __GLIBC__
  GTEST_SKIP() << "calloc() of this C library calls malloc(), so that its calls cannot be counted";
#endif
  sym_fd sd = -1;
  {
    const FailingHeap heap(4);
    sd = symOpen(64);
  }
  ASSERT_EQ(sd, 0);
  EXPECT_EQ(enter(sd, "name"), nullptr);
  EXPECT_EQ(enter(sd, ""), nullptr);
  EXPECT_EQ(symLookup(sd, "name"), nullptr);
  EXPECT_EQ(symDelete(sd, "name"), -1);
  EXPECT_EQ(symFirst(sd), nullptr);
  EXPECT_EQ(symNext(sd), nullptr);
  symClose(sd);
  EXPECT_EQ(symOpen(64), 0);
  symClose(0);
}

TEST(Symtab, EnterWithoutMemoryLeavesTheTableUnchanged) {
  const Table table(3);
  enter_all(table, {"c", "f"});
  for (const char* const name : {"i", "a"}) {     // after a chain, in an empty bucket
    for (int served = 0; served < 2; ++served) {  // neither the entry nor the name, the entry alone
      value_t value = valueString("text", VALUE_FLAG_COPY);
      const sym_t* entered = nullptr;
      {
        const FailingHeap heap(served);
        entered = symEnter(table, name, value, 1);
      }
      EXPECT_EQ(entered, nullptr) << name << served;
      EXPECT_EQ(symLookup(table, name), nullptr);
      EXPECT_THAT(walk(table), ElementsAre("c", "f"));
      EXPECT_STREQ(value.payload.string, "text");
      valueFree(&value);
    }
  }
}

TEST(Symtab, ReplacingNeedsNoMemory) {
  const Table table(3);
  enter(table, "name", 1);
  {
    const FailingHeap heap(0);
    symEnter(table, "name", valueInteger(2), 2);
  }
  EXPECT_EQ(symLookup(table, "name")->arg, 2);
}

}  // namespace
