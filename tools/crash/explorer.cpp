// SPDX-License-Identifier: MIT
// The rounds over the cuts of a recording, and those of the recoveries of some of its states.
#include "tools/crash/explorer.hpp"

#include <algorithm>
#include <numeric>

#include "tools/crash/recorder.hpp"

namespace kelo::crash {
namespace {

std::uint64_t hash_of(const Image& image, const Expected& expected) {
  std::uint64_t hash = image.hash();
  for (const auto& [lowest, highest] : expected) {
    hash = hash_number(static_cast<std::uint64_t>(lowest) * 64 + static_cast<std::uint64_t>(highest), hash);
  }
  return hash;
}

}  // namespace

void Tally::add(const Tally& other) {
  tried += other.tried;
  unique += other.unique;
  for (std::size_t violation = 0; violation < kViolations; ++violation) {
    for (std::size_t column = 0; column < kColumns; ++column) {
      found[violation][column] += other.found[violation][column];
    }
  }
}

std::size_t Tally::violations() const {
  std::size_t sum = 0;
  for (const auto& columns : found) sum = std::accumulate(columns.begin(), columns.end(), sum);
  return sum;
}

Timeline::Timeline(const History& history, Expected before, const Recording& recorded) : recording(recorded) {
  Disk disk(recording.before);
  if (before.empty()) before = expected_before(history);
  for (std::size_t index = 0; index <= recording.events.size(); ++index) {
    disks.push_back(disk);
    expected.push_back(before);
    if (index == recording.events.size()) return;
    disk.apply(index, recording.events[index]);
    if (recording.events[index].change == Change::mark) take_mark(recording.events[index].mark, before);
  }
}

// Where a state comes from.
struct Explorer::Place {
  const Timeline& timeline;
  std::size_t column;
  const Selection* before_recovery;  // nothing when the history itself was cut
};

Explorer::Explorer(const History& history, const Timeline& timeline, Restart& restart,
                   const Settings& settings)
    : history_(history),
      timeline_(timeline),
      settings_(settings),
      restart_(restart),
      random_(settings.seed),
      end_(Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(settings.seconds))) {
  lay_out(timeline.disks.back().current(), history.folders);
  restart_.run(timeline.expected.back());
  usual_names_ = names_in(history.folders);
  for (const auto& [name, inode] : timeline.recording.before.names) usual_names_.push_back(name);
}

bool Explorer::time_left() const { return settings_.seconds <= 0 || Clock::now() < end_; }

std::vector<std::string> Explorer::left_over() const {
  std::vector<std::string> names = names_in(history_.folders);
  std::erase_if(names, [this](const std::string& name) {
    return std::find(usual_names_.begin(), usual_names_.end(), name) != usual_names_.end();
  });
  return names;
}

Explorer::Verdict Explorer::look_at(const Image& image, const Expected& expected) {
  lay_out(image, history_.folders);
  const Findings& findings = restart_.run(expected);
  const std::vector<std::string> names = left_over();
  Verdict verdict = {judge(history_, expected, findings, names), {}};
  if (!verdict.violations.empty()) verdict.story = story(history_, expected, findings, names);
  return verdict;
}

Tally Explorer::explore() {
  for (std::size_t number = 0; round(number); ++number) {
    if (settings_.seconds <= 0 && settings_.states == 0) break;
  }
  return tally_;
}

// False when the time or the number of states is used up, or nothing new is found.
bool Explorer::round(std::size_t number) {
  const std::size_t unique_before = tally_.unique;
  std::vector<std::size_t> cuts(timeline_.disks.size());
  std::iota(cuts.begin(), cuts.end(), std::size_t{0});
  std::shuffle(cuts.begin(), cuts.end(), random_);
  for (std::size_t model = number == 0 ? 0 : 1; model < kModels; ++model) {
    const Place place = {timeline_, model, nullptr};
    for (const std::size_t cut : cuts) {
      const Visit visitor = [&](const Selection& selection) { return visit(place, selection); };
      if (!visit_states(timeline_.disks[cut], cut, static_cast<Model>(model), settings_.effort, random_,
                        visitor)) {
        return false;
      }
    }
  }
  return tally_.unique != unique_before;
}

