// SPDX-License-Identifier: MIT
// The disk model of the crash explorer, and the explorer on writers whose faults are known.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tools/crash/disk.hpp"
#include "tools/crash/explorer.hpp"
#include "tools/crash/marks.hpp"
#include "tools/crash/reproducer.hpp"
#include "tools/crash/states.hpp"

namespace {

using namespace kelo::crash;

const std::string kFile = "/data/a";

// A disk with one file of two synced blocks of 'o', and the changes that a test makes to it.
class DiskModel : public testing::Test {
 protected:
  DiskModel() : disk_(before()) {}

  static Image before() {
    Image image;
    image.files[1].content = Content(std::string(2 * kBlockSize, 'o'));
    image.names[kFile] = 1;
    return image;
  }

  void apply(const Event& event) { disk_.apply(next_++, event); }
  void write(std::size_t offset, const std::string& bytes) {
    apply({.change = Change::write, .inode = 1, .offset = offset, .data = bytes});
  }
  void resize(std::size_t size) { apply({.change = Change::resize, .inode = 1, .size = size}); }

  // The contents that a file may have in a model; "none" when it has no name.
  std::set<std::string> contents(Model model, const std::string& name = kFile, const Effort& effort = {}) {
    std::set<std::string> found;
    std::mt19937_64 random(1);
    visit_states(disk_, next_, model, effort, random, [&](const Selection& selection) {
      const Image image = build(disk_, selection);
      const auto entry = image.names.find(name);
      found.insert(entry == image.names.end() ? "none" : image.files.at(entry->second).content.bytes());
      return true;
    });
    return found;
  }

  std::set<std::set<std::string>> names(Model model) {
    std::set<std::set<std::string>> found;
    std::mt19937_64 random(1);
    visit_states(disk_, next_, model, {}, random, [&](const Selection& selection) {
      std::set<std::string> present;
      for (const auto& [name, inode] : build(disk_, selection).names) present.insert(name);
      found.insert(present);
      return true;
    });
    return found;
  }

