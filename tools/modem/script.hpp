// SPDX-License-Identifier: MIT
// What the scripted modem answers to which command.
#ifndef KELO_TOOLS_MODEM_SCRIPT_HPP
#define KELO_TOOLS_MODEM_SCRIPT_HPP

#include <chrono>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace kelo::modem {

struct Datagram {
  std::string bytes;
  bool echo = false;                   // the command, as it arrived, comes before the bytes
  std::chrono::milliseconds pause{0};  // before it is sent
  bool from_stranger = false;          // sent from another port than the service's
};

struct Answer {
  std::string command;  // without its carriage return; "*" answers every command
  std::vector<Datagram> datagrams;
};

// The first answer that fits a command is given. A command that no answer fits gets none.
struct Script {
  std::vector<Answer> answers;

  // Null when the modem stays silent.
  [[nodiscard]] const Answer* find(std::string_view command) const;
};

// Reads the text form:
//
//   # A modem that echoes, waits and answers in two datagrams.
//   command AT+CGSN
//     send echo "\r\r\n"
//     pause 20
//     send "35693803564380" "9\r\n" "OK\r\n"
//   command *
//     stranger "x"*100
//     send "4\r"
//
// A line after "command" adds to its answer: "send" and "stranger" a datagram, which is made of the pieces after
// the word, and "pause" milliseconds before the next datagram. A piece is `echo` (at most one, the
// first) or a quoted text with the escapes \r \n \t \\ \" and \xHH, and perhaps *COUNT after it. Throws
// std::runtime_error that names the line of the first mistake.
Script read_script(std::istream& text);
Script read_script(const std::string& text);

}  // namespace kelo::modem

#endif  // KELO_TOOLS_MODEM_SCRIPT_HPP
