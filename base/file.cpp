// The names of files, brought to the storage.
#include "base/file.hpp"

#include <climits>
#include <cstring>
#include <string_view>

#include "base/text_builder.hpp"

namespace kelo::base {

bool sync_directory_of(const char* path) {
  const char* const slash = std::strrchr(path, '/');
  FixedText<PATH_MAX> directory;
  directory.append(slash == nullptr ? "."
                                    : std::string_view(path, static_cast<std::size_t>(slash + 1 - path)));
  if (directory.cut()) {
    errno = ENAMETOOLONG;
    return false;
  }
  const Descriptor opened = open_file(directory.c_str(), O_RDONLY | O_DIRECTORY);
  if (!opened) return false;
  const int result = retry_interrupted([&] { return ::fsync(opened.get()); });
  return result == 0 || errno == EINVAL || errno == ENOTSUP;
}

}  // namespace kelo::base
