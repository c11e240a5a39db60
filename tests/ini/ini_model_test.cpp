// SPDX-License-Identifier: MIT
// Random operations on INI files, each held against a model that is too plain to be wrong in the same way.
#include "tests/support/ini_model.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/database.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/every_text.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/ini_steps.hpp"
#include "tests/support/sanitized.hpp"
#include "tests/support/shorten.hpp"

namespace {

using kelo::tests::every_text;
using kelo::tests::ExactBuffer;
using kelo::tests::IniChance;
using kelo::tests::IniModel;
using kelo::tests::leave_out;
using kelo::tests::literal;
using kelo::tests::read_file;
using kelo::tests::shorten;
using kelo::tests::write_file;
using Text = IniModel::Text;
using Call = kelo::tests::IniCall;
using Sequence = kelo::tests::IniSequence;
using Step = kelo::tests::IniStep;
using Way = IniModel::Way;

constexpr bool kSlow = kelo::tests::kSanitized || kelo::tests::kEmulated;

constexpr unsigned kShards = 10;
constexpr int kSequencesPerShard = kSlow ? 1500 : 10000;
constexpr std::size_t kEveryLength = kSlow ? 4 : 5;

constexpr char kPath[] = "/tmp/model.ini";
constexpr char kNewPath[] = "/tmp/model.in~";

const char* c_string(const Text& text) { return text ? text->c_str() : nullptr; }

// --- The library and the model, side by side ----------------------------------------------------------------

// Collects the first difference between what the two say.
class Comparison {
 public:
  template <typename Value>
  void expect(const char* what, const Value& expected, const Value& got) {
    if (difference_ || expected == got) return;
    std::ostringstream out;
    out << what << ": expected " << expected << ", got " << got;
    difference_ = out.str();
  }
  [[nodiscard]] const Text& difference() const { return difference_; }

