// SPDX-License-Identifier: MIT
// Histories on the files that are no configuration databases: parameters and INI files.
#ifndef KELO_TOOLS_CRASH_FILE_SUBJECTS_HPP
#define KELO_TOOLS_CRASH_FILE_SUBJECTS_HPP

#include <vector>

#include "tools/crash/history.hpp"

namespace kelo::crash {

std::vector<History> parameter_histories();
// Writes, restarts and at most one restore, in an order that the seed decides.
History random_parameters(unsigned seed);
std::vector<History> ini_histories();

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_FILE_SUBJECTS_HPP
