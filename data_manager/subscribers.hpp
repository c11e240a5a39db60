// SPDX-License-Identifier: MIT
// The subscribers to changes of items, which are an optional addition.
#ifndef KELO_DATA_MANAGER_SUBSCRIBERS_HPP
#define KELO_DATA_MANAGER_SUBSCRIBERS_HPP

#include <cstdint>

namespace kelo::dm {

// Calls the subscribers in the order of their subscription. It is not in a library without the additions.
void announce_to_subscribers(std::int32_t id, const void* data, std::int32_t len);

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_SUBSCRIBERS_HPP
