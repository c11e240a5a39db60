// SPDX-License-Identifier: MIT
// One image out of a disk and a selection of its changes, and the ways to make a selection smaller.
#include "tools/crash/states.hpp"

#include <algorithm>

namespace kelo::crash {
namespace {

BlockKept kept_of_block(const FileKept& kept, std::size_t block) {
  const auto found = kept.blocks.find(block);
  return found == kept.blocks.end() ? BlockKept{} : found->second;
}

class FileBuilder {
 public:
  FileBuilder(const Content& durable, const FileKept& kept)
      : content_(durable), kept_(kept), size_(durable.size()), newest_size_(durable.size()) {}

  // False when this change and all later ones are lost.
  bool apply(const FileChange& change) {
    if (changes_++ >= kept_.changes) return false;
    if (change.shrinks) return cut(change);
    for (const auto& [block, after] : change.blocks) write(block, after);
    if (change.size != newest_size_ && sizes_++ < kept_.sizes) size_ = change.size;
    newest_size_ = change.size;
    return true;
  }

  Content finish() {
    content_.resize(size_);
    return std::move(content_);
  }

 private:
  bool cut(const FileChange& change) {
    if (cuts_++ >= kept_.cuts) return false;
    content_.resize(change.size);
    size_ = newest_size_ = change.size;
    return true;
  }

  void write(std::size_t block, const BlockRef& after) {
    const BlockKept kept = kept_of_block(kept_, block);
    const std::size_t version = ++versions_[block];
    if (version > kept.versions) return;
    const bool torn = version == kept.versions && kept.sectors != kWholeBlock;
    content_.set_block(block, torn ? torn_block(content_.block(block), after, kept.sectors) : after);
  }

  Content content_;
  const FileKept& kept_;
  std::size_t size_;
  std::size_t newest_size_;
  std::size_t changes_ = 0;
  std::size_t cuts_ = 0;
  std::size_t sizes_ = 0;
  std::map<std::size_t, std::size_t> versions_;
};

Content build_file(const Disk& disk, InodeNumber inode, const Selection& selection) {
  const auto changes = disk.file_changes().find(inode);
  const auto kept = selection.files.find(inode);
  if (changes == disk.file_changes().end() || kept == selection.files.end()) {
    return disk.current().files.at(inode).content;
  }
  FileBuilder builder(disk.durable().files.at(inode).content, kept->second);
  for (const FileChange& change : changes->second) {
    if (!builder.apply(change)) break;
  }
  return builder.finish();
}

std::map<std::string, InodeNumber> build_names(const Disk& disk, const Selection& selection) {
  if (selection.lost_names.empty()) return disk.current().names;
  std::map<std::string, InodeNumber> names = disk.durable().names;
  for (const NameChange& change : disk.name_changes()) {
    if (selection.lost_names.contains(change.event)) continue;
    for (const auto& [name, inode] : change.names) {
      if (inode) {
        names[name] = *inode;
      } else {
        names.erase(name);
      }
    }
  }
  return names;
}

}  // namespace

Image build(const Disk& disk, const Selection& selection) {
  Image image;
  image.names = build_names(disk, selection);
  for (const auto& [name, inode] : image.names) {
    if (image.files.contains(inode)) continue;
    image.files[inode] = {disk.current().files.at(inode).mode, build_file(disk, inode, selection)};
  }
  return image;
}

std::vector<Selection> smaller_losses(const Selection& selection) {
  std::vector<Selection> smaller;
  const auto offer = [&](auto change) {
    Selection next = selection;
    change(next);
    std::erase_if(next.files, [](const auto& file) { return file.second == FileKept{}; });
    smaller.push_back(std::move(next));
  };
  for (const std::size_t event : selection.lost_names) {
    offer([&](Selection& next) { next.lost_names.erase(event); });
  }
  for (const auto& file : selection.files) {
    const InodeNumber inode = file.first;
    const FileKept& kept = file.second;
    offer([&](Selection& next) { next.files.erase(inode); });
    if (kept.changes != kAll) offer([&](Selection& next) { next.files[inode].changes = kAll; });
    if (kept.cuts != kAll) offer([&](Selection& next) { next.files[inode].cuts = kAll; });
    if (kept.sizes != kAll) offer([&](Selection& next) { next.files[inode].sizes = kAll; });
    for (const auto& place : kept.blocks) {
      const std::size_t block = place.first;
      const BlockKept& part = place.second;
      offer([&](Selection& next) { next.files[inode].blocks.erase(block); });
      if (part.sectors == kWholeBlock) continue;
      offer([&](Selection& next) { next.files[inode].blocks[block].sectors = kWholeBlock; });
    }
  }
  return smaller;
}

}  // namespace kelo::crash
