// SPDX-License-Identifier: MIT
// A daemon's defaults are stored in one transaction, and come out as if each had been stored by itself.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/defaults_start.hpp"
#include "tests/support/sanitized.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;
using testing::IsEmpty;

kelo_dm_item number(int id, const char* table, const std::string& key, std::intptr_t value) {
  kelo_dm_item item{id, {"", "", KELO_DM_TYPE_SCALAR3, value, KELO_DM_TYPE_SCALAR3, 4}};
  std::snprintf(item.desc.item_table, sizeof item.desc.item_table, "%s", table);
  std::snprintf(item.desc.item_key, sizeof item.desc.item_key, "%s", key.c_str());
  return item;
}

kelo_dm_item text(int id, const char* table, const std::string& key, const char* value) {
  kelo_dm_item item = number(id, table, key, KELO_DM_TEXT(value));
  item.desc.def_type = KELO_DM_TYPE_STRING;
  return item;
}

kelo_dm_item of_type(int type, kelo_dm_item item) {
  item.desc.def_type = type;
  return item;
}

kelo_dm_item of_length(int length, kelo_dm_item item) {
  item.desc.len = length;
  return item;
}

using Items = std::vector<kelo_dm_item>;

Items ended(Items items) {
  items.push_back(number(-1, "", "", 0));
  return items;
}

Items many(int count) {
  Items items;
  items.reserve(static_cast<std::size_t>(count) + 1);
  for (int id = 0; id < count; ++id)
    items.push_back(number(id, id % 3 == 0 ? "net" : "lan", "key" + std::to_string(id), id));
  return ended(items);
}

struct Case {
  const char* name;
  Items items;
  // What is done to the files, and what goes wrong, before the defaults are built.
  std::function<void()> prepare = [] {};
  std::vector<FaultPlan> faults = {};
};

void PrintTo(const Case& start, std::ostream* out) { *out << start.name; }

class DefaultsTogether : public testing::Test {
 protected:
  void SetUp() override {
    alarm(100);
    empty_data();
  }
  void TearDown() override { alarm(0); }

  // The lines of a start during which these faults happen.
  static std::string start(Items items, const std::vector<FaultPlan>& faults = {}) {
    const ChildResult child = build_defaults(items, [&faults](const auto& build) {
      std::vector<std::unique_ptr<Fault>> alive;
      alive.reserve(faults.size());
      for (const FaultPlan& plan : faults) alive.push_back(std::make_unique<Fault>(plan));
      build();
      if (!one_by_one) {
        for (const auto& fault : alive) EXPECT_GT(fault->failed(), 0) << "a fault had no effect";
      }
    });
    EXPECT_EQ(child.signal, 0) << child.standard_error;
    EXPECT_EQ(child.exit_status, 0) << child.standard_error;
    return without_places(child.standard_output);
  }
};

// --- The same as one by one --------------------------------------------------------------------------------

class SameAsOneByOne : public DefaultsTogether, public testing::WithParamInterface<Case> {};

// On the first start of a daemon, on the second one, and on one whose defaults are others.
TEST_P(SameAsOneByOne, InRowsAndLines) {
  const Case& start_case = GetParam();
  Items changed = start_case.items;
  for (kelo_dm_item& item : changed) {
    if (item.desc.def_type == KELO_DM_TYPE_SCALAR3 && item.id % 2 == 0) item.desc.def_value += 1000;
  }
  std::vector<std::string> rows[2];
  std::string lines[2];
  for (const bool single : {true, false}) {
    one_by_one = single;
    empty_data();
    start_case.prepare();
    for (const Items& items : {start_case.items, start_case.items, changed}) {
      lines[single] += start(items, single ? std::vector<FaultPlan>() : start_case.faults) + "--\n";
      for (const std::string& row : stored_defaults()) rows[single].push_back(row);
    }
  }
  EXPECT_EQ(lines[false], lines[true]);
  EXPECT_EQ(rows[false], rows[true]);
}

const char bytes[] = {'\x00', '\xFF', 'z'};

