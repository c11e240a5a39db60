// SPDX-License-Identifier: MIT
// Sends one AT command to the modem's service and receives the reply, over UDP on the loopback interface.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "base/deadline.hpp"
#include "base/fatal.hpp"
#include "base/file.hpp"
#include "base/heap.hpp"
#include "kelo-app-common/src/at_reply.hpp"
#include "kelo-app-common/src/at_service.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

// All messages carry the name of the exported function.
#define AT_LOG(level, ...) KELO_LOG_AS("kelo_util_send_at", level, __VA_ARGS__)

namespace {

using kelo::base::Descriptor;
using kelo::base::HeapPtr;
using kelo::base::kCommonCode;
using kelo::base::retry_interrupted;
using kelo::base::zeroed_or_fatal;

constexpr int kAttempts = 3;
constexpr unsigned kWaitMilliseconds = 20000;
constexpr char kFailure[] = "\r\nERROR\r\n";

// Waits until a datagram arrives or the time is over. A signal does not end the wait.
bool wait_for_arrival(int fd, const kelo::base::Deadline& end) {
  // select() does not support descriptors from 1024 on, so poll() is used. The message still says select.
  pollfd socket = {fd, POLLIN, 0};
  const int ready = retry_interrupted([&] {
    const int left = end.milliseconds_left();
    // When the time is over, poll() is not called again: other hosts may send so much that it would always succeed.
    return left == 0 ? 0 : poll(&socket, 1, left);
  });
  if (ready > 0) return true;
  AT_LOG(LOG_LVL_ERR, "select fail:ret=%d\n", ready);
  return false;
}

void log_search(const char* result) { AT_LOG(LOG_LVL_DBUG, "str_end_rsp[k]=%s\r\n", result); }

void log_misplaced(const char* search_start, const char* found) {
  AT_LOG(LOG_LVL_DBUG, "no correct end:<%s>,<%s>,<%d>\r\n", search_start, found - 1,
         static_cast<unsigned char>(found[-1]));
}

// One exchange. It collects the reply in the caller's buffer.
class Exchange {
 public:
  // `command` is the text to send and `length` its length.
  Exchange(std::span<char> reply, const char* command, std::size_t length)
      : reply_(reply), command_(command), length_(length) {}

  // Returns false when no complete reply has arrived.
  bool run() {
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) {
      AT_LOG(LOG_LVL_ERR, "socket error [%s]%d\n", std::strerror(errno), errno);
      return false;
    }
    if (!send(socket.get())) return false;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
      if (!receive_datagram(socket.get(), attempt)) continue;
      if (attempt == 1 && kelo::at::strip_echo(reply_, command_))
        length_of_reply_ = std::strlen(reply_.data());
      if (kelo::at::has_final_result(reply_.data(), log_search, log_misplaced)) return true;
    }
    return false;
  }

 private:
  bool send(int fd) const {
    AT_LOG(LOG_LVL_INFO, "send at cmd:[%d,%s]\n", static_cast<int>(length_), command_);
    const sockaddr_in service = kelo::at::service_address();
    const auto* const address = reinterpret_cast<const sockaddr*>(&service);
    // The socket is not connected: a missing service must lead to a timeout and not to an error, and a service may
    // answer from any port.
    const ssize_t sent =
        retry_interrupted([&] { return sendto(fd, command_, length_, 0, address, sizeof service); });
    return sent == static_cast<ssize_t>(length_);
  }

  // Appends one datagram to the reply. Datagrams from other hosts are dropped, and the wait continues for the remaining
  // time of the attempt.
  bool receive_datagram(int fd, int attempt) {
    const kelo::base::Deadline end(kWaitMilliseconds);
    // If the buffer is full, the datagram counts as one of 0 bytes.
    const std::span<char> room = reply_.subspan(length_of_reply_, reply_.size() - 1 - length_of_reply_);
    sockaddr_in sender{};
    ssize_t received = 0;
    do {
      std::fill(room.begin(), room.end(), '\0');
      if (!wait_for_arrival(fd, end)) return false;
      socklen_t length = sizeof sender;
      received =
          recvfrom(fd, room.data(), room.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &length);
    } while (received >= 0 && !kelo::at::is_of_this_host(sender));
    if (received < 0) {
      AT_LOG(LOG_LVL_ERR, "recvfrom fail:error=%d,[%s]\n", errno, std::strerror(errno));
      return false;
    }
    const std::size_t length_before = length_of_reply_;
    length_of_reply_ += static_cast<std::size_t>(received);
    AT_LOG(LOG_LVL_INFO, "recvfrom[%d,%d] %d bytes:[%d, %s]\n", attempt, static_cast<int>(length_before),
           static_cast<int>(received), static_cast<int>(length_of_reply_), reply_.data());
    return true;
  }

  const std::span<char> reply_;  // the last byte is always zero
  const char* const command_;
  const std::size_t length_;
  std::size_t length_of_reply_ = 0;
};

bool exchange(std::span<char> reply, const char* command) {
  const HeapPtr<char[]> prepared =
      zeroed_or_fatal(std::strlen(command) + kelo::at::kPreparedExtra, kCommonCode);
  const std::size_t length = kelo::at::prepare_command(command, prepared.get());
  return Exchange(reply, prepared.get(), length).run();
}

}  // namespace

char* kelo_util_send_at(const char* command) {
  HeapPtr<char[]> reply = zeroed_or_fatal(KELO_AT_REPLY_SIZE, kCommonCode);
  bool complete = false;
  if (command == nullptr) {
    kelo::log::param_null(__func__);
  } else {
    complete = exchange({reply.get(), KELO_AT_REPLY_SIZE}, command);
  }
  if (!complete) std::memcpy(reply.get(), kFailure, sizeof kFailure);
  return reply.release();
}
