// SPDX-License-Identifier: MIT
// The settings of a small daemon with the C++ face. by_c.cpp does the same with the C functions.
#include "kelo_utils/kelo.hpp"
#include "kelo_utils/log.h"

struct Limits {
  std::int32_t low;
  std::int32_t high;
};

constexpr char kApn[] = "internet";

kelo_dm_item items[] = {
    KELO_DM_ITEM(1, "net", "channel", KELO_DM_TYPE_SCALAR3, 6, 4),
    KELO_DM_ITEM(2, "net", "visible", KELO_DM_TYPE_SCALAR1, 1, 1),
    KELO_DM_ITEM(3, "net", "limits", KELO_DM_TYPE_BUFFER, 0, 0),
    KELO_DM_ITEM(4, "net", "apn", KELO_DM_TYPE_STRING, KELO_DM_TEXT(kApn), sizeof kApn - 1),
    KELO_DM_ITEM(5, "net", "mtu", KELO_DM_TYPE_SCALAR3, 1500, 4),
    KELO_DM_ITEM(6, "net", "retries", KELO_DM_TYPE_SCALAR3, 3, 4),
    KELO_DM_ITEM(7, "net", "power", KELO_DM_TYPE_SCALAR3, 20, 4),
    KELO_DM_ITEM(8, "net", "roaming", KELO_DM_TYPE_SCALAR1, 0, 1),
    KELO_DM_END,
};

std::int32_t use(std::int32_t channel, bool visible, const Limits& limits);
std::int32_t serve();

static std::int32_t run_with(const kelo::Store& store) {
  const auto channel = store.item<std::int32_t>(1);
  const auto visible = store.item<bool>(2);
  const auto limits = store.item<Limits>(3);

  const auto number = channel.get();
  if (!number) return number.code();
  const auto shown = visible.get();
  if (!shown) return shown.code();
  const auto range = limits.get();
  if (!range) return range.code();
  KELO_LOG(LOG_LVL_INFO, "channel %d, visible %d, limits %d to %d\n", number.value(), shown.value() ? 1 : 0,
           range.value().low, range.value().high);
  std::int32_t next = use(number.value(), shown.value(), range.value());
  next += store.item<std::int32_t>(5).get().value_or(1500);
  next += store.item<std::int32_t>(6).get().value_or(3);
  next += store.item<std::int32_t>(7).get().value_or(20);
  next += store.item<bool>(8).get().value_or(false) ? 1 : 0;
  if (const auto stored = store.item<std::int32_t>(5).set(next - 20); !stored) return stored.code();
  if (const auto stored = store.item<std::int32_t>(7).set(next + 1); !stored) return stored.code();
  if (const auto stored = channel.set(next); !stored) return stored.code();
  if (const auto stored = visible.set(next > 6); !stored) return stored.code();
  if (const auto stored = limits.set({next, next + 4}); !stored) return stored.code();
  if (const auto done = visible.reset(); !done) return done.code();
  return 0;
}

std::int32_t serve() {
  kelo::StoreOptions options;
  options.items = items;
  options.use_sqlite = true;
  const auto store = kelo::Store::open(options);
  if (!store) {
    KELO_LOG(LOG_LVL_ERR, "the items cannot be registered: %d\n", store.code());
    return store.code();
  }
  return run_with(store.value());
}