  Disk disk_;
  std::size_t next_ = 0;
};

const std::string kOld = std::string(kBlockSize, 'o');
const std::string kNew = std::string(kBlockSize, 'n');

TEST_F(DiskModel, ACutKeepsWhatWasWritten) {
  write(0, kNew + kNew);
  EXPECT_EQ(contents(Model::cut), std::set<std::string>{kNew + kNew});
}

TEST_F(DiskModel, UnsyncedWritesAreLostFromAnyPointOn) {
  write(0, kNew);
  write(kBlockSize, kNew);
  const std::set<std::string> expected = {kOld + kOld, kNew + kOld, kNew + kNew};
  EXPECT_EQ(contents(Model::unsynced_lost), expected);
}

TEST_F(DiskModel, AnyUnsyncedBlockMayBeLostAlone) {
  write(0, kNew + kNew);
  const std::set<std::string> found = contents(Model::any_subset);
  for (const std::string& first : {kOld, kNew}) {
    for (const std::string& second : {kOld, kNew}) EXPECT_TRUE(found.contains(first + second));
  }
}

TEST_F(DiskModel, ABlockIsTornAtSectors) {
  write(0, kNew);
  const std::set<std::string> found = contents(Model::any_subset, kFile, {256, 500});
  std::size_t torn = 0;
  for (const std::string& content : found) {
    EXPECT_EQ(content.substr(kBlockSize), kOld) << "a block that was not written";
    for (std::size_t sector = 0; sector < kSectorsOfBlock; ++sector) {
      const std::string part = content.substr(sector * kSectorSize, kSectorSize);
      EXPECT_TRUE(part == kOld.substr(0, kSectorSize) || part == kNew.substr(0, kSectorSize));
    }
    if (content != kOld + kOld && content != kNew + kOld) ++torn;
  }
  EXPECT_GT(torn, 50U);
  EXPECT_TRUE(found.contains(kNew.substr(0, kSectorSize) + kOld.substr(kSectorSize) + kOld));
}

TEST_F(DiskModel, NothingThatWasSyncedIsLost) {
  write(0, kNew);
  apply({.change = Change::sync_file, .inode = 1});
  EXPECT_EQ(contents(Model::any_subset), std::set<std::string>{kNew + kOld});
  write(0, kOld);
  apply({.change = Change::sync_all});
  EXPECT_EQ(contents(Model::any_subset), std::set<std::string>{kOld + kOld});
}

TEST_F(DiskModel, ASizeMayGrowWithoutItsBlocksAndBlocksComeWithoutTheSize) {
  write(2 * kBlockSize, kNew);
  const std::set<std::string> found = contents(Model::any_subset);
  EXPECT_TRUE(found.contains(kOld + kOld)) << "the size was lost";
  EXPECT_TRUE(found.contains(kOld + kOld + std::string(kBlockSize, '\0'))) << "the block was lost";
  EXPECT_TRUE(found.contains(kOld + kOld + kNew));
}

TEST_F(DiskModel, WhatFollowsALostCutIsLost) {
  resize(0);
  write(0, "x");
  const std::set<std::string> found = contents(Model::any_subset);
  EXPECT_TRUE(found.contains(kOld + kOld));
  EXPECT_TRUE(found.contains(""));
  EXPECT_TRUE(found.contains("x"));
  EXPECT_FALSE(found.contains("x" + kOld.substr(1) + kOld)) << "the write came after the cut";
}

TEST_F(DiskModel, ANewNameNeedsTheSyncOfItsFolder) {
  apply({.change = Change::create, .inode = 2, .path = "/data/b"});
  apply({.change = Change::sync_file, .inode = 2});
  EXPECT_EQ(names(Model::any_subset), (std::set<std::set<std::string>>{{kFile}, {kFile, "/data/b"}}));
  apply({.change = Change::sync_directory, .path = "/data"});
  EXPECT_EQ(names(Model::any_subset), (std::set<std::set<std::string>>{{kFile, "/data/b"}}));
}

TEST_F(DiskModel, TheSyncOfAFolderSettlesNoOther) {
  apply({.change = Change::unlink, .path = kFile});
  apply({.change = Change::sync_directory, .path = "/other"});
  EXPECT_EQ(names(Model::any_subset), (std::set<std::set<std::string>>{{}, {kFile}}));
}

TEST_F(DiskModel, ARenameChangesBothNamesOrNone) {
  apply({.change = Change::rename, .path = kFile, .second = "/data/b"});
  EXPECT_EQ(names(Model::any_subset), (std::set<std::set<std::string>>{{kFile}, {"/data/b"}}));
}

TEST_F(DiskModel, ARenameOverAFileGivesTheOldOrTheNewOne) {
  apply({.change = Change::create, .inode = 2, .path = "/data/b"});
  apply({.change = Change::write, .inode = 2, .data = "new"});
  apply({.change = Change::sync_file, .inode = 2});
  apply({.change = Change::sync_directory, .path = "/data"});
  apply({.change = Change::rename, .path = "/data/b", .second = kFile});
  EXPECT_EQ(contents(Model::any_subset), (std::set<std::string>{kOld + kOld, "new"}));
}

TEST_F(DiskModel, ARenameBetweenNamesOfOneFileChangesNothing) {
  apply({.change = Change::link, .path = kFile, .second = "/data/b"});
  apply({.change = Change::sync_directory, .path = "/data"});
  apply({.change = Change::rename, .path = "/data/b", .second = kFile});
  EXPECT_EQ(names(Model::any_subset), (std::set<std::set<std::string>>{{kFile, "/data/b"}}));
}

TEST_F(DiskModel, TwoNamesShowOneFile) {
  apply({.change = Change::link, .path = kFile, .second = "/data/b"});
  apply({.change = Change::sync_directory, .path = "/data"});
  write(0, kNew);
  apply({.change = Change::sync_file, .inode = 1});
  EXPECT_EQ(contents(Model::any_subset, "/data/b"), std::set<std::string>{kNew + kOld});
}

TEST(CrashImage, IsToldApartByWhatAProgramSees) {
  const auto image = [](InodeNumber first, InodeNumber second, const std::string& bytes) {
    Image made;
    made.files[first].content = Content(bytes);
    made.files[second].content = Content(bytes);
    made.names["/data/a"] = first;
    made.names["/data/b"] = second;
    return made.hash();
  };
  EXPECT_EQ(image(1, 2, "x"), image(7, 3, "x")) << "the numbers of files are nothing to a program";
  EXPECT_NE(image(1, 2, "x"), image(1, 1, "x")) << "two names of one file";
  EXPECT_NE(image(1, 2, "x"), image(1, 2, "y"));
  EXPECT_NE(image(1, 2, "x"), image(1, 2, std::string("x\0", 2)));
}

TEST(CrashReproducer, IsReadBackAsItWasWritten) {
  Reproducer written = {"update", "lost", "any-subset", 76, {12, {3, 5}, {}}, {}};
  written.selection.files[4] = {
      .changes = 2, .cuts = 1, .sizes = kAll, .blocks = {{1, {kAll, 0x0F}}, {7, {0}}}};
  written.in_recovery = Selection{9, {1}, {}};
  const auto read = reproducer_from(text_of(written) + "\n  a story\n");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->history, "update");
  EXPECT_EQ(read->selection, written.selection);
  EXPECT_EQ(read->in_recovery, written.in_recovery);
  EXPECT_FALSE(reproducer_from("no reproducer"));
}