INSTANTIATE_TEST_SUITE_P(
    Starts, SameAsOneByOne,
    testing::Values(
        Case{"AllTypes", ended({of_length(1, of_type(1, number(1, "net", "one", -1))), number(2, "lan", "two", 2),
                                text(3, "net", "text", "home"), text(4, "lan", "empty", ""),
                                of_length(3, of_type(6, number(5, "net", "bytes", KELO_DM_BYTES(bytes)))),
                                of_length(0, number(6, "net", "nothing", 7))})},
        Case{"OneItem", ended({number(1, "net", "one", 1)})},
        Case{"OneKeyTwice", ended({number(5, "net", "one", 1), number(6, "net", "two", 2),
                                   number(5, "net", "one", 3), number(8, "net", "two", 2)})},
        Case{"TablesThatDifferInCase", ended({number(1, "net", "one", 1), number(2, "NET", "one", 2),
                                              number(4, "net", "two", 3), number(6, "Net", "One", 4)})},
        Case{"BadRowsAmongGoodOnes",
             ended({of_type(7, number(1, "net", "bad", 1)), number(2, "net", "one", 2),
                    of_type(5, number(3, "net", "null", 0)), of_length(-1, number(4, "net", "short", 1)),
                    of_type(6, number(5, "none", "null", 0)), number(6, "lan", "two", 6)})},
        Case{"TablesThatAreNone",
             ended({number(1, "net", "one", 1), number(2, "an index", "two", 2), number(3, "taken", "three", 3),
                    number(4, "taken", "three", 4), number(5, "select", "four", 5), number(6, "lan", "it's", 6),
                    number(8, "view", "five", 8), number(10, "net", "six", 10)}),
             [] {
               execute_sql(DB_DEF_ITEMS,
                           "create table other (key, type, len, value); create index taken on other (len);"
                           "create view view as select * from other");
             }},
        Case{"AnOlderTable", ended({number(1, "net", "one", 1), number(2, "net", "two", 2)}),
             [] {
               execute_sql(DB_DEF_ITEMS,
                           "create table net (key text not null,len integer not null,value blob);"
                           "insert into net values('two',3,x'010203')");
             }},
        Case{"TwoRowsOfOneKey", ended({number(1, "net", "one", 1), number(2, "net", "two", 2)}),
             [] {
               execute_sql(DB_DEF_ITEMS,
                           "create table net (key text not null,type integer not null,len integer not null,value blob);"
                           "insert into net values('one',3,4,x'01000000'),('one',3,4,x'05000000'),"
                           "('two',3,4,'text')");
             }},
        Case{"NoVersionTable", ended({number(1, "net", "one", 1), number(2, "net", "two", 2)}),
             [] { execute_sql(DB_DEF_ITEMS, "create table other (key, type, len, value); create index SQL_VER_TAB on other (len)"); }},
        Case{"NoDatabase", ended({number(1, "net", "one", 1), number(2, "net", "two", 2)}),
             [] { make_no_database(DB_DEF_ITEMS); }},
        Case{"AFolder", ended({number(1, "net", "one", 1), number(2, "net", "two", 2)}),
             [] { std::filesystem::create_directory(DB_DEF_ITEMS); }},
        Case{"ALockThatIsNone", ended({number(1, "net", "one", 1), number(2, "net", "two", 2)}),
             [] { std::filesystem::create_directory(std::string(DB_CONFIG) + "-lock"); }},
        Case{"NoBegin", many(7), [] {}, {{"sqlite3_exec", SQLITE_BUSY, "begin"}}},
        Case{"NoCommit", many(7), [] {}, {{"sqlite3_exec", SQLITE_FULL, "commit"}}},
        Case{"NoConnection", many(7), [] {}, {{"sqlite3_open", SQLITE_NOMEM, DB_DEF_ITEMS}}},
        Case{"NoSelect", many(7), [] {}, {{"sqlite3_prepare", SQLITE_NOMEM, "from lan"}}},
        Case{"AStoppedSelect", many(7), [] {}, {{"sqlite3_step", SQLITE_IOERR, "from lan"}}}),
    [](const auto& instance) { return std::string(instance.param.name); });

// --- One transaction ---------------------------------------------------------------------------------------

TEST_F(DefaultsTogether, NeedOneConnectionAndOneTransaction) {
  Items items = many(50);
  const ChildResult child = build_defaults(items, [](const auto& build) {
    const CallTrace trace;
    build();
    EXPECT_EQ(trace.count("sqlite3_open", DB_DEF_ITEMS), 1) << trace.dump();
    EXPECT_EQ(trace.count("sqlite3_exec", "begin"), 1) << trace.dump();
    EXPECT_EQ(trace.count("sqlite3_exec", "commit"), 1) << trace.dump();
    EXPECT_LE(trace.count("fdatasync") + trace.count("fsync"), 8) << trace.dump();
  });
  EXPECT_EQ(child.exit_status, 0) << child.standard_error;
  EXPECT_EQ(stored_defaults().size(), 50U + 1 + 3);  // the version, and three names of tables
}

