// SPDX-License-Identifier: MIT
// The commands that ask the modem and the kernel, and that tell what this program knows of the device.
#include <arpa/inet.h>
#include <net/if.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "base/file.hpp"
#include "kelo_utils/app_common.h"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/command.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {
namespace {

// --- The modem ----------------------------------------------------------------------------------------------

constexpr Column kLineColumns[] = {{"text", 0}};
std::string_view too_late_report;

// The library waits for a minute, and cannot be told to stop: the program ends instead.
void end_by_time_out(int /*signal*/) {
  const bool human = too_late_report.front() == 'k';
  base::write_all(human ? STDERR_FILENO : STDOUT_FILENO, too_late_report);
  // A sanitizer's _exit() would print the beginning of the report that standard output still holds.
  syscall(SYS_exit_group, kTimeOut);
}

bool set_time_out(const char* text, Output& out) {
  const Bytes seconds = from_number(text, 1);
  if (!seconds || text[0] == '-' || seconds.c_str()[0] == 0) {
    out.error("%s is not a number of seconds from 1 to 255", text);
    return false;
  }
  if (out.human())
    too_late_report = "keloctl: the modem did not answer in time\n";
  else if (out.json())
    too_late_report = "{\"lines\":[],\"ok\":false,\"error\":\"the modem did not answer in time\"}\n";
  else
    too_late_report = "ok\tfalse\nerror\tthe modem did not answer in time\n";
  struct sigaction action {};
  action.sa_handler = end_by_time_out;
  sigaction(SIGALRM, &action, nullptr);
  alarm(static_cast<unsigned char>(seconds.c_str()[0]));
  return true;
}

// Prints the lines of a reply. Returns whether the last one is a good result.
bool print_lines(char* reply, Output& out) {
  bool good = false;
  char* rest = nullptr;
  out.begin_list("lines", "line", kLineColumns);
  for (char* line = strtok_r(reply, "\r\n", &rest); line != nullptr;
       line = strtok_r(nullptr, "\r\n", &rest)) {
    out.begin_record();
    out.text(line);
    out.end_record();
    good = std::strcmp(line, "OK") == 0 || std::strcmp(line, "0") == 0;
  }
  out.end_list();
  return good;
}

int at(const Words& words, Output& out) {
  const char* const seconds = words.option("timeout");
  if (seconds != nullptr && !set_time_out(seconds, out)) return kUsage;
  const base::HeapPtr<char> reply(kelo_util_send_at(words.at(0)));
  alarm(0);
  if (print_lines(reply.get(), out)) return kDone;
  out.error("the modem refused the command, or did not answer in time");
  return kNo;
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
