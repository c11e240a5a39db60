// SPDX-License-Identifier: MIT
// One process runs the history with the fault, goes on without it, and then two new ones look at the files.
#include "tests/faults/experiment.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tests/faults/marks.hpp"
#include "tools/crash/files.hpp"
#include "tools/crash/marks.hpp"
#include "tools/crash/quick_commands.hpp"

namespace kelo::faults {
namespace {

using crash::Expected;
using crash::Findings;
using crash::Image;
using crash::Mark;
using crash::Progress;

constexpr unsigned kPatience = 15;  // seconds: without the fault a history takes some milliseconds
constexpr int kMostMarks = 1024;

// What the process of a history leaves, in memory that it shares with its judge.
struct Report {
  int marks;
  Mark mark[kMostMarks];
  int seen_calls;
  int descriptors_before;
  int descriptors_after;
  long long sqlite_memory;
};

Report& report() {
  static Report* const shared = [] {
    void* const memory =
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    return static_cast<Report*>(memory);
  }();
  return *shared;
}

// What was begun and not acknowledged: the history says that it failed.
bool refused_any() {
  std::set<std::pair<int, int>> open;
  for (int at = 0; at < report().marks; ++at) {
    const Mark& mark = report().mark[at];
    if (mark.progress == Progress::begins) open.emplace(mark.item, mark.version);
    if (mark.progress == Progress::acknowledged) open.erase({mark.item, mark.version});
  }
  return !open.empty();
}

Expected expected_now(const crash::History& history) {
  Expected expected = crash::expected_before(history);
  for (int at = 0; at < report().marks; ++at) crash::take_mark(report().mark[at], expected);
  return expected;
}

// The last words of a process that ends because of a programming error or for want of memory.
bool said_why(int output) {
  char text[4096] = {};
  return pread(output, text, sizeof text - 1, 0) > 0 && std::strstr(text, ", line: ") != nullptr;
}

// What a process that did not come to its end left in the place of files.
void remove_obstacles(const crash::Folders& folders) {
  namespace fs = std::filesystem;
  std::vector<fs::path> obstacles;
  for (const std::string& folder : folders) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const fs::file_type type = entry.symlink_status().type();
      const bool folder_of_files = type == fs::file_type::directory && !entry.path().has_extension();
      if (!folder_of_files && type != fs::file_type::regular) obstacles.push_back(entry.path());
    }
  }
  for (const fs::path& obstacle : obstacles) fs::remove_all(obstacle);
}

}  // namespace

bool take_mark(long number, int descriptor, const void* bytes) {
  if (number != SYS_write || descriptor != crash::kMarkDescriptor) return false;
  Report& shared = report();
  if (shared.marks == kMostMarks) std::abort();
  std::memcpy(&shared.mark[shared.marks++], bytes, sizeof(Mark));
  return true;
}

struct Experiment::Process {
  pid_t id;
  int output;   // what it prints
  int arrived;  // a byte comes when the history is at its end
  int go_on;
};

Experiment::Experiment(const crash::History& history) : history_(history), restart_(history) {
  crash::lay_out({}, history.folders);
  history.prepare();
  prepared_ = crash::scan(history.folders);
  Fault none;
  none.begin = none.end = [] {};
  run(none);
  usual_names_ = crash::names_in(history.folders);
  for (const auto& [name, inode] : prepared_.names) usual_names_.push_back(name);
  const Outcome outcome = run(none);
  if (outcome.troubles.empty() && outcome.refused <= history.write_may_fail_once && !outcome.ended) return;
  std::fprintf(stderr, "%s fails without a fault\n%s", history.name.c_str(), outcome.story.c_str());
  std::_Exit(2);
}

std::vector<std::string> Experiment::left_over() const {
  std::vector<std::string> names = crash::names_in(history_.folders);
  std::erase_if(names, [this](const std::string& name) {
    // The dated copies have a name of their own each time.
    return name.ends_with("-new") || name.starts_with("/mnt/vendor/nvdata/") ||
           std::find(usual_names_.begin(), usual_names_.end(), name) != usual_names_.end();
  });
  return names;
}

void Experiment::be_daemon(const Fault& fault, int arrived, int go_on) {
  alarm(kPatience);
  crash::use_quick_commands(!fault.real_commands);
  Report& shared = report();
  shared.descriptors_before = crash::open_descriptors();
  fault.begin();
  history_.act();
  fault.end();
  shared.descriptors_after = crash::open_descriptors();
  shared.sqlite_memory = sqlite3_memory_used();
  crash::use_quick_commands(true);
  char byte = 0;
  if (write(arrived, &byte, 1) != 1 || read(go_on, &byte, 1) != 1) std::abort();
  alarm(kPatience);
  restart_.first_run(expected_now(history_));
  std::fflush(nullptr);
  _exit(0);
}

