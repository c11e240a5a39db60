// SPDX-License-Identifier: MIT
// Prints the records of the watch log. It consists of two files, of which the one that was written last has the newest
// records. docs/watch_log.md describes them.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/file.hpp"
#include "base/line_reader.hpp"
#include "tools/keloctl/log.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {{"file", kHidden}, {"text", 0}};
constexpr std::size_t kLongestRecord = 1 << 16;  // a longer one is printed in pieces
constexpr long long kUsualRecords = 10;
constexpr unsigned kPauseMicroseconds = 250000;

volatile std::sig_atomic_t ended = 0;
void end_watch(int /*signal*/) { ended = 1; }

struct WatchFile {
  const char* name;
  const char* path;
  ino_t inode;
  timespec written;
  off_t printed;  // up to here
};

// The records of both files in the order of their age.
class Watch {
 public:
  Watch(bool follows, Bytes& storage, Output& out) : follows_(follows), storage_(storage), out_(out) {}

  // Prints the last `count` records. The result is an Exit.
  int print_last(long long count) {
    long long all = 0;
    int missing = 0;
    for (WatchFile& file : files_) {
      all += read(file, INT64_MAX);
      if (error_ == 0) continue;
      if (error_ != ENOENT) return fail(file);
      ++missing;
    }
    if (missing == 2 && !follows_) {
      out_.error("there is no watch log: neither %s nor %s exists", files_[0].path, files_[1].path);
      return kNo;
    }
    const auto age = [](const WatchFile& file) {
      return std::pair(file.written.tv_sec, file.written.tv_nsec);
    };
    if (age(files_[1]) < age(files_[0])) std::swap(files_[0], files_[1]);
    long long skipped = all > count ? all - count : 0;
    for (WatchFile& file : files_) {
      file.printed = 0;
      skipped -= read(file, skipped);
    }
    return kDone;
  }

  // Prints what was added since. The result is an Exit.
  int print_new() {
    for (WatchFile& file : files_) {
      read(file, 0);
      if (error_ != 0 && error_ != ENOENT) return fail(file);
    }
    return kDone;
  }

 private:
  int fail(const WatchFile& file) {
    out_.error("%s cannot be read: %s", file.path, std::strerror(error_));
    return kStorage;
  }

  // Reads on from where the last call has ended, and prints all records but the first `skipped`. Returns how many it has
  // not printed. A file that was emptied or replaced since is read from its beginning.
  long long read(WatchFile& file, long long skipped) {
    error_ = 0;
    struct stat status {};
    const base::Descriptor opened = base::open_file(file.path, O_RDONLY | O_NONBLOCK);
    if (!opened || fstat(opened.get(), &status) != 0) {
      error_ = errno;
      file.inode = 0;
      return 0;
    }
    if (status.st_ino != file.inode || status.st_size < file.printed) file.printed = 0;
    file.inode = status.st_ino;
    file.written = status.st_mtim;
    if (lseek(opened.get(), file.printed, SEEK_SET) < 0) error_ = errno;
    base::LineReader lines(opened.get(), {storage_.data(), storage_.size()});
    long long not_printed = 0;
    for (std::string_view line = lines.next(); !line.empty(); line = lines.next()) {
      // Its end may be on its way.
      if (follows_ && line.back() != '\n' && line.size() < storage_.size()) break;
      file.printed += static_cast<off_t>(line.size());
      if (not_printed < skipped)
        ++not_printed;
      else
        print(file, line);
    }
    if (lines.failed()) error_ = errno;
    return not_printed;
  }

  void print(const WatchFile& file, std::string_view line) {
    if (line.back() == '\n') line.remove_suffix(1);
    if (out_.human()) {
      out_.say_text(line);
      return;
    }
    out_.begin_record();
    out_.text(file.name);
    out_.text(line);
    out_.end_record();
  }

  const bool follows_;
  Bytes& storage_;
  Output& out_;
  int error_ = 0;
  std::array<WatchFile, 2> files_ = {
      {{"A", "/data/oem/logs/fwawatchA.log", 0, {}, 0}, {"B", "/data/oem/logs/fwawatchB.log", 0, {}, 0}}};
};

bool is_switched_off() {
  std::array<char, 128 + 1> option{};
  const base::Descriptor file = base::open_file(kWatchOption, O_RDONLY | O_NONBLOCK);
  return file && base::read_some(file.get(), {option.data(), option.size() - 1}) > 0 &&
         std::strtol(option.data(), nullptr, 10) == 0;
}

// The list is complete when a signal ends the wait.
int follow(Watch& watch, const Output& out) {
  struct sigaction action {};
  action.sa_handler = end_watch;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
  int result = kDone;
  while (ended == 0 && result == kDone && out.flush()) {
    usleep(kPauseMicroseconds);
    result = watch.print_new();
  }
  return result;
}

}  // namespace

int watch_log(const Words& words, Output& out) {
  const char* const option = words.option("n");
  long long count = kUsualRecords;
  const Bytes number = option != nullptr ? from_number(option, sizeof count) : Bytes();
  if (number) std::memcpy(&count, number.c_str(), sizeof count);
  if ((option != nullptr && !number) || count < 0) {
    out.error("%s is not a number of records", option);
    return kUsage;
  }
  const bool follows = words.option("f") != nullptr;
  Bytes storage = Bytes::of_size(kLongestRecord);
  if (!storage) return kStorage;
  if (out.human() && is_switched_off()) std::fputs("keloctl: the watch log is off\n", stderr);
  if (!out.human()) out.flag("on", !is_switched_off());
  out.begin_list("records", "record", kColumns);
  Watch watch(follows, storage, out);
  int result = watch.print_last(count);
  if (result == kDone && follows) result = follow(watch, out);
  out.end_list();
  return result;
}

}  // namespace kelo::ctl
