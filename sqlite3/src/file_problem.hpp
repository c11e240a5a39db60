// SPDX-License-Identifier: MIT
// The log line that names a file of the store which cannot be used.
#ifndef KELO_SQLITE3_FILE_PROBLEM_HPP
#define KELO_SQLITE3_FILE_PROBLEM_HPP

namespace kelo::store {

// Logs the path, the reason and what to do. `error` is an error of the system or SQLITE_NOTADB. Each reason is logged
// once in a process, with the first file that it concerns, so that operations which are repeated do not fill the log.
void log_file_problem(const char* path, int error);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FILE_PROBLEM_HPP
