// SPDX-License-Identifier: MIT
// The scripted modem that other tests and the demo rely on.
#include "tools/modem/modem.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/descriptors.hpp"
#include "tests/support/emulation.hpp"

namespace {

using kelo::modem::Datagram;
using kelo::modem::Modem;
using kelo::modem::read_script;
using kelo::modem::Script;
using std::chrono::milliseconds;
using namespace std::string_literals;

std::string mistake_in(const std::string& text) {
  try {
    read_script(text);
    return "none";
  } catch (const std::runtime_error& mistake) {
    return mistake.what();
  }
}

std::string bytes_of(const std::string& pieces) {
  return read_script("command X\nsend " + pieces).answers.at(0).datagrams.at(0).bytes;
}

TEST(ModemScript, NamesTheDatagramsOfEachCommand) {
  const Script script = read_script(
      "# a comment\n\n"
      "command AT+COPS=0,2,\"a # b\"  \n"
      "  send echo \"\\r\\n\" \"12\" # another\n"
      "  pause 20\n"
      "  pause 5\n"
      "\tstranger \"x\"\n"
      "  send \"OK\\r\\n\"\n"
      "command AT\n"
      "command *\n"
      "  send echo\n");
  ASSERT_EQ(script.answers.size(), 3U);
  EXPECT_EQ(script.answers[0].command, "AT+COPS=0,2,\"a # b\"");
  const std::vector<Datagram>& datagrams = script.answers[0].datagrams;
  ASSERT_EQ(datagrams.size(), 3U);
  EXPECT_EQ(datagrams[0].bytes, "\r\n12");
  EXPECT_TRUE(datagrams[0].echo);
  EXPECT_FALSE(datagrams[0].from_stranger);
  EXPECT_EQ(datagrams[0].pause, milliseconds(0));
  EXPECT_EQ(datagrams[1].bytes, "x");
  EXPECT_FALSE(datagrams[1].echo);
  EXPECT_TRUE(datagrams[1].from_stranger);
  EXPECT_EQ(datagrams[1].pause, milliseconds(25));
  EXPECT_FALSE(datagrams[2].from_stranger);
  EXPECT_EQ(datagrams[2].pause, milliseconds(0));
  EXPECT_TRUE(script.answers[1].datagrams.empty());
  EXPECT_TRUE(script.answers[2].datagrams.at(0).echo);
  EXPECT_EQ(script.answers[2].datagrams.at(0).bytes, "");
}

TEST(ModemScript, WritesAnyByte) {
  EXPECT_EQ(bytes_of(R"("a\r\n\t\\\"\x00\xfF#")"), "a\r\n\t\\\"\0\xff#"s);
  EXPECT_EQ(bytes_of(R"("ab"*3 "c" "d"*0 ""*9)"), "abababc");
  EXPECT_EQ(bytes_of(R"("\x41"*2047)"), std::string(2047, 'A'));
}

TEST(ModemScript, MayBeEmpty) {
  EXPECT_TRUE(read_script("").answers.empty());
  EXPECT_EQ(bytes_of(""), "");
}

TEST(ModemScript, NamesTheLineOfAMistake) {
  EXPECT_EQ(mistake_in("\nsend \"x\"\n"), "line 2: no command yet");
  EXPECT_EQ(mistake_in("command A\nanswer \"x\"\n"), "line 2: no such word: answer");
  EXPECT_EQ(mistake_in("command A\nsend \"x\n"), "line 2: a text has no end");
  EXPECT_EQ(mistake_in("command A\nsend \"x\\"), "line 2: a text has no end");
  EXPECT_EQ(mistake_in("command A\nsend \"\\q\"\n"), "line 2: no such escape");
  for (const char* const digits : {"", "4", "4g", "g4"}) {
    EXPECT_EQ(mistake_in("command A\nsend \"\\x"s + digits + "\"\n"),
              "line 2: two hexadecimal digits are missing");
  }
  EXPECT_EQ(mistake_in("command A\nsend \"x\"*\n"), "line 2: a number is missing");
  EXPECT_EQ(mistake_in("command A\nsend \"x\"*-1\n"), "line 2: a number is missing");
  EXPECT_EQ(mistake_in("command A\nsend \"x\" echo\n"), "line 2: neither a text nor the echo as the first");
  EXPECT_EQ(mistake_in("command A\nsend x\n"), "line 2: neither a text nor the echo as the first");
  EXPECT_EQ(mistake_in("command A\npause\n"), "line 2: a number is missing");
  EXPECT_EQ(mistake_in("command A\npause 1 2\n"), "line 2: too much");
}

TEST(ModemScript, GivesTheFirstAnswerThatFits) {
  const Script script = read_script("command A\ncommand B\nsend \"1\"\ncommand B\ncommand *\ncommand C\n");
  EXPECT_EQ(script.find("A"), &script.answers[0]);
  EXPECT_EQ(script.find("B"), &script.answers[1]);
  EXPECT_EQ(script.find("C"), &script.answers[3]);
  EXPECT_EQ(script.find(""), &script.answers[3]);
  EXPECT_EQ(read_script("command A\n").find("AT"), nullptr);
}

struct Received {
  std::string bytes;
  bool from_service;
};

// A daemon's side of the exchange.
class Peer {
 public:
  Peer() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    service_.sin_family = AF_INET;
    service_.sin_port = htons(5555);
    service_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  ~Peer() { close(fd_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  void send(const std::string& command) const {
    EXPECT_EQ(sendto(fd_, command.data(), command.size(), 0, reinterpret_cast<const sockaddr*>(&service_),
                     sizeof service_),
              static_cast<ssize_t>(command.size()));
  }

  Received receive() const {
    std::array<char, 4096> bytes{};
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t count =
        recvfrom(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&sender), &length);
    EXPECT_GE(count, 0);
    EXPECT_EQ(sender.sin_addr.s_addr, service_.sin_addr.s_addr);
    return {{bytes.data(), static_cast<std::size_t>(count)}, sender.sin_port == service_.sin_port};
  }

 private:
  const int fd_;
  sockaddr_in service_{};
};

TEST(ScriptedModem, AnswersEachCommandByTheScript) {
  const Modem modem(
      read_script("command AT\n send echo \"\\nOK\"\n stranger \"x\"\n send\n"
                  "command *\n pause 1\n send \"4\\r\"\n"));
  const Peer peer;
  peer.send("AT\r");
  const Received first = peer.receive();
  EXPECT_EQ(first.bytes, "AT\r\nOK");
  EXPECT_TRUE(first.from_service);
  const Received second = peer.receive();
  EXPECT_EQ(second.bytes, "x");
  EXPECT_FALSE(second.from_service);
  EXPECT_EQ(peer.receive().bytes, "");
  peer.send("ATI\r");
  EXPECT_EQ(peer.receive().bytes, "4\r");
  EXPECT_EQ(modem.received(), (std::vector<std::string>{"AT\r", "ATI\r"}));
}

TEST(ScriptedModem, StaysSilentWithoutAnAnswer) {
  const Modem modem(read_script("command AT\n send \"answer\"\n"));
  const Peer peer;
  peer.send("unknown\r");
  peer.send("AT\r");
  EXPECT_EQ(peer.receive().bytes, "answer");
  EXPECT_EQ(modem.received(), (std::vector<std::string>{"unknown\r", "AT\r"}));
}

TEST(ScriptedModem, EndsInTheMiddleOfAPauseAndLeavesNothing) {
  const auto before = kelo::tests::open_descriptors();
  {
    const Modem modem(read_script("command AT\n send \"1\"\n pause 100000000\n send \"2\"\n"));
    const Peer peer;
    peer.send("AT\r");
    EXPECT_EQ(peer.receive().bytes, "1");
  }
  EXPECT_EQ(kelo::tests::open_descriptors(), before);
}

TEST(ScriptedModem, RefusesToServeAPortThatIsTaken) {
  const Modem modem({});
  EXPECT_THROW(Modem({}), std::system_error);
}

const std::string kCommand = kelo::tests::shell_command(KELO_BINARY_DIR "/tools/kelo_scripted_modem");

TEST(ModemProgram, PrintsTheCommandsThatItAnswers) {
  std::ofstream("/tmp/script") << "command AT\n send \"OK\\r\\n\"\n";
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const pid_t program = fork();
  if (program == 0) {
    dup2(ends[1], STDOUT_FILENO);
    execl("/bin/sh", "sh", "-c", ("exec " + kCommand + " /tmp/script").c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  std::FILE* const output = fdopen(ends[0], "r");
  std::array<char, 100> line{};
  ASSERT_NE(std::fgets(line.data(), line.size(), output), nullptr);
  EXPECT_STREQ(line.data(), "listening on 127.0.0.1, UDP port 5555\n");
  const Peer peer;
  peer.send("AT\r");
  EXPECT_EQ(peer.receive().bytes, "OK\r\n");
  ASSERT_NE(std::fgets(line.data(), line.size(), output), nullptr);
  EXPECT_STREQ(line.data(), "AT\n");
  kill(program, SIGTERM);
  int status = -1;
  EXPECT_EQ(waitpid(program, &status, 0), program);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  std::fclose(output);
}

TEST(ModemProgram, RefusesWhatItCannotServe) {
  std::ofstream("/tmp/bad_script") << "pause 1\n";
  const auto exit_code = [](const std::string& arguments) {
    const int status = std::system((kCommand + " " + arguments + " 2>/tmp/message").c_str());
    return WEXITSTATUS(status);
  };
  const auto message = [] {
    std::ifstream file("/tmp/message");
    std::string line;
    std::getline(file, line);
    return line;
  };
  EXPECT_EQ(exit_code(""), 2);
  EXPECT_EQ(exit_code("/tmp/missing"), 1);
  EXPECT_EQ(message(), "/tmp/missing: cannot be read");
  EXPECT_EQ(exit_code("/tmp/bad_script"), 1);
  EXPECT_EQ(message(), "/tmp/bad_script: line 1: no command yet");
}

}  // namespace
