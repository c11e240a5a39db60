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

#include "tools/crash/marks.hpp"

namespace kelo::crash {
namespace {

constexpr unsigned kPatience = 20;  // seconds, more than the library waits for any lock

int open_descriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < 64; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) ++count;
  }
  return count;
}

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

Restart::Restart(const History& history) : history_(history) {
  void* const memory =
      mmap(nullptr, sizeof(Findings), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED || history.items.size() > kMostItems) std::abort();
  findings_ = static_cast<Findings*>(memory);
}

Restart::~Restart() { munmap(findings_, sizeof(Findings)); }

void Restart::read_all(Subject& subject, Readings& readings, bool say) const {
  for (std::size_t item = 0; item < history_.items.size(); ++item) {
    readings[item] = read_one(subject, history_.items[item], item);
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
  findings_->phase = 5;
}

int Restart::in_process(void (Restart::*body)(const Expected&), const Expected& expected) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(kPatience);
    (this->*body)(expected);
    _exit(0);
  }
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child) std::abort();
  return status;
}

const Findings& Restart::run(const Expected& expected) {
  std::memset(findings_, 0, sizeof *findings_);
  findings_->status[0] = in_process(&Restart::first_run, expected);
  findings_->status[1] = in_process(&Restart::second_run_only, expected);
  return *findings_;
}

}  // namespace kelo::crash
