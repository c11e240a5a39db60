// SPDX-License-Identifier: MIT
// The commands on the log, and the two switches that are files.
#include "tools/keloctl/log.hpp"

#include <cerrno>
#include <cstring>

#include "kelo_utils/app_common.h"
#include "tools/keloctl/parameters.hpp"

namespace kelo::ctl {
namespace {

constexpr char kLocalLines[] = "/data/log_enable";

// The file of the local lines has the form that the library gives it: one digit without a line end.
int switch_log(bool on, const Words& words, Output& out) {
  const bool watch = words.option("watch") != nullptr;
  const char* const path = watch ? kWatchOption : kLocalLines;
  if (kelo_util_set_file_int_value(path, on ? 1 : 0) != 0) {
    out.error("%s was not written: %s", path, std::strerror(errno));
    return kStorage;
  }
  if (watch)
    out.say("The watch log is %s.", on ? "on" : "off");
  else
    out.say("%s is written. Running daemons are not told.", path);
  if (out.human()) return kDone;
  out.text("path", path);
  out.flag("on", on);
  out.flag("daemons_told", watch);
  return kDone;
}

int set_level(const Words& words, Output& out) {
  const char* const level = words.at(0);
  if (level[0] >= '0' && level[0] <= '4' && level[1] == '\0')
    return set_parameter("system.log_level", level, out);
  out.error("%s is not a level from 0 to 4", level);
  return kUsage;
}

int switch_on(const Words& words, Output& out) { return switch_log(true, words, out); }
int switch_off(const Words& words, Output& out) { return switch_log(false, words, out); }

constexpr Command kCommands[] = {
    {"log", "watch", "[-f] [-n N]", "the last records of the watch log; -f waits for more", "f n=", 0, 0,
     watch_log},
    {"log", "on", "[--watch]", "print log lines locally, or write the watch log", "watch", 0, 0, switch_on},
    {"log", "off", "[--watch]", "send log lines to the channel, or write no watch log", "watch", 0, 0,
     switch_off},
    {"log", "level", "N", "store the threshold of log lines as the parameter system.log_level", "", 1, 1,
     set_level},
    {"log", "explain", "LINE", "what a line of the log means, and what to do", "", 1, 1, explain_line},
};

}  // namespace

std::span<const Command> log_commands() { return kCommands; }

}  // namespace kelo::ctl
