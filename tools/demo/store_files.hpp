// SPDX-License-Identifier: MIT
// The store's files as another program sees them.
#ifndef KELO_DEMO_STORE_FILES_HPP
#define KELO_DEMO_STORE_FILES_HPP

#include <string>

namespace kelo::demo {

// The first cell of what a query yields on a copy of the database, so that the query repairs nothing; "-" for
// none.
std::string peek(const std::string& database, const std::string& query);

// The journal's state in words: "WS_READY (100)".
std::string journal_state();

// Overwrites the file from `offset` to its end with bytes that are no database.
void damage(const std::string& file, long offset);

std::string file_text(const std::string& file);

// Prints what the library logs about its store from now on.
void show_store_log();
void hide_log();

}  // namespace kelo::demo

#endif  // KELO_DEMO_STORE_FILES_HPP
