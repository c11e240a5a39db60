// SPDX-License-Identifier: MIT
// Reads the recorded folders and writes them anew, once for each state.
#include "tools/crash/files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace kelo::crash {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void give_up(const char* what, const std::string& path) {
  std::fprintf(stderr, "%s %s: ", what, path.c_str());
  std::perror("");
  std::_Exit(2);
}

void write_file(const std::string& path, const Image::File& file) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) give_up("cannot make", path);
  const std::string bytes = file.content.bytes();
  if (write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    give_up("cannot write", path);
  }
  fchmod(descriptor, file.mode & 07777);
  close(descriptor);
}

void make_folder_of(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  if (access(folder.c_str(), F_OK) != 0) fs::create_directories(folder);
}

}  // namespace

bool lies_in(const Folders& folders, const std::string& path) {
  for (const std::string& folder : folders) {
    if (path == folder || path.starts_with(folder + "/")) return true;
  }
  return false;
}

std::string read_whole(const std::string& path) {
  std::string bytes;
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  char buffer[65536];
  for (ssize_t count = 0; descriptor >= 0 && (count = read(descriptor, buffer, sizeof buffer)) > 0;) {
    bytes.append(buffer, static_cast<std::size_t>(count));
  }
  close(descriptor);
  return bytes;
}

std::vector<std::string> names_in(const Folders& folders) {
  std::vector<std::string> names;
  for (const std::string& folder : folders) {
    std::error_code error;
    for (const auto& entry : fs::recursive_directory_iterator(folder, error)) {
      if (!entry.is_directory()) names.push_back(entry.path());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

Image scan(const Folders& folders, std::map<ino_t, InodeNumber>* real) {
  Image image;
  std::map<ino_t, InodeNumber> found;
  for (const std::string& name : names_in(folders)) {
    struct stat status {};
    // A pipe would wait for a writer.
    if (stat(name.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    const auto [entry, fresh] = found.emplace(status.st_ino, static_cast<InodeNumber>(found.size() + 1));
    image.names[name] = entry->second;
    if (fresh) image.files[entry->second] = {status.st_mode, Content(read_whole(name))};
  }
  if (real != nullptr) *real = found;
  return image;
}

void lay_out(const Image& image, const Folders& folders) {
  for (const std::string& name : names_in(folders)) unlink(name.c_str());
  std::map<InodeNumber, std::string> made;
  for (const auto& [name, inode] : image.names) {
    make_folder_of(name);
    const auto [first, fresh] = made.emplace(inode, name);
    if (fresh) {
      write_file(name, image.files.at(inode));
    } else if (link(first->second.c_str(), name.c_str()) != 0) {
      give_up("cannot link", name);
    }
  }
}

}  // namespace kelo::crash
