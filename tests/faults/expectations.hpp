// SPDX-License-Identifier: MIT
// Which troubles a fault may lead to.
#ifndef KELO_TESTS_FAULTS_EXPECTATIONS_HPP
#define KELO_TESTS_FAULTS_EXPECTATIONS_HPP

#include <cstddef>
#include <string>

namespace kelo::faults {

// How many of so many faults of a kind may lead to a trouble in a history. Each of these is a result that callers are
// told of.
std::size_t allowed(const std::string& history, const std::string& kind, const std::string& trouble,
                    std::size_t faults);

}  // namespace kelo::faults

#endif  // KELO_TESTS_FAULTS_EXPECTATIONS_HPP
