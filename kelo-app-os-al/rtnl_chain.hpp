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

  std::optional<RtnlRecord<Header>> next();

 private:
  ByteSpan left_;
};

extern template class RtnlChain<nlmsghdr>;
extern template class RtnlChain<rtattr>;
using RtnlMessages = RtnlChain<nlmsghdr>;
using RtnlAttributes = RtnlChain<rtattr>;

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_RTNL_CHAIN_HPP
