// A daemon's other files: parameters with factory values, an INI file, the watch log.
#ifndef KELO_DEMO_FILES_HPP
#define KELO_DEMO_FILES_HPP

namespace kelo::demo {

// Each kind of file is written, read back and, where that is its point, brought back to what it was.
void files();

}  // namespace kelo::demo

#endif  // KELO_DEMO_FILES_HPP
