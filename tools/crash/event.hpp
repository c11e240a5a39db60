// SPDX-License-Identifier: MIT
// What a recorded program did to its files, call by call.
#ifndef KELO_TOOLS_CRASH_EVENT_HPP
#define KELO_TOOLS_CRASH_EVENT_HPP

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/crash/content.hpp"

namespace kelo::crash {

using InodeNumber = int;

// What a program says about its own progress, in order with its calls.
enum class Progress : std::int32_t { begins = 1, acknowledged, seen };

struct Mark {
  Progress progress;
  std::int32_t item;
  std::int32_t version;
};

enum class Change {
  create,
  write,
  resize,
  rename,
  link,
  unlink,
  mode,
  sync_file,
  sync_directory,
  sync_all,
  mark
};

struct Event {
  Change change{};
  std::string call = {};    // the system call's name
  InodeNumber inode = 0;    // of a change to a file
  std::string path = {};    // of a change to a directory: the name, or the old name of two
  std::string second = {};  // the new name of two
  std::size_t offset = 0;
  std::string data = {};  // what was written
  std::size_t size = 0;   // the new size
  mode_t mode = 0;
  Mark mark{};
};

// Files and names at one moment. Several names may lead to one file.
struct Image {
  struct File {
    mode_t mode = 0644;
    Content content;
  };
  std::map<InodeNumber, File> files;
  std::map<std::string, InodeNumber> names;

  // Equal for images that no program can tell apart.
  std::uint64_t hash() const;
};

struct Recording {
  Image before;
  std::vector<Event> events;
  std::vector<std::string> unknown;  // calls on the files that the model does not know
  int exit_status = -1;              // of the recorded program; -1 when a signal ended it
};

// One line about an event, for people.
std::string description(const Event& event);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_EVENT_HPP
