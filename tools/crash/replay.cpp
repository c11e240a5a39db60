// SPDX-License-Identifier: MIT
// Shows one state step by step: the calls, the cut, what was lost, what the restart finds.
#include <cstdio>
#include <iostream>
#include <iterator>
#include <string>

#include "tools/crash/recorder.hpp"
#include "tools/crash/report.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::crash {
namespace {

void print_losses(const Selection& selection) {
  std::printf("lost:\n");
  for (const std::size_t event : selection.lost_names)
    std::printf("  the names that call %zu changed\n", event);
  const auto amount = [](std::size_t count) { return count == kAll ? "all" : std::to_string(count); };
  for (const auto& [inode, kept] : selection.files) {
    std::printf("  of file #%d are kept: changes %s, cuts %s, sizes %s\n", inode,
                amount(kept.changes).c_str(), amount(kept.cuts).c_str(), amount(kept.sizes).c_str());
    for (const auto& [block, part] : kept.blocks) {
      std::printf("    of block %zu: changes %s, sectors of the last %02x\n", block,
                  amount(part.versions).c_str(), part.sectors);
    }
  }
}

void print_image(const Image& image) {
  std::printf("files:\n");
  for (const auto& [name, inode] : image.names) {
    const Image::File& file = image.files.at(inode);
    std::printf("  %-40s #%d mode %o, %llu bytes, hash %016llx\n", name.c_str(), inode, file.mode & 07777,
                static_cast<unsigned long long>(file.content.size()),
                static_cast<unsigned long long>(file.content.hash()));
  }
}

void print_calls(const Recording& recording, std::size_t cut) {
  for (std::size_t index = 0; index < recording.events.size(); ++index) {
    if (index == cut) std::printf("---- the power fails here ----\n");
    std::printf("%4zu %s\n", index, description(recording.events[index]).c_str());
  }
  if (cut == recording.events.size()) std::printf("---- the power fails here ----\n");
}

Image show(const Timeline& timeline, const Selection& selection) {
  print_calls(timeline.recording, selection.cut);
  print_losses(selection);
  Image image = build(timeline.disks.at(selection.cut), selection);
  print_image(image);
  return image;
}

}  // namespace

int replay(const Campaign& campaign) {
  const std::string text((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
  const auto reproducer = reproducer_from(text);
  Campaign one = campaign;
  if (reproducer) one.only = {reproducer->history};
  const std::vector<History> chosen = reproducer ? chosen_histories(one) : std::vector<History>();
  if (chosen.empty()) {
    std::fprintf(stderr, "this is no reproducer of a history that there is\n");
    return 2;
  }
  const History& history = chosen.front();
  take_own_folders(history);
  Restart restart(history);
  const Recording recording = record_history(history);
  complain_of(history, recording);
  if (recording.events.size() != reproducer->events) {
    std::printf("the history has %zu calls now, it had %zu: this may be another state\n",
                recording.events.size(), reproducer->events);
  }
  if (reproducer->selection.cut > recording.events.size()) return 2;
  const Timeline timeline(history, {}, recording);
  Image image = show(timeline, reproducer->selection);
  Expected expected = timeline.expected.at(reproducer->selection.cut);
  Explorer explorer(history, timeline, restart, {});
  if (reproducer->in_recovery) {
    std::printf("\n==== the restart, until the power fails again ====\n");
    lay_out(image, history.folders);
    const Recording again = record(history.folders, [&] { restart.first_run(expected); });
    if (reproducer->in_recovery->cut > again.events.size()) return 2;
    const Timeline later(history, expected, again);
    image = show(later, *reproducer->in_recovery);
    expected = later.expected.at(reproducer->in_recovery->cut);
  }
  const Explorer::Verdict verdict = explorer.look_at(image, expected);
  std::printf("found:\n%s", verdict.story.empty() ? "  nothing wrong\n" : verdict.story.c_str());
  for (const Violation violation : verdict.violations) std::printf("violation: %s\n", name_of(violation));
  return verdict.violations.empty() ? 0 : 1;
}

int show_events(const Campaign& campaign) {
  for (const History& history : chosen_histories(campaign)) {
    in_other_process([&] {
      take_own_folders(history);
      const Recording recording = record_history(history);
      std::printf("%s: %zu calls\n", history.name.c_str(), recording.events.size());
      complain_of(history, recording);
      print_calls(recording, recording.events.size() + 1);
      std::fflush(nullptr);
    });
  }
  return 0;
}

int list_histories(const Campaign& /*campaign*/) {
  for (const History& history : histories()) std::printf("%s\n", history.name.c_str());
  return 0;
}

}  // namespace kelo::crash
