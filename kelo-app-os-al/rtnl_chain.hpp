// SPDX-License-Identifier: MIT
// Reads chains of records of the routing family of netlink: messages in a datagram and attributes in a message. Each
// record begins with its length. The length may be wrong, because other processes can send datagrams, too.
#ifndef KELO_APP_OS_AL_RTNL_CHAIN_HPP
#define KELO_APP_OS_AL_RTNL_CHAIN_HPP

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <type_traits>

namespace kelo::os {

using ByteSpan = std::span<const std::byte>;

// Returns the bytes after the first `count`, which may be none.
inline ByteSpan after(ByteSpan bytes, std::size_t count) {
  return bytes.subspan(std::min(count, bytes.size()));
}

// Returns the value at the start of the bytes, or nothing when there are too few bytes. The value is copied, because
// it may not be aligned.
template <typename Value>
std::optional<Value> leading(ByteSpan bytes) {
  static_assert(std::is_trivially_copyable_v<Value>);
  if (bytes.size() < sizeof(Value)) return {};
  Value value;
  std::memcpy(&value, bytes.data(), sizeof(Value));
  return value;
}

inline std::size_t length_of(const nlmsghdr& header) { return header.nlmsg_len; }
inline std::size_t length_of(const rtattr& header) { return header.rta_len; }

template <typename Header>
struct RtnlRecord {
  Header header;
  ByteSpan bytes;  // the whole record with its header

  [[nodiscard]] ByteSpan payload() const { return after(bytes, sizeof(Header)); }
};

// Returns complete records only, and ends at the first record with an impossible length.
template <typename Header>
class RtnlChain {
 public:
  explicit RtnlChain(ByteSpan bytes) : left_(bytes) {}

  std::optional<RtnlRecord<Header>> next() {
    const auto header = leading<Header>(left_);
    if (!header) return {};
    const std::size_t length = length_of(*header);
    if (length < sizeof(Header) || length > left_.size()) return {};
    const RtnlRecord<Header> record{*header, left_.first(length)};
    left_ = after(left_, (length + kAlignment - 1) / kAlignment * kAlignment);
    return record;
  }

 private:
  static constexpr std::size_t kAlignment = 4;
  static_assert(kAlignment == NLMSG_ALIGNTO);
  static_assert(kAlignment == RTA_ALIGNTO);

  ByteSpan left_;
};

using RtnlMessages = RtnlChain<nlmsghdr>;
using RtnlAttributes = RtnlChain<rtattr>;

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_RTNL_CHAIN_HPP
