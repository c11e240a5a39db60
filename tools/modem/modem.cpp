// SPDX-License-Identifier: MIT
// A socket that answers AT commands from a script.
#include "tools/modem/modem.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <system_error>
#include <utility>

namespace kelo::modem {
namespace {

constexpr std::uint16_t kPort = 5555;
constexpr std::size_t kLongestDatagram = 65536;

int udp_socket() { return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

struct Command {
  std::string bytes;
  sockaddr_in sender;
};

std::optional<Command> receive(int fd) {
  Command command{std::string(kLongestDatagram, '\0'), {}};
  socklen_t length = sizeof command.sender;
  const ssize_t received = recvfrom(fd, command.bytes.data(), command.bytes.size(), 0,
                                    reinterpret_cast<sockaddr*>(&command.sender), &length);
  if (received < 0) return std::nullopt;
  command.bytes.resize(static_cast<std::size_t>(received));
  return command;
}

std::string without_carriage_return(std::string command) {
  if (command.ends_with('\r')) command.pop_back();
  return command;
}

}  // namespace

Modem::Descriptor::Descriptor(int fd, const char* what) : fd_(fd) {
  if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
}

Modem::Descriptor::~Descriptor() { close(fd_); }

Modem::Modem(Script script, std::function<void(const std::string&)> on_command)
    : script_(std::move(script)),
      on_command_(std::move(on_command)),
      service_(udp_socket(), "the service's socket"),
      stranger_(udp_socket(), "the stranger's socket"),
      stop_(eventfd(0, EFD_CLOEXEC), "eventfd") {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(service_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::system_error(errno, std::generic_category(), "UDP port 5555");
  thread_ = std::thread([this] { serve(); });
}

Modem::~Modem() {
  eventfd_write(stop_.get(), 1);
  thread_.join();
}

std::vector<std::string> Modem::received() const {
  const std::scoped_lock lock(mutex_);
  return received_;
}

bool Modem::stops_within(std::chrono::milliseconds pause) const {
  pollfd stop = {stop_.get(), POLLIN, 0};
  return poll(&stop, 1, static_cast<int>(pause.count())) > 0;
}

void Modem::serve() {
  std::array<pollfd, 2> descriptors = {{{service_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
  while (true) {
    if (poll(descriptors.data(), descriptors.size(), -1) < 0) continue;
    if (descriptors[1].revents != 0) return;
    const std::optional<Command> command = receive(service_.get());
    if (!command) continue;
    {
      const std::scoped_lock lock(mutex_);
      received_.push_back(command->bytes);
    }
    if (on_command_) on_command_(command->bytes);
    const Answer* const answer = script_.find(without_carriage_return(command->bytes));
    if (answer == nullptr) continue;
    for (const Datagram& datagram : answer->datagrams) {
      if (stops_within(datagram.pause)) return;
      const std::string bytes = (datagram.echo ? command->bytes : "") + datagram.bytes;
      sendto((datagram.from_stranger ? stranger_ : service_).get(), bytes.data(), bytes.size(), 0,
             reinterpret_cast<const sockaddr*>(&command->sender), sizeof command->sender);
    }
  }
}

}  // namespace kelo::modem
