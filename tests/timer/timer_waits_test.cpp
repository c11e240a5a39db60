// SPDX-License-Identifier: MIT
// Callbacks that wait in functions of the library while other timers expire.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/sqlite.h"
#include "kelo_utils/timer.h"
#include "tests/support/file_holder.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/store_settings.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::Calls;
using kelo::tests::FileHolder;
using kelo::tests::LogCapture;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;

// A callback whose result is kept, beside a timer that expires all the time.
class TimerWaits : public testing::Test {
 protected:
  int result_beside_a_beat(kelo_timer_span period, int (*action)()) {
    kelo_timer_init();
    NamedTimer beat(beats, 1, period, period);
    EXPECT_EQ(kelo_timer_create(&beat.info), 0);
    EXPECT_EQ(kelo_timer_start(&beat.info), 0);
    struct Acting {
      int (*action)();
      Calls results{};
    } acting{action};
    kelo_timer_info info{};
    info.value = {0, 1};
    info.cb = {[](void* arg) {
                 auto& self = *static_cast<Acting*>(arg);
                 self.results.add(self.action());
               },
               &acting};
    EXPECT_EQ(kelo_timer_create(&info), 0);
    EXPECT_EQ(kelo_timer_start(&info), 0);
    EXPECT_TRUE(acting.results.wait_for(1));
    EXPECT_TRUE(beats.wait_for(1));
    EXPECT_EQ(kelo_timer_delete(&info), 0);
    return acting.results.names().at(0);
  }

  const LogCapture log;
  Calls beats;
};

TEST_F(TimerWaits, SilentCommandIsKilledAfterTwoSeconds) {
  EXPECT_EQ(result_beside_a_beat(milliseconds(500),
                                 [] { return kelo_ds_system_call3("sleep 5", 0, nullptr, 0, 0); }),
            -1);
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "with SIGKILL"), 1) << log.dump();
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "interrupted"), 0) << log.dump();
}

TEST_F(TimerWaits, AddressQueryGivesUpAfterTwoSeconds) {
  EXPECT_EQ(result_beside_a_beat(milliseconds(500),
                                 [] {
                                   std::array<char, 40> text;
                                   return kelo_check_global_ipv6_addr("lo", text.data());
                                 }),
            0);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "Timeout to wait for IPv6 event"), 1) << log.dump();
  EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "Process fd count"), 0) << log.dump();
}

TEST_F(TimerWaits, SettingIsWrittenWhenTheDatabaseIsFreeAgain) {
  kelo_dm_operations operations{};
  sqlite_reg(&operations);
  ASSERT_EQ(kelo::tests::put("apn", "internet"), 0);
  const FileHolder holder(DB_CONFIG, "begin exclusive", 1000);
  EXPECT_EQ(result_beside_a_beat(milliseconds(10), [] { return kelo::tests::put("apn", "ims"); }), 0)
      << log.dump();
  EXPECT_EQ(kelo::tests::get("apn"), "ims");
}

TEST_F(TimerWaits, OutputOfACommandIsWhole) {
  EXPECT_EQ(result_beside_a_beat(milliseconds(1),
                                 [] {
                                   std::array<char, 64> output{};
                                   const std::string expected = "one\ntwo\n";
                                   const int result = kelo_popen_call("echo one; sleep 0.05; echo two",
                                                                      output.data(), output.size());
                                   return result == 0 && output.data() == expected ? 0 : 1;
                                 }),
            0);
  EXPECT_EQ(result_beside_a_beat(milliseconds(1), [] { return kelo_system_call("sleep 0.05", 10); }), 0);
}

}  // namespace
