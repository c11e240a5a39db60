// SPDX-License-Identifier: MIT
// Compares images and describes events.
#include "tools/crash/event.hpp"

namespace kelo::crash {

std::uint64_t Image::hash() const {
  std::uint64_t hash = 3;
  std::map<InodeNumber, std::uint64_t> place_of_first_name;
  std::uint64_t place = 0;
  for (const auto& [name, inode] : names) {
    const File& file = files.at(inode);
    const auto first = place_of_first_name.emplace(inode, place++).first;
    hash = hash_number(first->second, hash_bytes(name, hash));
    if (first->second + 1 == place) hash = hash_number(file.mode, hash_number(file.content.hash(), hash));
  }
  return hash;
}

std::string description(const Event& event) {
  const std::string file = "#" + std::to_string(event.inode);
  std::string text = event.call;
  switch (event.change) {
    case Change::create:
      return text + " makes " + event.path + " as " + file;
    case Change::write:
      return text + " " + file + " " + event.path + " bytes " + std::to_string(event.offset) + " to " +
             std::to_string(event.offset + event.data.size());
    case Change::resize:
      return text + " " + file + " " + event.path + " to " + std::to_string(event.size) + " bytes";
    case Change::rename:
    case Change::link:
      return text + " " + event.path + " -> " + event.second;
    case Change::mode:
    case Change::sync_file:
      return text + " " + file + " " + event.path;
    case Change::unlink:
    case Change::sync_directory:
      return text + " " + event.path;
    case Change::sync_all:
      return text;
    case Change::mark:
      break;
  }
  constexpr const char* kProgress[] = {"", "begins", "acknowledged", "seen"};
  return std::string("  item ") + std::to_string(event.mark.item) + " version " +
         std::to_string(event.mark.version) + " " + kProgress[static_cast<int>(event.mark.progress)];
}

}  // namespace kelo::crash