 private:
  Text difference_;
};

// What tells a file that was written from one that was not, and a new file from an old one.
struct Trace {
  bool there = false;
  ino_t file = 0;
  timespec changed = {};
};

Trace trace_of_file() {
  struct stat status = {};
  if (stat(kPath, &status) != 0) return {};
  return {true, status.st_ino, status.st_mtim};
}

constexpr timespec kLongAgo = {1000000000, 0};

void age_file() {
  const timespec times[2] = {kLongAgo, kLongAgo};
  utimensat(AT_FDCWD, kPath, times, 0);
}

IniModel::Answer call_with_buffer(int room, int (*call)(const Step&, char*, int), const Step& step) {
  const ExactBuffer buffer(static_cast<std::size_t>(room));
  const int length = call(step, buffer.data(), room);
  const std::string bytes = buffer.bytes();
  return {length, bytes.substr(0, bytes.find('\0'))};
}

int keep_entry(const char* section, const char* key, const char* value, void* entries) {
  static_cast<std::vector<IniModel::Entry>*>(entries)->push_back({section, key, value});
  return 1;
}

void compare_walk(const IniModel& model, Comparison& comparison) {
  std::vector<IniModel::Entry> entries;
  const int result = ini_browse(keep_entry, &entries, kPath);
  const auto expected = model.walk();
  comparison.expect("result", expected ? 1 : 0, result);
  const std::size_t count = expected ? expected->size() : 0;
  for (std::size_t i = 0; i < std::min(count, entries.size()); ++i)
    comparison.expect("entry", (*expected)[i], entries[i]);
  comparison.expect("number of entries", count, entries.size());
}

void compare_reading(const Step& step, const IniModel& model, Comparison& comparison) {
  const char* const section = c_string(step.section);
  const char* const key = c_string(step.key);
  const auto room = static_cast<std::size_t>(step.room);
  const auto otherwise = static_cast<float>(step.number);
  switch (step.call) {
    case Call::gets: {
      const auto call = [](const Step& each, char* buffer, int size) {
        return ini_gets(c_string(each.section), c_string(each.key), c_string(each.text), buffer, size, kPath);
      };
      const auto expected = model.gets(step.section, step.key, step.text, room);
      const auto got = call_with_buffer(step.room, call, step);
      comparison.expect("result", expected.length, got.length);
      if (step.key) comparison.expect("text", expected, got);
      break;
    }
    case Call::getl:
      comparison.expect("number", model.getl(step.section, step.key, step.number),
                        ini_getl(section, key, step.number, kPath));
      break;
    case Call::getf:
      comparison.expect("number", model.getf(step.section, step.key, otherwise),
                        ini_getf(section, key, otherwise, kPath));
      break;
    case Call::getbool:
      comparison.expect("truth", model.getbool(step.section, step.key, step.number),
                        ini_getbool(section, key, step.number, kPath));
      break;
    case Call::section_at: {
      const auto call = [](const Step& each, char* buffer, int size) {
        return ini_getsection(each.number, buffer, size, kPath);
      };
      comparison.expect("section", model.section_at(step.number, room),
                        call_with_buffer(step.room, call, step));
      break;
    }
    case Call::key_at: {
      const auto call = [](const Step& each, char* buffer, int size) {
        return ini_getkey(c_string(each.section), each.number, buffer, size, kPath);
      };
      comparison.expect("key", model.key_at(step.section, step.number, room),
                        call_with_buffer(step.room, call, step));
      break;
    }
    default:
      compare_walk(model, comparison);
  }
}

struct Written {
  int result;
  Way way;
};

Written write_both(const Step& step, IniModel& model) {
  const char* const section = c_string(step.section);
  const char* const key = c_string(step.key);
  const float eighths = static_cast<float>(step.number) / 8;
  switch (step.call) {
    case Call::puts:
      return {ini_puts(section, key, c_string(step.text), kPath),
              model.puts(step.section, step.key, step.text)};
    case Call::putl:
      return {ini_putl(section, key, step.number, kPath), model.putl(step.section, step.key, step.number)};
    default:
      return {ini_putf(section, key, eighths, kPath), model.putf(step.section, step.key, eighths)};
  }
}

void compare_writing(const Step& step, IniModel& model, Comparison& comparison) {
  age_file();
  const Trace before = trace_of_file();
  const auto [result, way] = write_both(step, model);
  const Trace after = trace_of_file();
  comparison.expect("result", 1, result);
  const Text bytes = after.there ? Text(read_file(kPath)) : Text();
  if (bytes != model.bytes()) comparison.expect("bytes", literal(model.bytes()), literal(bytes));
  comparison.expect("the temporary file stays", false, std::filesystem::exists(kNewPath));
  const bool written = before.there && after.changed.tv_sec != kLongAgo.tv_sec;
  const bool replaced = before.there && before.file != after.file;
  comparison.expect("the file is written", way == Way::in_place || way == Way::rewritten, written);
  comparison.expect("the file is another", way == Way::rewritten, replaced);
}

// --- Sequences ----------------------------------------------------------------------------------------------

// The first difference that a sequence brings out, if it does.
Text run(const Sequence& sequence) {
  std::remove(kPath);
  std::remove(kNewPath);
  if (sequence.file) write_file(kPath, *sequence.file);
  IniModel model(sequence.file);
  Comparison comparison;
  for (const Step& step : sequence.steps) {
    if (step.call >= Call::puts) {
      compare_writing(step, model, comparison);
    } else {
      compare_reading(step, model, comparison);
    }
    if (comparison.difference()) return shown(step) + ": " + *comparison.difference();
  }
  return {};
}

Sequence shrunk(Sequence sequence) {
  leave_out(sequence.steps, [&](const std::vector<Step>& steps) { return run({sequence.file, steps}); });
  shorten(sequence.file, [&](const Text& file) { return run({file, sequence.steps}); });
  for (std::size_t i = 0; i < sequence.steps.size(); ++i) {
    for (Text Step::*const part : {&Step::section, &Step::key, &Step::text}) {
      const auto with = [&](const Text& text) {
        Sequence other = sequence;
        other.steps[i].*part = text;
        return other;
      };
      shorten(sequence.steps[i].*part, [&](const Text& text) { return run(with(text)); });
    }
  }
  shorten(sequence.file, [&](const Text& file) { return run({file, sequence.steps}); });
  return sequence;
}

void expect_no_difference(const Sequence& sequence) {
  if (!run(sequence)) return;
  const Sequence shortest = shrunk(sequence);
  ADD_FAILURE() << run(shortest).value_or("a difference that comes and goes") << "\n" << shown(shortest);
}

// --- The model itself ---------------------------------------------------------------------------------------

// What a line `k...` of a file gives for the key k.
TEST(IniModelByHand, ReadsValues) {
  const struct {
    const char* line;
    const char* value;
  } cases[] = {{"k=v", "v"},
               {" \t K \t= v w \r\n", "v w"},
               {"k: v", "v"},
               {"k=a:b=c", "a:b=c"},
               {"k=x ; y", "x"},
               {"k=#", ""},
               {"k=\"x;y\" ; z", "x;y"},
               {"k=\"a\\\"b\"\"c\"", "a\"b\"c"},
               {"k=a\"b;c\" ;d", "a\"b;c\""},
               {"k=\"a;b", "\"a;b"},
               {"k=\"", "\""},
               {"k=\"\"", ""},
               {"k=\" x \"", " x "},
               {"k=a\\b", "a\\b"},
               {"k x=v", "none"},
               {";k=v", "none"},
               {"[k]=v", "none"},
               {"k", "none"}};
  for (const auto& [line, value] : cases)
    EXPECT_EQ(IniModel(line).gets({}, "k", "none", 64).text, value) << line;
}

TEST(IniModelByHand, CutsLinesAndAnswers) {
  const std::string long_line = "[s]\nk=" + std::string(509, 'v') + "l=w\n";
  const IniModel model(long_line);
  EXPECT_EQ(model.gets("S", "k", {}, 1024).length, 509);
  EXPECT_EQ(model.gets("S", "l", {}, 1024).text, "w");
  EXPECT_EQ(model.gets("s", "k", {}, 4), (IniModel::Answer{3, "vvv"}));
  EXPECT_EQ(model.gets("s", "q", "none", 4), (IniModel::Answer{3, "non"}));
  EXPECT_EQ(model.key_at("s", 1, 9), (IniModel::Answer{1, "l"}));
  EXPECT_EQ(model.key_at("s", 2, 9), (IniModel::Answer{0, ""}));
  EXPECT_EQ(model.section_at(0, 9), (IniModel::Answer{1, "s"}));
  EXPECT_EQ(model.section_at(1, 9), (IniModel::Answer{0, ""}));
}

TEST(IniModelByHand, ReadsNumbersAndTruths) {
  const IniModel model("a=0x10\nb=010\nc=-7km\nd=\ne=yes\nf=No\ng=maybe\nh=2.5x\ni=99999999999\n");
  EXPECT_EQ(model.getl({}, "a", 5), 16);
  EXPECT_EQ(model.getl({}, "b", 5), 10);
  EXPECT_EQ(model.getl({}, "c", 5), -7);
  EXPECT_EQ(model.getl({}, "d", 5), 5);
  EXPECT_EQ(model.getl({}, "e", 5), 0);
  EXPECT_EQ(model.getl({}, "i", 5), INT32_MAX);
  EXPECT_EQ(model.getf({}, "h", 5), 2.5F);
  EXPECT_EQ(model.getf({}, "d", 5), 5);
  EXPECT_EQ(model.getbool({}, "e", 5), 1);
  EXPECT_EQ(model.getbool({}, "f", 5), 0);
  EXPECT_EQ(model.getbool({}, "g", 5), 5);
  EXPECT_EQ(model.getbool({}, "none", 5), 5);
}

TEST(IniModelByHand, Changes) {
  const struct {
    const char* before;
    Text section, key, value;
    const char* after;
    Way way;
  } cases[] = {
      {"[s]\nk=a", "s", "k", "\"", "[s]\nk=\"\\\"\"\n", Way::rewritten},
      {"[s]\n k=a;\n", "S", "K", "abc", "[s]\nK=abc\n", Way::in_place},
      {"[s]\nk=a", "s", "k", "a", "[s]\nk=a", Way::untouched},
      {"[s]\nk=a", "s", "k", "b", "[s]\nk=b\n", Way::rewritten},
      {"[s]\nk=a", "s", "l", "b ", "[s]\nk=a\nl=\"b \"\n", Way::rewritten},
      {"[s]\nk=a\n\n[t]", "s", "l", "b", "[s]\nk=a\n\nl=b\n[t]", Way::rewritten},
      {"[s]", "t", "l", "", "[s]\n[t]\nl=\n", Way::rewritten},
      {"[s]\n", "t", "l", "b", "[s]\n[t]\nl=b\n", Way::rewritten},
      {"\n", "t", "l", "b", "\n\n[t]\nl=b\n", Way::rewritten},
      {"", "t", "l", "b", "\n[t]\nl=b\n", Way::rewritten},
      {"", {}, "l", "b", "l=b\n", Way::rewritten},
      {"[s]\nk=a\nk=b\n", "s", "k", {}, "[s]\nk=b\n", Way::rewritten},
      {"[s]\nk=a\n", "s", "l", {}, "[s]\nk=a\n", Way::untouched},
      {"a=b\n[s]\nk=a\n;\n[t]\n", "s", {}, "x", "a=b\n[t]\n", Way::rewritten},
      {"a=b\n[s]\nk=a\n", "", {}, {}, "[s]\nk=a\n", Way::rewritten},
  };
  for (const auto& [before, section, key, value, after, way] : cases) {
    IniModel model(before);
    EXPECT_EQ(model.puts(section, key, value), way) << before;
    EXPECT_EQ(model.bytes(), after);
  }
  IniModel none;
  EXPECT_EQ(none.puts("s", "k", {}), Way::untouched);
  EXPECT_EQ(none.putl("s", "k", -5), Way::created);
  EXPECT_EQ(none.putf("s", "l", 0.5F), Way::rewritten);
  EXPECT_EQ(none.bytes(), "[s]\nk=-5\nl=0.500000\n");
}

class IniModelTest : public testing::TestWithParam<unsigned> {};

TEST_P(IniModelTest, AgreesOnRandomSequences) {
  const unsigned seed = 20261121 + GetParam();
  std::printf("seed %u, %d sequences\n", seed, kSequencesPerShard);
  IniChance chance(seed);
  for (int i = 0; i < kSequencesPerShard && !HasFailure(); ++i) expect_no_difference(chance.sequence());
}

TEST(IniModelCorpus, AgreesOnTheSeedsOfTheFuzzer) {
  constexpr int kSequencesPerSeed = kSequencesPerShard / 100;
  IniChance chance(20261131);
  int seeds = 0;
  for (const auto& seed : std::filesystem::directory_iterator(KELO_SOURCE_DIR "/fuzz/corpus/ini")) {
    const std::string bytes = read_file(seed.path());
    ++seeds;
    for (int i = 0; i < kSequencesPerSeed && !HasFailure(); ++i)
      expect_no_difference(chance.sequence_on(bytes));
  }
  EXPECT_GT(seeds, 30);
}

TEST(IniModelEvery, AgreesOnEveryShortValue) {
  for (const std::string& value : every_text("\"\\;a \n", kEveryLength)) {
    expect_no_difference({"a=" + value, {{Call::gets, "", "a", {}, 0, 99}, {Call::walk, {}, {}, {}}}});
    expect_no_difference({{}, {{Call::puts, "", "a", value}, {Call::gets, "", "a", {}, 0, 99}}});
    if (HasFailure()) return;
  }
}

TEST(IniModelEvery, AgreesOnEveryShortFile) {
  for (const std::string& file : every_text("[]a=:; \"\n", kEveryLength - 1)) {
    expect_no_difference({file,
                          {{Call::gets, "a", "a", "none", 0, 99},
                           {Call::section_at, {}, {}, {}, 0, 99},
                           {Call::key_at, {}, {}, {}, 0, 99},
                           {Call::walk, {}, {}, {}},
                           {Call::puts, "a", "a", "b"},
                           {Call::puts, "", "A", "=b"},
                           {Call::puts, "", "a", {}},
                           {Call::puts, "a", {}, {}}}});
    if (HasFailure()) return;
  }
}

// A new section asks what the last chunk of the file was: files around the sizes at which a chunk begins.
TEST(IniModelChunks, AgreesAroundTheSizesOfChunks) {
  for (const std::size_t size : {0U, 509U, 510U, 511U, 512U, 513U, 514U, 1024U, 1025U, 1026U, 1537U}) {
    for (const std::size_t line : {1U, 2U, 16U, 57U, 511U, 512U, 2000U}) {
      std::string bytes(size, '-');
      for (std::size_t i = size; i > line; i -= line) bytes[i - line - 1] = '\n';
      for (const bool ended : {false, true}) {
        if (ended && size > 0) bytes.back() = '\n';
        expect_no_difference(
            {bytes, {{Call::puts, "new", "key", "value"}, {Call::gets, "new", "key", {}, 0, 9}}});
        expect_no_difference({bytes, {{Call::puts, "", "key", "value"}, {Call::gets, "", "key", {}, 0, 9}}});
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Shards, IniModelTest, testing::Range(0U, kShards));

}  // namespace
