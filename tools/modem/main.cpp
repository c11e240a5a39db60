// SPDX-License-Identifier: MIT
// The scripted modem as a program, to try a daemon's AT commands by hand. Usage: kelo_scripted_modem SCRIPT
// Prints each command that arrives, and ends on SIGINT or SIGTERM.
#include <signal.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tools/modem/modem.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "Usage: kelo_scripted_modem SCRIPT\n");
    return 2;
  }
  // Blocked before the modem's thread begins, which inherits this.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    std::ifstream file(argv[1]);
    if (!file) throw std::runtime_error("cannot be read");
    const kelo::modem::Modem modem(kelo::modem::read_script(file), [](const std::string& command) {
      std::printf("%s\n", command.substr(0, command.find('\r')).c_str());
    });
    std::printf("listening on 127.0.0.1, UDP port 5555\n");
    int signal = 0;
    sigwait(&ends, &signal);
    return 0;
  } catch (const std::exception& mistake) {
    std::fprintf(stderr, "%s: %s\n", argv[1], mistake.what());
    return 1;
  }
}
