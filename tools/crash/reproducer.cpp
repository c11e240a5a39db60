// SPDX-License-Identifier: MIT
// Writes reproducers as lines of words and reads them back.
#include "tools/crash/reproducer.hpp"

#include <sstream>

namespace kelo::crash {
namespace {

std::string amount(std::size_t count) { return count == kAll ? "all" : std::to_string(count); }

std::size_t amount_from(std::istringstream& words) {
  std::string word;
  words >> word;
  return word == "all" ? kAll : std::strtoul(word.c_str(), nullptr, 10);
}

void write_selection(const Selection& selection, std::ostringstream& out) {
  out << "cut " << selection.cut << "\n";
  for (const std::size_t event : selection.lost_names) out << "lost-name " << event << "\n";
  for (const auto& [inode, kept] : selection.files) {
    out << "file " << inode << " changes " << amount(kept.changes) << " cuts " << amount(kept.cuts)
        << " sizes " << amount(kept.sizes) << "\n";
    for (const auto& [block, part] : kept.blocks) {
      out << "block " << inode << " " << block << " versions " << amount(part.versions) << " sectors "
          << part.sectors << "\n";
    }
  }
}

// False when the line tells nothing of a selection.
bool read_selection_line(const std::string& word, std::istringstream& words, Selection& selection) {
  std::string name;
  InodeNumber inode = 0;
  if (word == "cut") {
    selection.cut = amount_from(words);
  } else if (word == "lost-name") {
    selection.lost_names.insert(amount_from(words));
  } else if (word == "file") {
    words >> inode;
    FileKept& kept = selection.files[inode];
    words >> name;
    kept.changes = amount_from(words);
    words >> name;
    kept.cuts = amount_from(words);
    words >> name;
    kept.sizes = amount_from(words);
  } else if (word == "block") {
    std::size_t block = 0;
    words >> inode >> block >> name;
    BlockKept& kept = selection.files[inode].blocks[block];
    kept.versions = amount_from(words);
    words >> name >> kept.sectors;
  } else {
    return false;
  }
  return true;
}

}  // namespace

std::string text_of(const Reproducer& reproducer) {
  std::ostringstream out;
  out << "history " << reproducer.history << "\nviolation " << reproducer.violation << "\nmodel "
      << reproducer.model << "\nevents " << reproducer.events << "\n";
  write_selection(reproducer.selection, out);
  if (reproducer.in_recovery) {
    out << "recovery\n";
    write_selection(*reproducer.in_recovery, out);
  }
  return out.str();
}

std::optional<Reproducer> reproducer_from(const std::string& text) {
  Reproducer read;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    Selection& selection = read.in_recovery ? *read.in_recovery : read.selection;
    std::string rest = line.size() > word.size() ? line.substr(word.size() + 1) : "";
    if (word == "history") {
      read.history = rest;
    } else if (word == "violation") {
      read.violation = rest;
    } else if (word == "model") {
      read.model = rest;
    } else if (word == "events") {
      words >> read.events;
    } else if (word == "recovery") {
      read.in_recovery.emplace();
    } else {
      read_selection_line(word, words, selection);
    }
  }
  if (read.history.empty()) return {};
  return read;
}

}  // namespace kelo::crash