bool Explorer::visit(const Place& place, const Selection& selection) {
  const Expected& expected = place.timeline.expected[selection.cut];
  const Image image = build(place.timeline.disks[selection.cut], selection);
  if (!fits(history_, image)) return true;
  const std::uint64_t hash = hash_of(image, expected);
  // The states of a recovery belong to the explorer that recorded it: no other one has the same recording.
  if (place.before_recovery == nullptr && hash % settings_.parts != settings_.part) return true;
  ++tally_.tried;
  if (!seen_.insert(hash).second) return true;
  if (!time_left() || (settings_.states != 0 && tally_.unique >= settings_.states)) return false;
  ++tally_.unique;
  const Violations violations = look_at(image, expected).violations;
  if (!violations.empty()) note(place, selection, violations);
  if (!violations.empty() && settings_.first_only) return false;
  if (place.before_recovery != nullptr || settings_.recovery_each == 0) return true;
  return tally_.unique % settings_.recovery_each != 0 || cut_recovery(image, expected, selection);
}

// Records what the restart does on a state and cuts that at some moments.
bool Explorer::cut_recovery(const Image& image, const Expected& expected, const Selection& first) {
  constexpr std::size_t kCuts = 6;
  constexpr Effort kSmall = {8, 4};
  lay_out(image, history_.folders);
  const Recording recording = record(history_.folders, [&] { restart_.first_run(expected); });
  const Timeline timeline(history_, expected, recording);
  const Place place = {timeline, kRecoveryColumn, &first};
  const Visit visitor = [&](const Selection& selection) { return visit(place, selection); };
  for (std::size_t turn = 0; turn < kCuts; ++turn) {
    const std::size_t cut = random_() % timeline.disks.size();
    for (const Model model : {Model::cut, Model::unsynced_lost, Model::any_subset}) {
      if (!visit_states(timeline.disks[cut], cut, model, kSmall, random_, visitor)) return false;
    }
  }
  return true;
}

void Explorer::note(const Place& place, const Selection& selection, const Violations& violations) {
  for (const Violation violation : violations) {
    ++tally_.found[static_cast<std::size_t>(violation)][place.column];
    if (!settings_.report || !reported_.emplace(violation, place.column).second) continue;
    const Selection least = minimised(place, selection, violation);
    const Verdict verdict =
        look_at(build(place.timeline.disks[least.cut], least), place.timeline.expected[least.cut]);
    Reproducer reproducer = {history_.name,
                             name_of(violation),
                             kColumnNames[place.column],
                             timeline_.recording.events.size(),
                             least,
                             {}};
    if (place.before_recovery != nullptr) {
      reproducer.selection = *place.before_recovery;
      reproducer.in_recovery = least;
    }
    settings_.report(reproducer, verdict.story);
  }
}

Selection Explorer::minimised(const Place& place, Selection selection, Violation violation) {
  for (bool smaller = true; smaller;) {
    smaller = false;
    for (const Selection& less : smaller_losses(selection)) {
      const Image image = build(place.timeline.disks[less.cut], less);
      if (!look_at(image, place.timeline.expected[less.cut]).violations.contains(violation)) continue;
      selection = less;
      smaller = true;
      break;
    }
  }
  return selection;
}

bool fits(const History& history, const Image& image) {
  std::size_t blocks = 0;
  for (const auto& [inode, file] : image.files) blocks += (file.content.size() + kBlockSize - 1) / kBlockSize;
  return history.disk_size == 0 || blocks * kBlockSize <= history.disk_size;
}

Recording record_history(const History& history) {
  lay_out({}, history.folders);
  history.prepare();
  return record(history.folders, history.act);
}

}  // namespace kelo::crash
