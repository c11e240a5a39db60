// SPDX-License-Identifier: MIT
// A history: what a daemon does while the power may fail, and how its values are read afterwards.
#ifndef KELO_TOOLS_CRASH_HISTORY_HPP
#define KELO_TOOLS_CRASH_HISTORY_HPP

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/crash/files.hpp"

namespace kelo::crash {

constexpr int kAbsent = -1;  // the version of an item that has no value

// One value that is kept. Its versions follow each other: a later one is never replaced by an earlier one.
struct Item {
  std::string table;
  std::string key;
  int initial = 0;                  // its version before the history
  int in_flight = kAbsent;          // a newer one that it may have as well
  int absent = kAbsent;             // the version that it has when it has no value
  std::vector<std::string> values;  // of each version; there are enough for the writes after each restart
};

// The program after a restart. Each of its processes makes one of its own.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual void start() = 0;
  // The value's length, or a negative code.
  virtual int read(std::size_t item, std::string& value) = 0;
  virtual int write(std::size_t item, const std::string& value) = 0;
  virtual const std::vector<Item>& items() const = 0;
  // What a daemon does at each start after its first writes.
  virtual void settle() {}
  // What is wrong with the files at the end; empty when nothing is.
  virtual std::string fault() { return {}; }
};

// Writes an item, with a mark before the write and one after a success.
void write_marked(Subject& subject, std::size_t item, std::size_t version);

struct History {
  std::string name;
  Folders folders = {"/data", "/kelonvbak/data", "/mnt/vendor/nvdata"};
  std::vector<Item> items;
  std::size_t probe = 0;  // the item that is written after the restart
  // The version that the program itself gives to all items but the probe in settle().
  int settled = kAbsent;
  // All items but the probe change together: after a failure all of them are old, or all are new.
  bool together = false;
  // The files are damaged before: one write may fail, or one read, if it reports that and the next one does not fail.
  bool write_may_fail_once = false;
  bool read_may_fail_once = false;
  // Bytes that the file system of the folders has; 0: as many as it takes.
  std::size_t disk_size = 0;
  // Makes a restart faster. It is used when the calls are not recorded.
  std::function<void()> hasten;
  std::function<void()> prepare;  // makes the files in empty folders, with the power on
  std::function<void()> act;      // sets marks that say how far it is
  std::function<std::unique_ptr<Subject>()> subject;
};

std::vector<History> histories();

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_HISTORY_HPP