// --- Writers whose faults are known ------------------------------------------------------------------------

#ifdef KELO_TRACES_PROGRAMS

constexpr char kSetting[] = "/data/setting";
constexpr char kFresh[] = "/data/setting.new";

// What a writer does for its value to survive.
struct Care {
  bool own_file = true;
  bool sync_file = true;
  bool sync_folder = true;
};

void sync_folder() {
  const int folder = open("/data", O_RDONLY | O_DIRECTORY);
  fsync(folder);
  close(folder);
}

int put(const char* value, const Care& care) {
  const char* const path = care.own_file ? kFresh : kSetting;
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const std::string text = value;
  if (write(file, text.data(), text.size()) < 0) return -2;
  if (care.sync_file) fsync(file);
  close(file);
  if (care.own_file) std::rename(kFresh, kSetting);
  if (care.sync_folder) sync_folder();
  return 0;
}

class Writer : public Subject {
 public:
  Writer(const std::vector<Item>& items, Care care) : items_(items), care_(care) {}
  const std::vector<Item>& items() const override { return items_; }
  void start() override {}
  int read(std::size_t /*item*/, std::string& value) override {
    value = read_whole(kSetting);
    return value.empty() ? -1 : static_cast<int>(value.size());
  }
  int write(std::size_t /*item*/, const std::string& value) override { return put(value.c_str(), care_); }

 private:
  const std::vector<Item>& items_;
  Care care_;
};

// What the explorer finds wrong with a writer in three models.
Tally explored(Care care) {
  static const std::vector<Item> kItems = {
      {.table = "t",
       .key = "k",
       .values = {std::string(1500, 'a'), std::string(1500, 'b'), "third", "fourth"}}};
  History history;
  history.name = "writer";
  history.folders = {"/data"};
  history.items = kItems;
  history.prepare = [] {
    put(kItems[0].values[0].c_str(), {});
    sync();
  };
  history.act = [care] {
    mark(Progress::begins, 0, 1);
    put(kItems[0].values[1].c_str(), care);
    mark(Progress::acknowledged, 0, 1);
  };
  history.subject = [care] { return std::make_unique<Writer>(kItems, care); };
  Restart restart(history);
  const Recording recording = record_history(history);
  EXPECT_EQ(recording.exit_status, 0);
  EXPECT_TRUE(recording.unknown.empty());
  const Timeline timeline(history, {}, recording);
  Settings settings;
  settings.states = 60;
  settings.recovery_each = 20;
  return Explorer(history, timeline, restart, settings).explore();
}

std::size_t found(const Tally& tally, Violation violation, Model model) {
  return tally.found[static_cast<std::size_t>(violation)][static_cast<std::size_t>(model)];
}

TEST(CrashExplorer, FindsNothingWrongWithACarefulWriter) {
  const Tally tally = explored({});
  EXPECT_EQ(tally.violations(), 0U);
  EXPECT_GT(tally.unique, 5U);
}

TEST(CrashExplorer, FindsTheWriterInPlaceByKillingIt) {
  const Tally tally = explored({.own_file = false});
  EXPECT_GT(found(tally, Violation::unreadable, Model::cut), 0U) << "the file was empty for a moment";
  EXPECT_GT(found(tally, Violation::garbage, Model::any_subset), 0U) << "and torn";
}

TEST(CrashExplorer, FindsTheMissingSyncOfTheFile) {
  const Tally tally = explored({.sync_file = false});
  EXPECT_EQ(found(tally, Violation::unreadable, Model::cut), 0U);
  EXPECT_GT(tally.violations(), 0U);
}

TEST(CrashExplorer, FindsTheMissingSyncOfTheFolder) {
  const Tally tally = explored({.sync_folder = false});
  EXPECT_EQ(found(tally, Violation::stale, Model::cut), 0U);
  EXPECT_GT(found(tally, Violation::stale, Model::unsynced_lost), 0U) << "the acknowledged value";
}

#endif

}  // namespace
