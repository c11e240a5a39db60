// SPDX-License-Identifier: MIT
// Cuts the power at every change that a rewrite makes to its files, one after the other, and looks at what is
// left of the settings: with all that was written, and without what was not yet synchronised.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/database.hpp"
#include "tests/support/ini_changes.hpp"
#include "tests/support/ini_model.hpp"
#include "tools/power_cut/power_cut.hpp"

namespace {

namespace fs = std::filesystem;
namespace cut = kelo::power_cut;
using kelo::tests::file_exists;
using kelo::tests::IniModel;
using kelo::tests::literal;
using kelo::tests::read_file;
using kelo::tests::write_file;
using Text = IniModel::Text;
using Change = kelo::tests::IniChange;
using Way = IniModel::Way;

constexpr char kFolder[] = "/data";
constexpr char kPath[] = "/data/settings.ini";
constexpr char kNewPath[] = "/data/settings.in~";

const char* c_string(const Text& text) { return text ? text->c_str() : nullptr; }

Text contents(const char* path) { return file_exists(path) ? Text(read_file(path)) : Text(); }

// What was changed but not synchronised when the process had made these calls: files, and their folder for its
// names.
std::set<std::string> unsynchronised(const std::vector<cut::StorageCall>& calls) {
  std::set<std::string> files;
  for (const cut::StorageCall& call : calls) {
    if (call.name == "fsync" || call.name == "fdatasync" || call.name == "unlink") {
      files.erase(call.file);
    } else if (call.name == "rename") {
      if (files.erase(call.file) != 0) files.insert(kPath);
      files.insert(kFolder);
    } else {
      if (call.name == "open") files.insert(kFolder);
      files.insert(call.file);
    }
  }
  return files;
}

class IniPowerCut : public testing::TestWithParam<Change> {
 protected:
  static void restore() {
    for (const auto& entry : fs::directory_iterator(kFolder)) fs::remove_all(entry);
    if (GetParam().before) write_file(kPath, *GetParam().before);
  }

  static cut::Run change_until(const cut::CutHere& cut_here) {
    const Change& change = GetParam();
    const auto body = [&] {
      const int result =
          ini_puts(c_string(change.section), c_string(change.key), c_string(change.value), kPath);
      if (result != 1) std::abort();
    };
    return cut::run(kFolder, body, cut_here);
  }

  // What a storage loses that had written nothing without being told to.
  static void lose(const std::set<std::string>& files) {
    for (const std::string& file : files) {
      if (!fs::is_regular_file(file)) continue;
      write_file(file, file == kPath && GetParam().way == Way::in_place ? *GetParam().before : "");
    }
  }

  void expect_whole() const {
    const Text now = contents(kPath);
    if (GetParam().way == Way::created) {
      EXPECT_TRUE(new_->starts_with(now.value_or(""))) << literal(now);
      return;
    }
    EXPECT_TRUE(now == GetParam().before || now == new_) << literal(now);
  }

  // The next change is made in full, whatever was left.
  static void expect_usable() {
    EXPECT_EQ(ini_puts("net", "ip", "172.16.254.254", kPath), 1);
    char ip[32] = "";
    ini_gets("net", "ip", "", ip, sizeof ip, kPath);
    EXPECT_STREQ(ip, "172.16.254.254");
    EXPECT_FALSE(file_exists(kNewPath));
  }

  void SetUp() override {
    if (!cut::can_trace()) GTEST_SKIP() << "this machine does not let a program trace others";
    new_ = after(GetParam());
    restore();
    whole_ = change_until(cut::no_cut);
    ASSERT_EQ(whole_.exit_status, 0);
    ASSERT_EQ(contents(kPath), new_);
    ASSERT_FALSE(whole_.calls.empty());
  }

  Text new_;
  cut::Run whole_;
};

TEST_P(IniPowerCut, EveryPointLeavesTheOldOrTheNewFile) {
  for (std::size_t point = 0; point < whole_.calls.size(); ++point) {
    restore();
    const cut::Run run =
        change_until([=](std::size_t index, const cut::StorageCall&) { return index == point; });
    ASSERT_TRUE(run.cut) << "point " << point << " was not reached";
    const cut::StorageCall& call = run.calls.back();
    SCOPED_TRACE("cut before " + call.name + " of " + call.file + ", point " + std::to_string(point));
    expect_whole();
    lose(unsynchronised({run.calls.begin(), run.calls.end() - 1}));
    expect_whole();
    expect_usable();
  }
}

TEST_P(IniPowerCut, NothingIsLostAfterTheCall) {
  EXPECT_EQ(unsynchronised(whole_.calls), std::set<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Changes, IniPowerCut, testing::ValuesIn(kelo::tests::ini_changes()),
                         [](const auto& change) { return std::string(change.param.name); });

}  // namespace
