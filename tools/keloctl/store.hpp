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

inline constexpr char kRecoveryCopy[] = "/kelonvbak/data/config.db";

// Compares two files. Connections of this process must be closed: closing a file releases SQLite's locks on it.
bool same_bytes(const char* one, const char* other);

// Whether an interrupted change has left files beside the databases.
bool has_left_overs();

// Whether the journal has no write, or one that was completed. A journal that cannot be read is not complete.
bool journal_is_complete();

int store_status(const Words& words, Output& out);
int store_repair(const Words& words, Output& out);
int store_watch(const Words& words, Output& out);

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_STORE_HPP
