// SPDX-License-Identifier: MIT
// What daemons do while something fails.
#ifndef KELO_TESTS_FAULTS_FAULT_HISTORIES_HPP
#define KELO_TESTS_FAULTS_FAULT_HISTORIES_HPP

#include <vector>

#include "tools/crash/history.hpp"

namespace kelo::faults {

std::vector<crash::History> fault_histories();

}  // namespace kelo::faults

#endif  // KELO_TESTS_FAULTS_FAULT_HISTORIES_HPP
