// What descriptors a process holds.
#ifndef KELO_TESTS_DESCRIPTORS_HPP
#define KELO_TESTS_DESCRIPTORS_HPP

#include <set>
#include <string>

namespace kelo::tests {

// The open descriptors of this process, each as "number path".
std::set<std::string> open_descriptors();

// The same of a process that wrote `ls -l /proc/self/fd` to a file.
std::set<std::string> listed_descriptors(const std::string& path);

}  // namespace kelo::tests

#endif  // KELO_TESTS_DESCRIPTORS_HPP
