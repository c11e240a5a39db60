// SPDX-License-Identifier: MIT
// param restore and param provision: the factory settings.
#include <cstring>

#include "kelo_utils/parameters.h"
#include "kelo_utils/run.h"
#include "tools/keloctl/beside.hpp"
#include "tools/keloctl/parameters.hpp"

namespace kelo::ctl {
namespace {

int restore_one(const char* given, Output& out) {
  ParameterName name;
  FoundParameter found;
  const int result = find_parameter(given, true, name, found, out);
  if (result != kDone) return result;
  if (!found.factory.there) {
    out.error("%s has no factory value", given);
    return kNo;
  }
  if (!is_storable(name, found.factory.text.c_str(), out)) return kNo;
  // The library stores the text of the cell, whatever the variable is.
  char variable[256];
  const kelo_db_param parameters[] = {{variable, name.name.c_str(), KELO_DB_TYPE_TEXT, sizeof variable, 0},
                                      {}};
  const kelo_db_query query = {name.table.c_str(), parameters};
  if (kelo_db_reload_value(&query, 0) != 0) return failed_change("the parameter was not restored", out);
  return print_stored(name, found.factory.text.view(), out);
}

int check_factory(Output& out) {
  Look look;
  const int result = look.begin(out, kUserParameters);
  if (result != kDone) return result;
  const Database factory = open_for_look(kFactoryParameters);
  if (factory.db) return kDone;
  out.error("%s is %s", kFactoryParameters, words_of(factory.health));
  return factory.health == Health::missing || factory.health == Health::empty ? kNo : kStorage;
}

int copy_factory(Output& out) {
  if (kelo_db_restore_factory() == 1) return kDone;
  return failed_change("the user settings are as they were", out);
}

// Turns what the provisioning has printed into one line.
void join_lines(Bytes& text) {
  std::size_t size = text.view().find('\0');
  while (size > 0 && text.c_str()[size - 1] == '\n') --size;
  text.cut(size);
  for (std::size_t i = 0; i < size; ++i) {
    if (text.c_str()[i] == '\n') text.data()[i] = ' ';
  }
}

// Runs the program that makes the factory database.
int run_provision(const char* sql, Output& out) {
  constexpr int kMostMilliseconds = 60000;
  constexpr int kMostPrinted = 900;
  const LongPath program = beside_program("kelo_provision");
  const char* const arguments[] = {program.c_str(), "--sql", sql, kParameterFolder, nullptr};
  Bytes printed = Bytes::of_size(kMostPrinted);
  if (!printed) return kStorage;
  int code = 0;
  const int result = kelo_run(arguments, kMostMilliseconds, printed.data(), kMostPrinted, &code);
  join_lines(printed);
  if (result == KELO_RUN_EXITED && code == 0) return kDone;
  if (result == KELO_RUN_EXITED) {
    out.error("nothing was changed: %s", printed.c_str());
    const bool is_wrong = std::strstr(printed.c_str(), "disk is full") == nullptr &&
                          (std::strstr(printed.c_str(), "is not right") != nullptr ||
                           std::strstr(printed.c_str(), "makes no table") != nullptr ||
                           std::strstr(printed.c_str(), " rows, not 1") != nullptr);
    return is_wrong ? kUsage : kStorage;
  }
  out.error("%s %s", program.c_str(), result == KELO_RUN_TIMED_OUT ? "took too long" : "could not be run");
  return result == KELO_RUN_TIMED_OUT ? kTimeOut : kStorage;
}

// A process that makes the user database from the factory's has the lock, and keeps this from replacing it meanwhile.
int make_factory(const char* sql, Output& out) {
  Look look;
  const int result = look.begin(out, kUserParameters);
  return result == kDone ? run_provision(sql, out) : result;
}

}  // namespace

int restore_parameters(const Words& words, Output& out) {
  const bool all = words.option("all") != nullptr;
  if (all == (words.count() > 0)) {
    out.error("name one parameter, or --all");
    return kUsage;
  }
  if (!all) return restore_one(words.at(0), out);
  int result = check_factory(out);
  if (result == kDone) result = copy_factory(out);
  if (result != kDone) return result;
  out.say("All parameters have the values of the factory. Running daemons are not told.");
  if (!out.human()) out.flag("daemons_told", false);
  return kDone;
}

int provision_parameters(const Words& words, Output& out) {
  const bool user = words.option("user") != nullptr;
  int result = make_factory(words.at(0), out);
  if (result == kDone && user) result = copy_factory(out);
  if (result != kDone) return result;
  out.say(user ? "The factory settings and the user settings are made. Running daemons are not told."
               : "The factory settings are made. The user settings are as they were.");
  if (out.human()) return kDone;
  out.flag("user", user);
  out.flag("daemons_told", false);
  return kDone;
}

}  // namespace kelo::ctl
