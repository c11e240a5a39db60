// SPDX-License-Identifier: MIT
// Finds the files that are installed with this program, wherever that is.
#ifndef KELO_TOOLS_KELOCTL_BESIDE_HPP
#define KELO_TOOLS_KELOCTL_BESIDE_HPP

#include "base/text_builder.hpp"

namespace kelo::ctl {

using LongPath = base::FixedText<512>;

// The path of a file, given from the folder of this program.
LongPath beside_program(const char* relative);

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_BESIDE_HPP
