// The paths of the library's sources, which the records of the diagnostic channel name.
#include <cstring>

#include "log/library_log.hpp"

namespace {

// One after the other, each with its terminator: an array of pointers would need relocations.
constexpr char kNames[] =
#include "source_names.inc"
    ;

}  // namespace

const char* kelo::log::source_name(unsigned file) {
  const char* name = kNames;
  for (; file > 0 && *name != '\0'; --file) name += std::strlen(name) + 1;
  return name;
}
