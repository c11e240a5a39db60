// SPDX-License-Identifier: MIT
// The two starts after a power failure.
#include "tools/crash/restart.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/crash/files.hpp"
#include "tools/crash/marks.hpp"

namespace kelo::crash {
namespace {

// What the process that starts the others is asked for.
constexpr char kFirst = '1';
constexpr char kSecond = '2';

constexpr unsigned kPatience = 100;  // seconds: the library waits for no lock so long, even on a busy machine

constexpr std::int32_t kLastPhase = 5;

Reading read_one(Subject& subject, const Item& item, std::size_t index) {
  std::string value;
  const int result = subject.read(index, value);
  if (result == -1 || result == -100) return {Reading::absent, result};
  if (result < 0) return {Reading::failed, result};
  const auto found = std::find(item.values.begin(), item.values.end(), value);
  if (found == item.values.end()) return {Reading::garbage, result};
  return {Reading::version, static_cast<std::int32_t>(found - item.values.begin())};
}

}  // namespace

int open_descriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < 64; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) ++count;
  }
  return count;
}

// In memory that the starting process shares with those that it starts.
struct Restart::Shared {
  Findings findings;
  double processor_seconds;
  std::array<Range, kMostItems> expected;
};

double processor_seconds(decltype(RUSAGE_SELF) who) {
  rusage used{};
  getrusage(who, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

Restart::Restart(const History& history) : history_(history) {
  void* const memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  int requests[2];
  int replies[2];
  if (memory == MAP_FAILED || history.items.size() > kMostItems || pipe2(requests, O_CLOEXEC) != 0 ||
      pipe2(replies, O_CLOEXEC) != 0) {
    std::abort();
  }
  shared_ = static_cast<Shared*>(memory);
  findings_ = &shared_->findings;
  requests_ = requests[1];
  replies_ = replies[0];
  // The process that starts them is not a child of this one, since a recorder waits for all children of its process.
  const pid_t between = fork();
  if (between == 0) {
    close(requests_);
    close(replies_);
    if (fork() == 0) serve(requests[0], replies[1]);
    _exit(0);
  }
  close(requests[0]);
  close(replies[1]);
  if (between < 0 || waitpid(between, nullptr, 0) != between) std::abort();
}

Restart::~Restart() {
  close(requests_);
  close(replies_);
  munmap(shared_, sizeof(Shared));
}

// Returns when the process that asks has ended.
void Restart::serve(int requests, int replies) {
  for (char request = 0; read(requests, &request, 1) == 1;) {
    const Expected expected(shared_->expected.begin(),
                            shared_->expected.begin() + static_cast<std::ptrdiff_t>(history_.items.size()));
    if (request == kFirst) findings_->status[0] = in_process(&expected);
    if (request == kSecond) findings_->status[1] = in_process(nullptr);
    shared_->processor_seconds =
        crash::processor_seconds(RUSAGE_SELF) + crash::processor_seconds(RUSAGE_CHILDREN);
    if (write(replies, &request, 1) != 1) break;
  }
  _exit(0);
}

double Restart::processor_seconds() const { return shared_->processor_seconds; }

void Restart::read_all(Subject& subject, Readings& readings, bool say) const {
  for (std::size_t item = 0; item < history_.items.size(); ++item) {
    readings[item] = read_one(subject, history_.items[item], item);
    if (history_.read_may_fail_once && readings[item].kind != Reading::version) {
      readings[item] = read_one(subject, history_.items[item], item);
    }
    if (say && readings[item].kind == Reading::version) {
      mark(Progress::seen, item, static_cast<std::size_t>(readings[item].number));
    }
  }
}

void Restart::first_run(const Expected& expected) {
  const std::size_t probe = history_.probe;
  const auto version = static_cast<std::size_t>(expected[probe].highest) + 1;
  const std::string& value = history_.items[probe].values.at(version);
  findings_->written_version = static_cast<std::int32_t>(version);
  findings_->descriptors_before = open_descriptors();
  findings_->phase = 1;
  {
    const auto subject = history_.subject();
    subject->start();
    read_all(*subject, findings_->at_start, true);
    findings_->phase = 2;
    mark(Progress::begins, probe, version);
    findings_->first_write = subject->write(probe, value);
    if (findings_->first_write != 0) findings_->second_write = subject->write(probe, value);
    if (findings_->first_write == 0) mark(Progress::acknowledged, probe, version);
    if (history_.settled != kAbsent) {
      for (std::size_t item = 0; item < history_.items.size(); ++item) {
        if (item != probe) mark(Progress::begins, item, static_cast<std::size_t>(history_.settled));
      }
    }
    subject->settle();
    findings_->phase = 3;
    read_all(*subject, findings_->after_write, true);
  }
  findings_->descriptors_after = open_descriptors();
  findings_->phase = 4;
}

void Restart::second_run() {
  const auto subject = history_.subject();
  subject->start();
  read_all(*subject, findings_->at_second_start, false);
  std::snprintf(findings_->fault, sizeof findings_->fault, "%s", subject->fault().c_str());
  findings_->phase = kLastPhase;
}

int Restart::in_process(const Expected* first) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(kPatience);
    if (history_.hasten) history_.hasten();
    if (first != nullptr) {
      first_run(*first);
    } else {
      second_run();
    }
    _exit(0);
  }
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child) std::abort();
  return status;
}

void Restart::ask(char request) {
  if (write(requests_, &request, 1) != 1 || read(replies_, &request, 1) != 1) {
    std::fprintf(stderr, "the process that starts the restarts has ended\n");
    std::_Exit(2);
  }
}

void Restart::second_start() {
  constexpr std::size_t kMostKept = 1U << 20U;
  const std::uint64_t files = scan(history_.folders).hash();
  if (const auto known = second_starts_.find(files); known != second_starts_.end()) {
    std::copy(known->second.readings.begin(), known->second.readings.end(),
              findings_->at_second_start.begin());
    std::snprintf(findings_->fault, sizeof findings_->fault, "%s", known->second.fault.c_str());
    findings_->phase = kLastPhase;
    return;
  }
  ask(kSecond);
  if (findings_->status[1] != 0 || second_starts_.size() == kMostKept) return;
  const auto* const readings = findings_->at_second_start.begin();
  second_starts_[files] = {{readings, readings + history_.items.size()}, findings_->fault};
}

const Findings& Restart::run(const Expected& expected) {
  std::memset(findings_, 0, sizeof *findings_);
  std::copy(expected.begin(), expected.end(), shared_->expected.begin());
  ask(kFirst);
  second_start();
  return *findings_;
}

}  // namespace kelo::crash