Experiment::Process Experiment::start(const Fault& fault) {
  crash::lay_out(prepared_, history_.folders);
  report() = {};
  int arrived[2];
  int go_on[2];
  const int output = memfd_create("output", MFD_CLOEXEC);
  if (pipe2(arrived, O_CLOEXEC) != 0 || pipe2(go_on, O_CLOEXEC) != 0 || output < 0) std::abort();
  const pid_t id = fork();
  if (id < 0) std::abort();
  if (id == 0) {
    setpgid(0, 0);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close(arrived[0]);
    close(go_on[1]);
    be_daemon(fault, arrived[1], go_on[0]);
  }
  close(arrived[1]);
  close(go_on[0]);
  return {id, output, arrived[0], go_on[1]};
}

void Experiment::end(Process& process, const Fault& fault, Outcome& outcome) {
  close(process.go_on);
  close(process.arrived);
  int status = -1;
  if (waitpid(process.id, &status, 0) != process.id) std::abort();
  kill(-process.id, SIGKILL);  // commands that it left
  const bool aborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
  if (aborted && fault.may_end_process && said_why(process.output)) {
    outcome.ended = true;
  } else if (WIFSIGNALED(status)) {
    outcome.troubles.insert(WTERMSIG(status) == SIGALRM ? "hang" : "crash");
    char text[512] = {};
    (void)!pread(process.output, text, sizeof text - 1, 0);
    outcome.story += "  signal " + std::to_string(WTERMSIG(status)) + "\n  " + text + "\n";
  } else if (status != 0) {
    outcome.refused = true;  // a history ends so when it cannot go on
  }
  close(process.output);
}

void Experiment::judge_findings(const char* when, const Expected& expected, const Findings& findings,
                                const std::string& leaves, Outcome& outcome) {
  std::vector<std::string> names = left_over();
  std::erase(names, leaves);
  const crash::Violations violations = crash::judge(history_, expected, findings, names);
  for (const crash::Violation violation : violations) outcome.troubles.insert(name_of(violation));
  // What is there after a change that failed must not go with the next one.
  bool gone = false;
  for (std::size_t item = 0; item < history_.items.size(); ++item) {
    const crash::Reading& first = findings.at_start[item];
    const crash::Reading& later = findings.after_write[item];
    gone = gone || (outcome.refused && item != history_.probe && first.kind == crash::Reading::version &&
                    later.kind != crash::Reading::version);
  }
  if (gone) outcome.troubles.insert("gone");
  if (!violations.empty() || gone) {
    outcome.story += std::string("  ") + when + "\n" + crash::story(history_, expected, findings, names);
  }
}

Outcome Experiment::run(const Fault& fault) {
  Outcome outcome;
  Process process = start(fault);
  char byte = 0;
  const bool arrived = read(process.arrived, &byte, 1) == 1;
  Report& shared = report();
  if (!arrived) {
    end(process, fault, outcome);
    remove_obstacles(history_.folders);
  } else if (shared.descriptors_after != shared.descriptors_before || shared.sqlite_memory != 0) {
    outcome.troubles.insert("leak");
    outcome.story += "  descriptors " + std::to_string(shared.descriptors_before) + " then " +
                     std::to_string(shared.descriptors_after) + ", SQLite's memory " +
                     std::to_string(shared.sqlite_memory) + "\n";
  }
  outcome.refused = outcome.refused || refused_any();
  const Expected expected = expected_now(history_);
  const Image left = crash::scan(history_.folders);
  if (arrived) {
    if (write(process.go_on, &byte, 1) != 1) std::abort();
    Outcome end_of_process;
    end(process, fault, end_of_process);
    outcome.troubles.merge(end_of_process.troubles);
    outcome.story += end_of_process.story;
    Findings findings = restart_.findings();
    findings.status[0] = findings.status[1] = 0;
    findings.at_second_start = findings.after_write;
    if (end_of_process.story.empty())
      judge_findings("in the same process", expected, findings, fault.leaves, outcome);
    crash::lay_out(left, history_.folders);
  }
  judge_findings("in new processes", expected, restart_.run(expected), fault.leaves, outcome);
  return outcome;
}

Calls Experiment::count_calls() {
  Calls calls;
  int seen = 0;
  const auto count = [&](Fault counter) {
    counter.end = [end = counter.end, &seen] {
      end();
      report().seen_calls = seen;
    };
    run(counter);
    return report().seen_calls;
  };
  for (const char* const call : failing_calls()) calls.storage[call] = count(counting(call, seen));
  calls.allocations = count(counting_allocations(seen));
  return calls;
}

}  // namespace kelo::faults
