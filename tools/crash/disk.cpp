// SPDX-License-Identifier: MIT
// The disk model: every change is kept separately until a sync makes it permanent.
#include "tools/crash/disk.hpp"

#include <algorithm>

namespace kelo::crash {
namespace {

void put_names(const NameChange& change, std::map<std::string, InodeNumber>& names) {
  for (const auto& [name, inode] : change.names) {
    if (inode) {
      names[name] = *inode;
    } else {
      names.erase(name);
    }
  }
}

}  // namespace

std::string directory_of(const std::string& path) { return path.substr(0, path.rfind('/')); }

void Disk::apply(std::size_t index, const Event& event) {
  const auto& names = current_.names;
  switch (event.change) {
    case Change::create:
      return create(index, event);
    case Change::write:
      return write(index, event);
    case Change::resize:
      return resize(index, event);
    case Change::rename: {
      const InodeNumber moved = names.at(event.path);
      const auto target = names.find(event.second);
      // A rename between two names of one file changes nothing.
      if (target != names.end() && target->second == moved) return;
      return change_names({index, directory_of(event.second), {{event.path, {}}, {event.second, moved}}});
    }
    case Change::link:
      return change_names({index, directory_of(event.second), {{event.second, names.at(event.path)}}});
    case Change::unlink:
      return change_names({index, directory_of(event.path), {{event.path, {}}}});
    case Change::mode:
      current_.files[event.inode].mode = event.mode;
      durable_.files[event.inode].mode = event.mode;
      return;
    case Change::sync_file:
      return sync_file(event.inode);
    case Change::sync_directory:
      return sync_directory(event.path);
    case Change::sync_all:
      return sync_all();
    case Change::mark:
      return;
  }
}

void Disk::create(std::size_t index, const Event& event) {
  // The file itself exists, empty, also when its name is lost.
  current_.files[event.inode] = durable_.files[event.inode] = {event.mode, {}};
  change_names({index, directory_of(event.path), {{event.path, event.inode}}});
}

void Disk::write(std::size_t index, const Event& event) {
  if (event.data.empty()) return;
  Content& content = current_.files.at(event.inode).content;
  content.write(event.offset, event.data);
  FileChange change = {index, false, content.size(), {}};
  const std::size_t last = (event.offset + event.data.size() - 1) / kBlockSize;
  for (std::size_t block = event.offset / kBlockSize; block <= last; ++block) {
    change.blocks.emplace_back(block, content.block(block));
  }
  file_changes_[event.inode].push_back(std::move(change));
}

void Disk::resize(std::size_t index, const Event& event) {
  Content& content = current_.files.at(event.inode).content;
  if (content.size() == event.size) return;
  const bool shrinks = event.size < content.size();
  content.resize(event.size);
  file_changes_[event.inode].push_back({index, shrinks, event.size, {}});
}

void Disk::change_names(NameChange change) {
  put_names(change, current_.names);
  name_changes_.push_back(std::move(change));
}

void Disk::sync_file(InodeNumber inode) {
  durable_.files[inode].content = current_.files.at(inode).content;
  file_changes_.erase(inode);
}

void Disk::settle(const NameChange& change) { put_names(change, durable_.names); }

void Disk::sync_directory(const std::string& directory) {
  for (const NameChange& change : name_changes_) {
    if (change.directory == directory) settle(change);
  }
  std::erase_if(name_changes_, [&](const NameChange& change) { return change.directory == directory; });
}

void Disk::sync_all() {
  for (const NameChange& change : name_changes_) settle(change);
  name_changes_.clear();
  for (auto& [inode, file] : current_.files) durable_.files[inode].content = file.content;
  file_changes_.clear();
}

}  // namespace kelo::crash
