// SPDX-License-Identifier: MIT
// The rules: old or new for the value in flight, every acknowledged value there, no file left.
#include "tools/crash/verdict.hpp"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>

namespace kelo::crash {
namespace {

int version_of(const Item& item, const Reading& reading) {
  return reading.kind == Reading::version ? reading.number : item.absent;
}

bool right(const Item& item, const Reading& reading, const Range& range) {
  if (reading.kind == Reading::failed || reading.kind == Reading::garbage) return false;
  const int version = version_of(item, reading);
  return version >= range.lowest && version <= range.highest;
}

// A value that was read stays: only the same or a newer one may follow.
Range narrowed(const Item& item, Range range, const Reading& reading) {
  range.lowest = std::max(range.lowest, version_of(item, reading));
  return range;
}

class Judge {
 public:
  Judge(const History& history, const Expected& expected, const Findings& findings)
      : history_(history), expected_(expected), found_(findings) {}

  Violations decide(const std::vector<std::string>& left_over) {
    if (!ended()) return violations_;
    for (std::size_t item = 0; item < history_.items.size(); ++item) look_at(item);
    if (history_.together && !all_alike()) note(Violation::mixed);
    if (found_.first_write != 0 && !(history_.write_may_fail_once && found_.second_write == 0))
      note(found_.second_write == 0 ? Violation::refused : Violation::refused_twice);
    if (found_.fault[0] != '\0') note(Violation::bad_files);
    if (!left_over.empty()) note(Violation::left_over);
    if (found_.descriptors_after != found_.descriptors_before) note(Violation::descriptors);
    return violations_;
  }

 private:
  void note(Violation violation) { violations_.insert(violation); }

  bool ended() {
    for (const int status : found_.status) {
      if (status == 0) continue;
      note(WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? Violation::hung : Violation::died);
      return false;
    }
    return true;
  }

  void look_at(std::size_t number) {
    const Item& item = history_.items[number];
    const Range at_start = expected_[number];
    const Reading& first = found_.at_start[number];
    const Reading& later = found_.after_write[number];
    const Reading& last = found_.at_second_start[number];
    for (const Reading* reading : {&first, &later, &last}) {
      if (reading->kind == Reading::garbage) return note(Violation::garbage);
    }
    const Range after = after_write(number, first);
    const bool ends_well = right(item, later, after) && right(item, last, narrowed(item, after, later));
    const bool starts_well = right(item, first, at_start);
    if (ends_well && starts_well) return;
    if (ends_well) return note(first.kind == Reading::version ? Violation::stale : Violation::unreadable);
    // The value agrees with what was acknowledged, but not with what was read before.
    const bool acknowledged_there = right(item, later, at_start) && right(item, last, at_start);
    note(starts_well && acknowledged_there && number != history_.probe ? Violation::went_back
                                                                       : Violation::lost);
  }

  bool all_alike() const {
    const Reading* other = nullptr;
    for (std::size_t item = 0; item < history_.items.size(); ++item) {
      const Reading& reading = found_.at_start[item];
      if (item == history_.probe) continue;
      if (other != nullptr &&
          version_of(history_.items[item], *other) != version_of(history_.items[item], reading)) {
        return false;
      }
      other = &reading;
    }
    return true;
  }

  Range after_write(std::size_t number, const Reading& first) const {
    const Item& item = history_.items[number];
    const bool written = found_.first_write == 0 || found_.second_write == 0;
    if (number == history_.probe && written) return {found_.written_version, found_.written_version};
    Range range = expected_[number];
    if (number == history_.probe) range.highest = found_.written_version;
    if (history_.settled != kAbsent && number != history_.probe) return {history_.settled, history_.settled};
    return right(item, first, expected_[number]) ? narrowed(item, range, first) : range;
  }

  const History& history_;
  const Expected& expected_;
  const Findings& found_;
  Violations violations_;
};

std::string text_of(const Reading& reading) {
  switch (reading.kind) {
    case Reading::version:
      return "version " + std::to_string(reading.number);
    case Reading::absent:
      return "absent (" + std::to_string(reading.number) + ")";
    case Reading::failed:
      return "error " + std::to_string(reading.number);
    case Reading::garbage:
      return "GARBAGE of " + std::to_string(reading.number) + " bytes";
  }
  return {};
}

std::string text_of(const Range& range) {
  const auto version = [](int number) { return number == kAbsent ? "absent" : std::to_string(number); };
  if (range.lowest == range.highest) return version(range.lowest);
  return version(range.lowest) + ".." + version(range.highest);
}

}  // namespace

const char* name_of(Violation violation) {
  constexpr const char* kNames[kViolations] = {
      "unreadable", "stale",     "lost",        "garbage", "went-back", "refused", "refused-2",
      "bad-files",  "left-over", "descriptors", "hung",    "died",      "mixed"};
  return kNames[static_cast<std::size_t>(violation)];
}

Expected expected_before(const History& history) {
  Expected expected;
  for (const Item& item : history.items) {
    expected.push_back({item.initial, std::max(item.initial, item.in_flight)});
  }
  return expected;
}

void take_mark(const Mark& mark, Expected& expected) {
  Range& range = expected.at(static_cast<std::size_t>(mark.item));
  range.highest = std::max(range.highest, mark.version);
  if (mark.progress != Progress::begins) range.lowest = std::max(range.lowest, mark.version);
}

Violations judge(const History& history, const Expected& expected, const Findings& findings,
                 const std::vector<std::string>& left_over) {
  return Judge(history, expected, findings).decide(left_over);
}

std::string story(const History& history, const Expected& expected, const Findings& findings,
                  const std::vector<std::string>& left_over) {
  std::string text;
  for (std::size_t item = 0; item < history.items.size(); ++item) {
    text += "  " + history.items[item].table + "." + history.items[item].key + ": expected " +
            text_of(expected[item]) + "; at the restart " + text_of(findings.at_start[item]) +
            ", after the write " + text_of(findings.after_write[item]) + ", at the second restart " +
            text_of(findings.at_second_start[item]) + "\n";
  }
  text += "  write of version " + std::to_string(findings.written_version) + ": " +
          std::to_string(findings.first_write);
  if (findings.first_write != 0) text += ", then " + std::to_string(findings.second_write);
  text += "\n  descriptors " + std::to_string(findings.descriptors_before) + " then " +
          std::to_string(findings.descriptors_after) + ", came to phase " + std::to_string(findings.phase) +
          ", process status " + std::to_string(findings.status[0]) + " and " +
          std::to_string(findings.status[1]) + "\n";
  if (findings.fault[0] != '\0') text += std::string("  files: ") + findings.fault + "\n";
  for (const std::string& name : left_over) text += "  left over: " + name + "\n";
  return text;
}

}  // namespace kelo::crash
