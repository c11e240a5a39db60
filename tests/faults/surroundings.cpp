// SPDX-License-Identifier: MIT
// What is wrong around a history: the commands that it starts, and the folders of its files.
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "tests/faults/fault.hpp"
#include "tools/crash/files.hpp"

namespace kelo::faults {
namespace {

namespace fs = std::filesystem;

constexpr char kTools[] = "/tmp/faults/tools";  // every command that the library starts, but cp
constexpr char kOwnCopy[] = "/tmp/faults/cp";   // a folder with a cp that goes wrong

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::_Exit(2);
}

void set_path(const std::string& path) { setenv("PATH", path.c_str(), 1); }

void make_tools() {
  fs::create_directories(kTools);
  for (const char* const tool : {"sh", "find", "wc", "date", "rm", "mv", "head", "sleep"}) {
    const fs::path link = fs::path(kTools) / tool;
    if (!fs::is_symlink(link)) fs::create_symlink(fs::path("/bin") / tool, link);
  }
}

// Its two last arguments are "$1" and "$2" in the script.
void make_copy_command(const char* script) {
  fs::create_directories(kOwnCopy);
  const fs::path path = fs::path(kOwnCopy) / "cp";
  std::ofstream(path) << "#!/bin/sh\nwhile [ $# -gt 2 ]; do shift; done\n" << script << "\n";
  fs::permissions(path, fs::perms::owner_all);
}

Fault with_path(const char* name, const std::string& path, const char* script) {
  Fault fault;
  fault.name = name;
  fault.real_commands = true;
  fault.begin = [=] {
    make_tools();
    if (script != nullptr) make_copy_command(script);
    set_path(path);
  };
  fault.end = [] { set_path("/usr/bin:/bin"); };
  return fault;
}

struct CopyCommand {
  const char* name;
  const char* script;
};

constexpr CopyCommand kCopyCommands[] = {
    {"cp that fails", "exit 1"},
    {"cp that is killed", "kill -9 $$"},
    {"cp that is killed half-way", "head -c 6000 \"$1\" > \"$2\"; kill -9 $$"},
    {"cp that copies half and says nothing", "head -c 6000 \"$1\" > \"$2\""},
    {"cp that copies and fails", "/bin/cp \"$1\" \"$2\"; exit 1"},
    {"cp that empties and fails", ": > \"$2\"; exit 1"},
    {"cp that does nothing", "exit 0"},
    {"cp that hangs until it is killed", "sleep 0.1; kill -9 $$"},
    {"cp that hangs half-way until it is killed", "head -c 6000 \"$1\" > \"$2\"; sleep 0.1; kill -9 $$"},
};

// The capabilities let a process pass over the rights of a file.
void drop_capabilities() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[2] = {};
  if (syscall(SYS_capset, &header, none) != 0) give_up("capset");
}

void remount(const std::string& folder, unsigned long flags) {
  if (mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | flags, nullptr) != 0) give_up("mount");
}

Fault read_only_folders(const crash::History& history) {
  Fault fault;
  fault.name = "read-only";
  fault.begin = [&history] {
    if (unshare(CLONE_NEWNS) != 0) give_up("unshare");
    for (const std::string& folder : history.folders) remount(folder, MS_RDONLY);
  };
  fault.end = [&history] {
    for (const std::string& folder : history.folders) remount(folder, 0);
  };
  return fault;
}

// The process sees a root folder in which nothing is.
Fault missing_folders() {
  Fault fault;
  fault.name = "missing";
  const auto root = std::make_shared<int>(-1);
  fault.begin = [root] {
    *root = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    fs::create_directories("/tmp/faults/nothing");
    if (*root < 0 || chroot("/tmp/faults/nothing") != 0) give_up("chroot");
  };
  fault.end = [root] {
    if (fchdir(*root) != 0 || chroot(".") != 0) give_up("chroot");
    close(*root);
  };
  return fault;
}

// The rights of folders and of files, as they are for who owns neither.
Fault rights(const crash::History& history, const char* name, mode_t folders, mode_t files) {
  using Modes = std::vector<std::pair<std::string, mode_t>>;
  Fault fault;
  fault.name = name;
  const auto before = std::make_shared<Modes>();
  fault.begin = [=, &history] {
    const auto change = [&](const std::string& path, mode_t mode) {
      struct stat status {};
      if (stat(path.c_str(), &status) != 0) give_up(path.c_str());
      before->emplace_back(path, status.st_mode & 07777);
      chmod(path.c_str(), mode);
    };
    for (const std::string& path : crash::names_in(history.folders)) {
      if (fs::is_regular_file(path)) change(path, files);
    }
    for (const std::string& folder : history.folders) {
      std::vector<std::string> within = {folder};
      for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_directory()) within.push_back(entry.path());
      }
      // A folder that can be entered is needed to change those in it, and to change them back.
      std::reverse(within.begin(), within.end());
      for (const std::string& inner : within) change(inner, folders);
    }
    drop_capabilities();
  };
  fault.end = [=] {
    std::reverse(before->begin(), before->end());
    for (const auto& [path, mode] : *before) chmod(path.c_str(), mode);
  };
  return fault;
}

}  // namespace

std::vector<Fault> process_faults(const crash::History& /*history*/, const Calls& /*calls*/) {
  constexpr int kMostCommands = 8;
  constexpr int kForGood = 1000;
  std::vector<Fault> faults;
  for (const int error : {EAGAIN, ENOMEM, EMFILE}) {
    for (int at = 1; at <= kMostCommands; ++at) faults.push_back(failing("posix_spawnp", error, at, 1));
    faults.push_back(failing("posix_spawnp", error, 1, kForGood));
  }
  for (Fault& fault : faults) fault.real_commands = true;
  faults.push_back(with_path("no cp", kTools, nullptr));
  faults.push_back(with_path("no commands", "/tmp/faults/none", nullptr));
  for (const auto& [name, script] : kCopyCommands) {
    faults.push_back(with_path(name, std::string(kOwnCopy) + ":" + kTools, script));
  }
  return faults;
}

std::vector<Fault> folder_faults(const crash::History& history, const Calls& /*calls*/) {
  return {missing_folders(),
          read_only_folders(history),
          rights(history, "no new names", 0555, 0644),
          rights(history, "files only to be read", 0755, 0444),
          rights(history, "all only to be read", 0555, 0444),
          rights(history, "files of another user", 0755, 0),
          rights(history, "all of another user", 0, 0)};
}

}  // namespace kelo::faults
