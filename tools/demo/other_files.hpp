// SPDX-License-Identifier: MIT
// A daemon's other files: parameters with factory values, an INI file, the watch log.
#ifndef KELO_DEMO_OTHER_FILES_HPP
#define KELO_DEMO_OTHER_FILES_HPP

namespace kelo::demo {

// Writes each kind of file, reads it back and restores it, if that is what the kind is for.
void files();

}  // namespace kelo::demo

#endif  // KELO_DEMO_OTHER_FILES_HPP
