// SPDX-License-Identifier: MIT
// The commands that ask the modem and the kernel, and that tell what this program knows of the device.
#include <arpa/inet.h>
#include <net/if.h>
#include <sqlite3.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "kelo_utils/app_common.h"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/at_exchange.h"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/command.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {
namespace {

// --- The modem ----------------------------------------------------------------------------------------------

constexpr Column kLineColumns[] = {{"text", 0}};
constexpr std::size_t kMostBytes = 1 << 16;  // of the lines of a reply
constexpr int kUsualSeconds = 60;

// The seconds of an option, which may be missing, or 0 when it has another value.
int seconds_of(const char* text) {
  if (text == nullptr) return kUsualSeconds;
  const Bytes seconds = text[0] != '-' ? from_number(text, 1) : Bytes();
  return seconds ? static_cast<unsigned char>(seconds.c_str()[0]) : 0;
}

// Modems take small letters, too, but a service need not. What is in quotes is a name or a password.
void convert_to_upper_case(Bytes& command) {
  bool quoted = false;
  for (std::size_t i = 0; i < command.size(); ++i) {
    char& letter = command.data()[i];
    if (letter == '"') quoted = !quoted;
    if (!quoted && letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  }
}

void print_line(const char* line, Output& out) {
  out.begin_record();
  out.text(line);
  out.end_record();
}

// Prints the lines of a reply, and the final result, which is not among them.
void print_reply(char* lines, std::int32_t result, std::int32_t reason, Output& out) {
  static constexpr const char* kFinalResults[] = {"OK", "ERROR", "+CME ERROR", "+CMS ERROR", "NO CARRIER"};
  char* rest = nullptr;
  out.begin_list("lines", "line", kLineColumns);
  for (char* line = strtok_r(lines, "\n", &rest); line != nullptr; line = strtok_r(nullptr, "\n", &rest))
    print_line(line, out);
  if (result >= KELO_AT_OK && reason >= 0)
    print_line(base::FixedText<32>("%s: %d", kFinalResults[result], reason).c_str(), out);
  else if (result >= KELO_AT_OK)
    print_line(kFinalResults[result], out);
  out.end_list();
}

int at(const Words& words, Output& out) {
  const char* const option = words.option("timeout");
  const int seconds = seconds_of(option);
  if (seconds == 0) {
    out.error("%s is not a number of seconds from 1 to 255", option);
    return kUsage;
  }
  Bytes command(words.at(0));
  Bytes lines = Bytes::of_size(kMostBytes);
  if (!command || !lines) return kStorage;
  convert_to_upper_case(command);
  std::int32_t reason = -1;
  const std::int32_t result =
      kelo_at_exchange(command.c_str(), 1000 * seconds, lines.data(), kMostBytes, &reason);
  print_reply(lines.data(), result, reason, out);
  switch (result) {
    case KELO_AT_OK:
      return kDone;
    case KELO_AT_TIMED_OUT:
      out.error("the modem did not answer in time");
      return kTimeOut;
    case KELO_AT_TOO_LONG:
      out.error("the reply is too long: these lines are its beginning");
      return kNo;
    case KELO_AT_NOT_SENT:
      out.error("the command could not be sent: %s", std::strerror(errno));
      return kNo;
    default:
      out.error("the modem refused the command");
      return kNo;
  }
}

// --- The network --------------------------------------------------------------------------------------------

int print_address(const char* address, Output& out) {
  if (out.human())
    out.say_text(address);
  else
    out.text("address", address);
  return kDone;
}

bool is_interface(const char* name, Output& out) {
  if (if_nametoindex(name) != 0) return true;
  out.error("there is no interface %s", name);
  return false;
}

int net_gateway(const Words& words, Output& out) {
  std::array<char, INET6_ADDRSTRLEN> gateway{};
  if (!is_interface(words.at(0), out)) return kNo;
  if (kelo_get_ipv6_default_gw(words.at(0), gateway.data()) == 0 && gateway[0] != '\0')
    return print_address(gateway.data(), out);
  out.error("%s has no IPv6 default gateway", words.at(0));
  return kNo;
}

int net_address(const Words& words, Output& out) {
  std::array<char, 40> address{};
  if (!is_interface(words.at(0), out)) return kNo;
  const int result = kelo_check_global_ipv6_addr(words.at(0), address.data());
  if (result == 0 && address[0] != '\0' && std::strncmp(address.data(), "fe80", 4) != 0)
    return print_address(address.data(), out);
  out.error("no global IPv6 address was announced for %s", words.at(0));
  return kNo;
}

int net_bridge(const Words& /*words*/, Output& out) {
  std::uint32_t address = 0;
  std::array<char, INET_ADDRSTRLEN> text{};
  if (kelo_util_get_main_bridge_addr(&address) == 0 &&
      inet_ntop(AF_INET, &address, text.data(), text.size()) != nullptr)
    return print_address(text.data(), out);
  out.error("no bridge has an IPv4 address");
  return kNo;
}

// --- The device ---------------------------------------------------------------------------------------------

int info(const Words& /*words*/, Output& out) {
  std::array<char, 65> project{};
  out.text("version", KELO_VERSION);
  out.text("sqlite", sqlite3_libversion());
  out.text("primary", DB_CONFIG);
  out.text("backup", DB_CONFIGBAK);
  out.number("uptime", get_linuxuptime());
  if (kelo_get_project_name_cmdline(project.data(), project.size() - 1) == 0 && project[0] != '\0')
    out.text("project", project.data());
  else
    out.nothing("project");
  return kDone;
}

constexpr Command kCommands[] = {
    {"at", "", "COMMAND [--timeout S]", "send an AT command to the modem", "timeout=", 1, 1, at},
    {"net", "gateway", "INTERFACE", "the IPv6 default gateway of an interface", "", 1, 1, net_gateway},
    {"net", "address", "INTERFACE", "wait for a global IPv6 address of an interface", "", 1, 1, net_address},
    {"net", "bridge", "", "the IPv4 address of the LAN bridge", "", 0, 0, net_bridge},
    {"info", "", "", "the version, the project and the uptime", "", 0, 0, info},
};

}  // namespace

std::span<const Command> device_commands() { return kCommands; }

}  // namespace kelo::ctl
