// SPDX-License-Identifier: MIT
// Another process that keeps a database file locked.
#ifndef KELO_TESTS_FILE_HOLDER_HPP
#define KELO_TESTS_FILE_HOLDER_HPP

#include <sys/types.h>

#include <string>

namespace kelo::tests {

class FileHolder {
 public:
  // Starts a process that opens `path` and runs `begin` ("begin exclusive"). Returns once the lock is held.
  // The lock is given up on destruction, or, when `milliseconds` is not negative, by itself after that time.
  FileHolder(const std::string& path, const std::string& begin, int milliseconds = -1);
  ~FileHolder();
  FileHolder(const FileHolder&) = delete;
  FileHolder& operator=(const FileHolder&) = delete;

 private:
  pid_t process_ = -1;
  int release_ = -1;  // closed to end the process
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_FILE_HOLDER_HPP
