// SPDX-License-Identifier: MIT
// keloctl at, net and info, with a scripted modem and real interfaces.
#include <gmock/gmock.h>

#include <thread>

#include "tests/support/c_library.hpp"
#include "tests/support/interfaces.hpp"
#include "tests/support/keloctl.hpp"
#include "tools/modem/modem.hpp"

namespace {

using namespace kelo::tests;
using kelo::modem::Modem;
using kelo::modem::read_script;
using testing::MatchesRegex;

TEST(KeloctlAt, PrintsTheLinesOfTheReply) {
  EXPECT_EQ(keloctl("at AT"),
            (Ran{1, "", complaint("the command could not be sent: " + error_text(ENETUNREACH))}));
  bring_up("lo");
  const Modem modem(
      read_script("command AT+CSQ\n  send echo \"\\r\\n+CSQ: 20,99\\r\\n\\r\\nOK\\r\\n\"\n"
                  "command AT+NO\n  send \"\\r\\nERROR\\r\\n\"\n"
                  "command AT+PIN=\"Abc\"\n  send \"\\r\\n+CME ERROR: 16\\r\\n\"\n"
                  "command AT+WORDS\n  send \"\\r\\n+CMS ERROR: no network\\r\\n\"\n"
                  "command AT+BEGUN\n  send \"\\r\\n+COPS: 1\\r\\n\"\n"
                  "command AT+LATE\n"));
  EXPECT_EQ(keloctl("at at+csq"), (Ran{0, "+CSQ: 20,99\nOK\n", ""}));
  EXPECT_EQ(keloctl("at AT+CSQ --json --timeout 9"),
            (Ran{0,
                 R"({"lines":[{"text":"+CSQ: 20,99"},{"text":"OK"}],"ok":true,"error":null})"
                 "\n",
                 ""}));
  const std::string refused = "the modem refused the command";
  EXPECT_EQ(keloctl("at AT+NO"), (Ran{1, "ERROR\n", complaint(refused)}));
  EXPECT_EQ(keloctl("at 'at+pin=\"Abc\"' --tsv"),
            (Ran{1, "line\t+CME ERROR: 16\nok\tfalse\nerror\t" + refused + "\n", ""}));
  EXPECT_EQ(keloctl("at AT+WORDS"), (Ran{1, "+CMS ERROR\n", complaint(refused)}));
  const std::string late = "the modem did not answer in time";
  EXPECT_EQ(keloctl("at AT+LATE --timeout 1"), (Ran{5, "", complaint(late)}));
  EXPECT_EQ(keloctl("at AT+LATE --timeout 1 --json"),
            (Ran{5, "{\"lines\":[],\"ok\":false,\"error\":\"" + late + "\"}\n", ""}));
  EXPECT_EQ(keloctl("at AT+BEGUN --timeout 1 --json"),
            (Ran{5, R"({"lines":[{"text":"+COPS: 1"}],"ok":false,"error":")" + late + "\"}\n", ""}));
  EXPECT_EQ(keloctl("at AT+LATE --timeout 1 --tsv"), (Ran{5, "ok\tfalse\nerror\t" + late + "\n", ""}));
  for (const std::string seconds : {"0", "-1", "256", "x"})
    EXPECT_EQ(keloctl("at AT --timeout " + seconds),
              (Ran{2, "", complaint(seconds + " is not a number of seconds from 1 to 255")}));
  EXPECT_EQ(keloctl("at"), (Ran{2, "", complaint("usage: keloctl at COMMAND [--timeout S]")}));
}

TEST(KeloctlNet, PrintsTheGateway) {
  const Link wan("wan");
  EXPECT_EQ(keloctl("net gateway wan"), (Ran{1, "", complaint("wan has no IPv6 default gateway")}));
  add_address("wan", "2001:db8::2", 64);
  add_route("wan", "::", 0, "2001:db8::1");
  EXPECT_EQ(keloctl("net gateway wan"), (Ran{0, "2001:db8::1\n", ""}));
  EXPECT_EQ(keloctl("net gateway wan --json"),
            (Ran{0, "{\"address\":\"2001:db8::1\",\"ok\":true,\"error\":null}\n", ""}));
  EXPECT_EQ(keloctl("net gateway none"), (Ran{1, "", complaint("there is no interface none")}));
}

TEST(KeloctlNet, WaitsForAnAddress) {
  const Link wan("wan");
  EXPECT_EQ(keloctl("net address none"), (Ran{1, "", complaint("there is no interface none")}));
  std::thread later([] {
    usleep(500000);
    add_address("wan", "2001:db8::2", 64);
  });
  EXPECT_EQ(keloctl("net address wan"), (Ran{0, "2001:0db8:0000:0000:0000:0000:0000:0002\n", ""}));
  later.join();
  EXPECT_EQ(keloctl("net address wan"),
            (Ran{1, "", complaint("no global IPv6 address was announced for wan")}));
}

TEST(KeloctlNet, PrintsTheAddressOfTheBridge) {
  EXPECT_EQ(keloctl("net bridge"), (Ran{1, "", complaint("no bridge has an IPv4 address")}));
  add_bridge("br0");
  add_address("br0", "192.168.8.1", 24);
  EXPECT_EQ(keloctl("net bridge --tsv"), (Ran{0, "address\t192.168.8.1\nok\ttrue\nerror\t\n", ""}));
  remove_interface("br0");
}

TEST(KeloctlInfo, TellsVersionsAndPaths) {
  const Ran ran = keloctl("info --store /tmp/");
  EXPECT_EQ(ran.status, 0);
  EXPECT_THAT(ran.output,
              MatchesRegex("version     [0-9.]+\nsqlite      3\\.[0-9.]+\nprimary     /tmp/config.db\n"
                           "backup      /tmp/configbak.db\nuptime      [0-9]+\nproject     .+\n"));
}

}  // namespace
