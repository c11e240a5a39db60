// SPDX-License-Identifier: MIT
// One change of each kind to an INI file, for tests in which something gets in its way.
#ifndef KELO_TESTS_SUPPORT_INI_CHANGES_HPP
#define KELO_TESTS_SUPPORT_INI_CHANGES_HPP

#include <ostream>
#include <string>
#include <vector>

#include "tests/support/ini_model.hpp"

namespace kelo::tests {

struct IniChange {
  const char* name;
  IniModel::Way way;
  IniModel::Text before;
  IniModel::Text section;
  IniModel::Text key;
  IniModel::Text value;
};

inline void PrintTo(const IniChange& change, std::ostream* out) { *out << change.name; }

// The file as it is to be.
inline IniModel::Text after(const IniChange& change) {
  IniModel model(change.before);
  model.puts(change.section, change.key, change.value);
  return model.bytes();
}

// A long file takes many chunks to copy.
inline std::vector<IniChange> ini_changes() {
  using enum IniModel::Way;
  const std::string file = "; settings\n[net]\nip=10.0.0.1\nmask=24\n\n[lan]\nname=home\n";
  std::string long_file = file;
  for (int i = 0; i < 400; ++i)
    long_file += "[section " + std::to_string(i) + "]\nkey=" + std::string(90, 'v') + "\n";
  return {
      {"other_length", rewritten, file, "net", "ip", "192.168.0.1"},
      {"other_length_in_a_long_file", rewritten, long_file, "net", "ip", "192.168.0.1"},
      {"last_key_of_a_long_file", rewritten, long_file, "section 399", "key", "last"},
      {"new_key", rewritten, file, "net", "gateway", "10.0.0.2"},
      {"new_section", rewritten, file, "wan", "apn", "internet"},
      {"delete_key", rewritten, file, "net", "mask", {}},
      {"delete_section", rewritten, file, "net", {}, {}},
      {"same_length", in_place, file, "net", "ip", "10.0.0.9"},
      {"same_length_in_a_long_file", in_place, long_file, "section 200", "key", std::string(90, 'w')},
      {"same_length_in_two_sectors", rewritten, long_file, "section 202", "key", std::string(90, 'w')},
      {"new_file", created, {}, "net", "ip", "10.0.0.1"},
  };
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_INI_CHANGES_HPP
