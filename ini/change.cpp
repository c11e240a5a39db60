// SPDX-License-Identifier: MIT
// Writes a changed settings file to the storage.
#include "ini/change.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "base/file.hpp"
#include "ini/assertion.hpp"
#include "ini/bounded_copy.hpp"
#include "kelo_utils/ini.h"

namespace kelo::ini {
namespace {

using PathText = std::array<char, PATH_MAX>;

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kEverybody = 0666;
constexpr mode_t kPermissions = 07777;

bool write_text(int fd, std::string_view text) { return base::write_all(fd, text) == text.size(); }

// Waits until the written data is on the storage.
bool sync_file(int fd) {
  return base::retry_interrupted([=] { return fsync(fd); }) == 0;
}

// The temporary name is the name of the file with its last character replaced.
void ini_tempname(std::string_view filename, PathText& name) {
  assert(!filename.empty() && filename.size() < name.size());
  name[ini_strncpy(name, filename) - 1] = '~';
}

// A temporary file that becomes the changed copy. The destructor removes it, unless it has replaced the settings file.
class TemporaryFile {
 public:
  explicit TemporaryFile(const char* filename) : filename_(filename) {
    ini_tempname(filename, name_);
    // If the name ends with '~', the temporary name would be the name of the settings file itself.
    if (std::strcmp(name_.data(), filename) == 0) return;
    // An existing file of this name may be a link to the settings file, so it is removed and not truncated.
    unlink(name_.data());
    file_ = base::open_file(name_.data(), O_WRONLY | O_CREAT | O_EXCL, kOwnerOnly);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (file_) unlink(name_.data());
  }

  explicit operator bool() const { return static_cast<bool>(file_); }
  [[nodiscard]] int get() const { return file_.get(); }

  // Gives the copy the owner and the mode of the settings file, as far as the process may. The owner comes first,
  // because changing it can clear bits of the mode.
  void take_owner_and_mode(const struct stat& status) const {
    (void)!fchown(get(), status.st_uid, status.st_gid);
    (void)!fchmod(get(), status.st_mode & kPermissions);
  }

  // Renames the copy to the settings file, which therefore exists at all times. The content must be on the storage
  // before the new name is.
  bool replace_original() {
    if (!sync_file(get()) || std::rename(name_.data(), filename_) != 0) return false;
    file_.reset();
    // The rename has succeeded. A failed sync does not undo it, so the result is success.
    base::sync_directory_of(filename_);
    return true;
  }

 private:
  const char* const filename_;
  PathText name_;
  base::Descriptor file_;
};

// Copies the bytes from `begin` to `end`. The kernel copies long stretches with one call, on file systems where it can.
bool copy_stretch(int from, off_t begin, off_t end, int to) {
  while (begin < end) {
    const auto size = static_cast<std::size_t>(end - begin);
    loff_t next = begin;
    if (size > INI_BUFFERSIZE && copy_file_range(from, &next, to, nullptr, size, 0) > 0) {
      begin = static_cast<off_t>(next);
      continue;
    }
    const std::size_t copied = cache_flush(from, begin, std::min<std::size_t>(size, INI_BUFFERSIZE), to);
    if (copied == 0) return false;
    begin += static_cast<off_t>(copied);
  }
  return true;
}

}  // namespace

std::size_t cache_flush(int from, off_t position, std::size_t size, int to) {
  std::array<char, INI_BUFFERSIZE> cache;
  assert(size <= cache.size());
  const ssize_t count = base::retry_interrupted([&] { return pread(from, cache.data(), size, position); });
  const std::size_t read = count < 0 ? 0 : static_cast<std::size_t>(count);
  return base::write_all(to, {cache.data(), read}) == read ? read : 0;
}

bool create_file(const char* filename, std::string_view text) {
  const auto file = base::open_file(filename, O_WRONLY | O_CREAT | O_TRUNC, kEverybody);
  if (!file) return false;
  if (!write_text(file.get(), text) || !sync_file(file.get())) {
    unlink(filename);
    return false;
  }
  base::sync_directory_of(filename);
  return true;
}

bool overwrite_stretch(const char* filename, const Change& change) {
  const auto file = base::open_file(filename, O_RDWR);
  if (!file || lseek(file.get(), change.begin, SEEK_SET) != change.begin) return false;
  return write_text(file.get(), change.text.text()) && sync_file(file.get());
}

bool replace_file(const char* filename, int settings, const Change& change) {
  struct stat status {};
  if (fstat(settings, &status) != 0) return false;
  TemporaryFile copy(filename);
  if (!copy) return false;
  copy.take_owner_and_mode(status);
  return copy_stretch(settings, 0, change.begin, copy.get()) && write_text(copy.get(), change.text.text()) &&
         copy_stretch(settings, change.end, status.st_size, copy.get()) && copy.replace_original();
}

}  // namespace kelo::ini
