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
#include "ini/copy_cache.hpp"

namespace kelo::ini {
namespace {

using PathText = std::array<char, PATH_MAX>;

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kEverybody = 0666;
constexpr mode_t kPermissions = 07777;

bool write_text(int fd, std::string_view text) { return base::write_all(fd, text) == text.size(); }

// Waits until what was written is on the storage.
bool sync_file(int fd) {
  return base::retry_interrupted([=] { return fsync(fd); }) == 0;
}

// The file's own name with its last character replaced.
void ini_tempname(std::string_view filename, PathText& name) {
  assert(!filename.empty() && filename.size() < name.size());
  name[ini_strncpy(name, filename) - 1] = '~';
}

// A copy in the making, which is removed again unless it takes the place of the file.
class TemporaryFile {
 public:
  explicit TemporaryFile(const char* filename) : filename_(filename) {
    ini_tempname(filename, name_);
    // A file whose name ends so is its own copy.
    if (std::strcmp(name_.data(), filename) == 0) return;
    // Another file of this name may be a link to the settings file, which must not be truncated.
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

  // Gives it to the owner of the file, where the process may. That comes first, as it can take rights away.
  void take_owner_and_mode(const struct stat& status) const {
    (void)!fchown(get(), status.st_uid, status.st_gid);
    (void)!fchmod(get(), status.st_mode & kPermissions);
  }

  // All of it has to be on the storage before the name is. The file is never without a name.
  bool take_place() {
    if (!sync_file(get()) || std::rename(name_.data(), filename_) != 0) return false;
    file_.reset();
    // The change is in the file from here on, whatever becomes of its name in a power cut.
    base::sync_directory_of(filename_);
    return true;
  }

 private:
  const char* const filename_;
  PathText name_;
  base::Descriptor file_;
};

bool copy_stretch(int from, off_t begin, off_t end, int to) {
  while (begin < end) {
    const auto size = static_cast<std::size_t>(std::min<off_t>(end - begin, INI_BUFFERSIZE));
    const std::size_t copied = cache_flush(from, begin, size, to);
    if (copied == 0) return false;
    begin += static_cast<off_t>(copied);
  }
  return true;
}

}  // namespace

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
         copy_stretch(settings, change.end, status.st_size, copy.get()) && copy.take_place();
}

}  // namespace kelo::ini
