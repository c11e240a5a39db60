// SPDX-License-Identifier: MIT
// What descriptors a process holds.
#ifndef KELO_TESTS_DESCRIPTORS_HPP
#define KELO_TESTS_DESCRIPTORS_HPP

#include <sys/resource.h>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace kelo::tests {

// The open descriptors of this process, each as "number path".
std::set<std::string> open_descriptors();

// The same of a process that wrote `ls -l /proc/self/fd` to a file.
std::set<std::string> listed_descriptors(const std::string& path);

// Expects that what such a process held are its standard streams and what this one held `before`.
void expect_nothing_inherited(const std::string& path, const std::set<std::string>& before);

// Lets this process open descriptors below `limit` only. Skips the test where the machine allows fewer.
void limit_descriptors(rlim_t limit);

// Descriptors of its own, until `most` are open or there are no more; `free` of them are closed again.
class ManyDescriptors {
 public:
  ManyDescriptors(std::size_t most, std::size_t free);
  ~ManyDescriptors();
  ManyDescriptors(const ManyDescriptors&) = delete;
  ManyDescriptors& operator=(const ManyDescriptors&) = delete;

  [[nodiscard]] int highest() const { return descriptors_.back(); }

 private:
  std::vector<int> descriptors_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_DESCRIPTORS_HPP
