// SPDX-License-Identifier: MIT
// Streams from commands: their text, their status and their descriptors.
#include "base/pipe_stream.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <string_view>

#include "tests/support/leaves_nothing.hpp"

namespace {

using kelo::base::PipeStream;

class PipeStreamTest : public kelo::tests::LeavesNothing {};

std::string output_of(const char* command, std::size_t room) {
  const PipeStream pipe = PipeStream::reading(command);
  std::array<char, 16> bytes{};
  const std::size_t count = pipe.read({bytes.data(), room});
  return {bytes.data(), count};
}

TEST_F(PipeStreamTest, ReadsUntilTheRoomIsFullOrTheOutputEnds) {
  EXPECT_EQ(output_of("printf abc", 0), "");
  EXPECT_EQ(output_of("printf abc", 2), "ab");
  EXPECT_EQ(output_of("printf abc", 3), "abc");
  EXPECT_EQ(output_of("printf abc", 16), "abc");
  EXPECT_EQ(output_of("printf a; sleep 0.05; printf b; sleep 0.05; printf c", 16), "abc");
  EXPECT_EQ(output_of("true", 16), "");
}

TEST_F(PipeStreamTest, WritesTheInputOfACommand) {
  PipeStream pipe = PipeStream::writing("read -r word; test \"$word\" = yes && exit 7");
  constexpr std::string_view kInput = "yes\n";
  EXPECT_EQ(write(pipe.descriptor(), kInput.data(), kInput.size()), 4);
  EXPECT_EQ(WEXITSTATUS(pipe.close()), 7);
}

TEST_F(PipeStreamTest, ReportsTheStatusOnce) {
  PipeStream pipe = PipeStream::reading("exit 3");
  EXPECT_TRUE(pipe);
  EXPECT_EQ(pipe.close(), 3 << 8);
  EXPECT_FALSE(pipe);
}

TEST_F(PipeStreamTest, KeepsEachEndFromOtherPrograms) {
  const PipeStream output = PipeStream::reading("true");
  const PipeStream input = PipeStream::writing("true");
  EXPECT_TRUE(fcntl(output.descriptor(), F_GETFD) & FD_CLOEXEC);
  EXPECT_TRUE(fcntl(input.descriptor(), F_GETFD) & FD_CLOEXEC);
}

// Where the system reaps, waiting for the command fails.
TEST_F(PipeStreamTest, KeepsTheErrorOfItsOwner) {
  signal(SIGCHLD, SIG_IGN);
  {
    const PipeStream pipe = PipeStream::reading("true");
    errno = ENOTTY;
  }
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(PipeStream::reading("true").close(), -1);
  EXPECT_EQ(errno, ECHILD);
  signal(SIGCHLD, SIG_DFL);
}

TEST_F(PipeStreamTest, IsEmptyWithoutDescriptors) {
  kelo::tests::limit_descriptors(64);
  const kelo::tests::ManyDescriptors many(64, 0);
  EXPECT_FALSE(PipeStream::reading("true"));
  EXPECT_EQ(errno, EMFILE);
  EXPECT_FALSE(PipeStream::writing("true"));
  EXPECT_EQ(errno, EMFILE);
}

}  // namespace
