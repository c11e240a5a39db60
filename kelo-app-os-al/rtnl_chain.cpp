// SPDX-License-Identifier: MIT
// Reads the records of a netlink chain one after another.
#include "kelo-app-os-al/rtnl_chain.hpp"

namespace kelo::os {
namespace {

constexpr std::size_t kAlignment = 4;
static_assert(kAlignment == NLMSG_ALIGNTO);
static_assert(kAlignment == RTA_ALIGNTO);

std::size_t length_of(const nlmsghdr& header) { return header.nlmsg_len; }
std::size_t length_of(const rtattr& header) { return header.rta_len; }

}  // namespace

template <typename Header>
std::optional<RtnlRecord<Header>> RtnlChain<Header>::next() {
  const auto header = leading<Header>(left_);
  if (!header) return {};
  const std::size_t length = length_of(*header);
  if (length < sizeof(Header) || length > left_.size()) return {};
  const RtnlRecord<Header> record{*header, left_.first(length)};
  left_ = after(left_, (length + kAlignment - 1) / kAlignment * kAlignment);
  return record;
}

template class RtnlChain<nlmsghdr>;
template class RtnlChain<rtattr>;

}  // namespace kelo::os