TEST_F(DefaultsTogether, ALaterStartChangesNoByte) {
  EXPECT_EQ(start(many(50)), "");
  const std::string before = read_file(DB_DEF_ITEMS);
  const auto written = std::filesystem::last_write_time(DB_DEF_ITEMS);
  Items items = many(50);
  const ChildResult child = build_defaults(items, [](const auto& build) {
    const CallTrace trace;
    build();
    for (const char* const change : {"insert", "update"})
      EXPECT_EQ(trace.count("sqlite3_step", change), 0) << trace.dump();
  });
  EXPECT_EQ(child.exit_status, 0) << child.standard_error;
  EXPECT_TRUE(read_file(DB_DEF_ITEMS) == before);
  EXPECT_EQ(std::filesystem::last_write_time(DB_DEF_ITEMS), written);
}

TEST_F(DefaultsTogether, ABadRowCostsNoTransaction) {
  Items items = many(50);
  items[20].desc.def_type = 7;
  const ChildResult child = build_defaults(items, [](const auto& build) {
    const CallTrace trace;
    build();
    EXPECT_EQ(trace.count("sqlite3_open", DB_DEF_ITEMS), 1) << trace.dump();
  });
  EXPECT_EQ(child.exit_status, 0) << child.standard_error;
  EXPECT_EQ(stored_defaults().size(), 49U + 1 + 3);
}

TEST_F(DefaultsTogether, WriteThatFailsLeavesTheRowsToSingleWrites) {
  for (const char* const statement : {"insert into lan (type", "insert into net (type"}) {
    empty_data();
    EXPECT_EQ(start(many(9), {{"sqlite3_step", SQLITE_FULL, statement, 2}}), "");
    EXPECT_EQ(stored_defaults().size(), 9U + 1 + 3) << statement;
  }
}

TEST_F(DefaultsTogether, CleaningLeavesThemOut) {
  Items items = many(3);
  const ChildResult child = build_defaults(items, [](const auto& build) {
    kelo_dm_handle* const handle = kelo_dm_reg(0);
    handle->operations.clean = [](const char*, int, std::int32_t*) { return 0; };  // goes on
    kelo_dm_clean(handle, nullptr);
    kelo_dm_unreg(handle);
    build();
  });
  EXPECT_EQ(child.exit_status, 0) << child.standard_error;
  EXPECT_THAT(stored_defaults(), IsEmpty());
}

// --- Others at the same time -------------------------------------------------------------------------------

TEST_F(DefaultsTogether, OfTwoDaemonsAtOnceAreAllThere) {
  constexpr int kItems = 60;
  for (int round = 0; round < 5; ++round) {
    empty_data();
    std::vector<pid_t> daemons;
    for (int daemon = 0; daemon < 2; ++daemon) {
      daemons.push_back(fork());
      if (daemons.back() == 0) _exit(start(many(kItems)).empty() && !testing::Test::HasFailure() ? 0 : 1);
    }
    for (const pid_t daemon : daemons) {
      int status = -1;
      waitpid(daemon, &status, 0);
      EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(stored_defaults().size(), kItems + 1U + 3U);
  }
}

TEST_F(DefaultsTogether, AForkMeanwhileGivesAChildThatCanBuildThem) {
  if (kSanitized) GTEST_SKIP() << kHeapOfSanitizer;
  Items items = many(200);
  const ChildResult child = build_defaults(items, [](const auto& build) {
    set_print_interface([](const char* /*line*/) {});  // a child could inherit the lock of the captured lines
    std::atomic<bool> stop = false;
    std::thread builder([&] {
      while (!stop) kelo_dm_construct_def_database(0);
    });
    for (int round = 0; round < 10; ++round) {
      const pid_t process = fork();
      if (process == 0) {
        build();
        _exit(stored_defaults().size() == 200U + 1 + 3 ? 0 : 1);
      }
      int status = -1;
      waitpid(process, &status, 0);
      EXPECT_EQ(status, 0);
    }
    stop = true;
    builder.join();
  });
  EXPECT_EQ(child.exit_status, 0) << child.standard_output << child.standard_error;
}

}  // namespace
