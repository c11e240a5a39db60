// SPDX-License-Identifier: MIT
// A modem's AT service that answers by a script, for the tests and the demo.
#ifndef KELO_TOOLS_MODEM_HPP
#define KELO_TOOLS_MODEM_HPP

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tools/modem/script.hpp"

namespace kelo::modem {

// Serves UDP port 5555 of the loopback interface on a thread of its own from construction to destruction.
class Modem {
 public:
  // Throws std::system_error when the port cannot be bound. `on_command` is called on the modem's thread with
  // each command as it arrived, before the answer.
  explicit Modem(Script script, std::function<void(const std::string&)> on_command = nullptr);
  ~Modem();
  Modem(const Modem&) = delete;
  Modem& operator=(const Modem&) = delete;

  // The datagrams that arrived so far.
  [[nodiscard]] std::vector<std::string> received() const;

 private:
  class Descriptor {
   public:
    Descriptor(int fd, const char* what);
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return fd_; }

   private:
    const int fd_;
  };

  void serve();
  [[nodiscard]] bool stops_within(std::chrono::milliseconds pause) const;

  const Script script_;
  const std::function<void(const std::string&)> on_command_;
  const Descriptor service_;
  const Descriptor stranger_;
  const Descriptor stop_;
  mutable std::mutex mutex_;  // guards received_
  std::vector<std::string> received_;
  std::thread thread_;
};

}  // namespace kelo::modem

#endif  // KELO_TOOLS_MODEM_HPP
