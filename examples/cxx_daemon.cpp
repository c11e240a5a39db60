/* SPDX-License-Identifier: MIT */
/*
 * C++: the store, a subscription, a timer, a program and an INI file as objects that end by themselves.
 *
 * The face is made of headers alone. A result carries a value or the code of a failure, and nothing is thrown.
 *
 * Build: c++ -pthread -o cxx_daemon cxx_daemon.cpp $(pkg-config --cflags --libs kelo_utils_sqlite)
 *
 * Prints:
 *   MTU 1500, APN internet
 *   the APN is now fixed.wireless
 *   a text of no bytes: code -7
 *   no such item: code -3, so MTU 1280
 *   tick 1
 *   tick 2
 *   tick 3
 *   uname: Linux
 *   port 8443
 */
#include <kelo_utils/kelo.hpp>

#include <semaphore.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

enum : std::int32_t { kMtu = 2301, kApn = 2302, kUnknown = 2399 };

kelo_dm_item items[] = {
    KELO_DM_ITEM(kMtu, "wan", "mtu", KELO_DM_TYPE_SCALAR3, 1500, 4),
    KELO_DM_TEXT_ITEM(kApn, "wan", "apn", "internet"),
    KELO_DM_END,
};

bool use_settings(const kelo::Store& store) {
  const auto mtu = store.item<std::uint32_t>(kMtu);
  const auto apn = store.item<std::string>(kApn);
  if (!store.store_defaults()) return false;
  std::printf("MTU %u, APN %s\n", mtu.get().value_or(0), apn.get().value_or("none").c_str());

  // It lasts as long as the object.
  const auto subscription = apn.on_change([](const kelo::Result<std::string>& value) {
    if (value) std::printf("the APN is now %s\n", value.value().c_str());
  });
  if (!subscription || !apn.set("fixed.wireless")) return false;
  std::printf("a text of no bytes: code %d\n", apn.set("").code());

  const auto missing = store.item<std::uint32_t>(kUnknown).get();
  std::printf("no such item: code %d, so MTU %u\n", missing.code(), missing.value_or(1280));
  return true;
}

bool tick_three_times() {
  sem_t finished;
  int ticks = 0;
  if (sem_init(&finished, 0, 0) != 0) return false;
  kelo_timer_init();  // once in a process
  kelo::Timer timer;
  const auto tick = [&] {
    if (ticks == 3) return;  // it has expired once more before it was stopped
    std::printf("tick %d\n", ++ticks);
    if (ticks == 3 && timer.stop()) sem_post(&finished);
  };
  if (!timer.every(std::chrono::milliseconds(20), tick)) return false;
  while (sem_wait(&finished) != 0) continue;
  return true;  // the end of the timer waits until the tick has returned
}

}  // namespace

int main() {
  kelo::StoreOptions options;
  options.items = items;
  const auto store = kelo::Store::open(options);
  if (!store || !use_settings(store.value()) || !tick_three_times()) return EXIT_FAILURE;

  const auto ended = kelo::run({"uname", "-s"}, std::chrono::seconds(5));
  if (!ended || ended.value().exit_code != 0) return EXIT_FAILURE;
  std::printf("uname: %s", ended.value().output.c_str());

  const kelo::Ini file("/tmp/kelo_cxx_example.ini");
  if (!file.set_number("server", "port", 8443)) return EXIT_FAILURE;
  std::printf("port %d\n", file.number("server", "port", 80));
  return std::remove(file.file().c_str());
}
