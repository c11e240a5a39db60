// SPDX-License-Identifier: MIT
// The files of the recorded folders: reading them into an image and laying an image out.
#ifndef KELO_TOOLS_CRASH_FILES_HPP
#define KELO_TOOLS_CRASH_FILES_HPP

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "tools/crash/event.hpp"

namespace kelo::crash {

// The folders whose files are recorded and laid out; what is elsewhere never changes.
using Folders = std::vector<std::string>;

bool lies_in(const Folders& folders, const std::string& path);

// `real` receives the number that the system has for each file of the image.
Image scan(const Folders& folders, std::map<ino_t, InodeNumber>* real = nullptr);

// Makes the folders hold this and nothing else.
void lay_out(const Image& image, const Folders& folders);

std::vector<std::string> names_in(const Folders& folders);

// A whole file; empty when it cannot be read.
std::string read_whole(const std::string& path);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_FILES_HPP
