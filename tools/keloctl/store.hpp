// SPDX-License-Identifier: MIT
// What the commands on the whole store share.
#ifndef KELO_TOOLS_KELOCTL_STORE_HPP
#define KELO_TOOLS_KELOCTL_STORE_HPP

#include <span>

#include "tools/keloctl/command.hpp"
#include "tools/keloctl/look.hpp"

namespace kelo::ctl {

enum class Rows { items, defaults, journal };

struct StoreFile {
  const char* name;
  const char* path;
  Rows rows;
  bool is_needed;  // a store without it is not well
  bool is_copied;  // copies over it may be interrupted
};

// The primary and the backup come first.
std::span<const StoreFile> store_files();

// Runs SQLite's quick check on a file.
Health check_file(const char* path);
Health check_database(const Database& database);

int store_status(const Words& words, Output& out);

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_STORE_HPP
