// SPDX-License-Identifier: MIT
// Lines of any length and end are read into buffers of any size.
#include "base/line_reader.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/exact_buffer.hpp"

namespace {

using kelo::base::Descriptor;
using kelo::base::LineReader;
using kelo::tests::ExactBuffer;
using Lines = std::vector<std::string>;

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    read_end = Descriptor(ends[0]);
    write_end = Descriptor(ends[1]);
  }
  void write(std::string_view bytes) const {
    EXPECT_EQ(::write(write_end.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  Descriptor read_end;
  Descriptor write_end;
};

Lines read_all(LineReader& reader) {
  Lines lines;
  for (std::string_view line = reader.next(); !line.empty(); line = reader.next()) lines.emplace_back(line);
  return lines;
}

// The lines of a text that is read through a storage of this size, in one piece.
Lines lines_of(std::string_view text, std::size_t storage_size, std::size_t longest = SIZE_MAX) {
  Pipe pipe;
  pipe.write(text);
  pipe.write_end.reset();
  const ExactBuffer storage(storage_size);
  LineReader reader(pipe.read_end.get(), {storage.data(), storage.size()}, longest);
  return read_all(reader);
}

// The same by the plainest means.
Lines expected_lines(const std::string& text, std::size_t most) {
  Lines lines;
  std::string line;
  for (const char c : text) {
    line += c;
    if (c != '\n' && line.size() < most) continue;
    lines.push_back(line);
    line.clear();
  }
  if (!line.empty()) lines.push_back(line);
  return lines;
}

TEST(LineReader, KeepsTheNewlinesOfLines) {
  EXPECT_EQ(lines_of("one\ntwo\n", 64), (Lines{"one\n", "two\n"}));
  EXPECT_EQ(lines_of("\n\n\nx\n", 64), (Lines{"\n", "\n", "\n", "x\n"}));
}

TEST(LineReader, TakesALastLineWithoutNewline) {
  EXPECT_EQ(lines_of("one\ntwo", 64), (Lines{"one\n", "two"}));
  EXPECT_EQ(lines_of("x", 64), (Lines{"x"}));
}

TEST(LineReader, FindsNothingInAnEmptyInput) { EXPECT_EQ(lines_of("", 64), Lines{}); }

TEST(LineReader, KeepsZeroBytes) {
  using namespace std::string_literals;
  EXPECT_EQ(lines_of("a\0b\n\0\n"s, 64), (Lines{"a\0b\n"s, "\0\n"s}));
}

TEST(LineReader, TakesALineLongerThanTheStorageInPieces) {
  EXPECT_EQ(lines_of("abcdefg\n", 9), (Lines{"abcdefg\n"}));
  EXPECT_EQ(lines_of("abcdefg\n", 8), (Lines{"abcdefg\n"}));
  EXPECT_EQ(lines_of("abcdefg\n", 7), (Lines{"abcdefg", "\n"}));
  EXPECT_EQ(lines_of("abcdefg\n", 3), (Lines{"abc", "def", "g\n"}));
  EXPECT_EQ(lines_of("abc\n", 1), (Lines{"a", "b", "c", "\n"}));
}

TEST(LineReader, TakesALineLongerThanAskedForInPieces) {
  for (const std::size_t storage_size : {4U, 5U, 8U, 100U}) {
    EXPECT_EQ(lines_of("abc\nd\n", storage_size, 4), (Lines{"abc\n", "d\n"})) << storage_size;
    EXPECT_EQ(lines_of("abcd\ne\n", storage_size, 4), (Lines{"abcd", "\n", "e\n"})) << storage_size;
    EXPECT_EQ(lines_of("x\nabcdefghi", storage_size, 4), (Lines{"x\n", "abcd", "efgh", "i"})) << storage_size;
  }
  EXPECT_EQ(lines_of("abcdefg\n", 3, 4), (Lines{"abc", "def", "g\n"}));
}

TEST(LineReader, FindsNothingWithoutStorage) {
  EXPECT_EQ(lines_of("abc\n", 0), Lines{});
  EXPECT_EQ(lines_of("abc\n", 8, 0), Lines{});
  LineReader reader(STDIN_FILENO, {});
  EXPECT_EQ(reader.next(), "");
}

TEST(LineReader, TakesAFailedReadForTheEnd) {
  std::array<char, 8> storage{};
  LineReader reader(-1, storage);
  EXPECT_FALSE(reader.failed());
  EXPECT_EQ(reader.next(), "");
  EXPECT_TRUE(reader.failed());
}

TEST(LineReader, RemembersAFailedReadAfterOneThatSucceeds) {
  const Pipe pipe;
  fcntl(pipe.read_end.get(), F_SETFL, O_NONBLOCK);
  std::array<char, 16> storage;
  LineReader reader(pipe.read_end.get(), storage);
  EXPECT_EQ(reader.next(), "");
  pipe.write("late\n");
  EXPECT_EQ(reader.next(), "late\n");
  EXPECT_TRUE(reader.failed());
}

TEST(LineReader, DoesNotTakeTheEndForAFailedRead) {
  Pipe pipe;
  pipe.write("abc");
  pipe.write_end.reset();
  std::array<char, 8> storage{};
  LineReader reader(pipe.read_end.get(), storage);
  EXPECT_EQ(reader.next(), "abc");
  EXPECT_EQ(reader.next(), "");
  EXPECT_FALSE(reader.failed());
}

TEST(LineReader, HandsALineOutAsSoonAsItHasArrived) {
  const Pipe pipe;
  std::array<char, 8> storage{};
  LineReader reader(pipe.read_end.get(), storage);
  pipe.write("one\ntw");
  EXPECT_EQ(reader.next(), "one\n");
  pipe.write("o\nthree\n");
  EXPECT_EQ(reader.next(), "two\n");
  EXPECT_EQ(reader.next(), "three\n");
}

TEST(LineReader, ShowsAndSkipsWhatIsPending) {
  const Pipe pipe;
  std::array<char, 16> storage{};
  LineReader reader(pipe.read_end.get(), storage);
  EXPECT_EQ(reader.pending(), "");
  pipe.write("one\ntwo\nthree\nf");
  EXPECT_EQ(reader.next(), "one\n");
  EXPECT_EQ(reader.pending(), "two\nthree\nf");
  reader.skip(4);
  EXPECT_EQ(reader.next(), "three\n");
  EXPECT_EQ(reader.pending(), "f");
  reader.skip(0);
  pipe.write("our\n");
  EXPECT_EQ(reader.next(), "four\n");
  EXPECT_EQ(reader.pending(), "");
}

TEST(LineReader, SplitsAnyInputThroughAnyStorageTheSame) {
  std::mt19937 random(1);
  const auto number_below = [&random](std::size_t limit) { return random() % limit; };
  for (int round = 0; round < 300; ++round) {
    std::string text(number_below(3000), 'x');
    for (char& c : text) c = number_below(20) == 0 ? '\n' : static_cast<char>(number_below(256));
    std::vector<std::size_t> pieces;
    for (std::size_t i = 0; i < text.size(); i += pieces.back()) pieces.push_back(1 + number_below(200));
    Pipe pipe;
    std::thread writer([&] {
      std::string_view rest = text;
      for (const std::size_t size : pieces) {
        pipe.write(rest.substr(0, size));
        rest.remove_prefix(std::min(size, rest.size()));
      }
      pipe.write_end.reset();
    });
    const ExactBuffer storage(1 + number_below(round % 3 == 0 ? 8 : 300));
    const std::size_t longest = 1 + number_below(storage.size() + 20);
    LineReader reader(pipe.read_end.get(), {storage.data(), storage.size()}, longest);
    EXPECT_EQ(read_all(reader), expected_lines(text, std::min(longest, storage.size()))) << "round " << round;
    writer.join();
  }
}

}  // namespace
