// SPDX-License-Identifier: MIT
// A disk that remembers which changes were synced: what may be lost when the power fails.
#ifndef KELO_TOOLS_CRASH_DISK_HPP
#define KELO_TOOLS_CRASH_DISK_HPP

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/crash/event.hpp"

namespace kelo::crash {

// A change to one file that is not synced yet: of its blocks, of its size, or both.
struct FileChange {
  std::size_t event;
  bool shrinks;  // cuts the file off; what is written later builds on that
  std::size_t size;
  std::vector<std::pair<std::size_t, BlockRef>> blocks;  // as they are after the change
};

// A change of directory entries that is not synced yet. All its names change together.
struct NameChange {
  std::size_t event;
  std::string directory;
  std::vector<std::pair<std::string, std::optional<InodeNumber>>> names;  // nothing: the name is removed
};

class Disk {
 public:
  explicit Disk(const Image& synced) : durable_(synced), current_(synced) {}

  // Makes the change of the event with this index.
  void apply(std::size_t index, const Event& event);

  const Image& durable() const { return durable_; }
  const Image& current() const { return current_; }
  const std::map<InodeNumber, std::vector<FileChange>>& file_changes() const { return file_changes_; }
  const std::vector<NameChange>& name_changes() const { return name_changes_; }

 private:
  void create(std::size_t index, const Event& event);
  void write(std::size_t index, const Event& event);
  void resize(std::size_t index, const Event& event);
  void change_names(NameChange change);
  void sync_file(InodeNumber inode);
  void sync_directory(const std::string& directory);
  void sync_all();
  void settle(const NameChange& change);

  Image durable_;
  Image current_;
  std::map<InodeNumber, std::vector<FileChange>> file_changes_;
  std::vector<NameChange> name_changes_;
};

std::string directory_of(const std::string& path);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_DISK_HPP
