// SPDX-License-Identifier: MIT
// store watch: prints each setting that a daemon changes, as soon as it is stored.
#include "kelo_utils/watch.h"

#ifndef KELO_NO_ADDITIONS
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tools/keloctl/channel.hpp"
#include "tools/keloctl/items.hpp"
#include "tools/keloctl/store.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {{"table", 12}, {"key", 20},  {"id", 6},
                               {"state", 12}, {"value", 0}, {"hex", kHidden}};
constexpr int kRetryMilliseconds = 1000;

struct Watching {
  Output& out;
  long long left;      // changes to print; not above 0 when there is no end
  bool ended = false;  // all are printed, or the output takes no more
};

// The end, by a signal or by the time, is read from a descriptor, so that it interrupts no look at the store.
base::Descriptor open_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGALRM}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return base::Descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

// Takes the number that an option has, from 1 to 65535. It stays as it is when the option is not given.
bool take_number(const char* text, const char* name, long long& number, Output& out) {
  if (text == nullptr) return true;
  const Bytes bytes = from_number(text, sizeof(std::uint16_t));
  std::uint16_t value = 0;
  if (bytes && text[0] != '-') std::memcpy(&value, bytes.c_str(), sizeof value);
  number = value;
  if (value == 0) out.error("%s is not a number from 1 to 65535, as --%s takes", text, name);
  return value != 0;
}

void print_value(const Item& item, Output& out) {
  const bool there = item.stored && item.state != State::empty;
  const Bytes shown = there ? shown_value(item.type, item.value) : Bytes();
  out.text(words_of(item.state), item.state == State::bad_checksum ? Tone::bad : Tone::plain);
  if (shown)
    out.text(shown.view());
  else
    out.nothing();
  if (there)
    out.hex(item.value);
  else
    out.nothing();
}

// Prints what is stored now. A setting that has no row any more, and no default, is gone.
void print_present(const char* table, const char* key, Output& out) {
  Settings settings;
  bool found = false;
  const bool readable = settings.open(out) == kDone && settings.each(table, out, [&](const Item& item) {
    found = std::strcmp(item.key, key) == 0;
    if (found) print_value(item, out);
    return !found;
  }) == kDone;
  if (found) return;
  out.forget_error();
  out.text(readable ? "gone" : "unreadable", readable ? Tone::plain : Tone::bad);
  out.nothing();
  out.nothing();
}

void print_change(std::int32_t id, const char* table, const char* key, void* context) {
  auto& watching = *static_cast<Watching*>(context);
  Output& out = watching.out;
  out.begin_line("change", kColumns);
  out.text(table);
  out.text(key);
  out.number(id);
  print_present(table, key, out);
  watching.ended = !out.end_line() || --watching.left == 0;
  if (watching.ended) kelo_dm_watch(nullptr, nullptr);
}

// Returns the signal that has ended the watch, or 0 when it has ended by itself.
int watch_until_end(int changes, int signals, Watching& watching) {
  for (int milliseconds = -1;;) {
    pollfd events[] = {{signals, POLLIN, 0}, {changes, POLLIN, 0}};
    poll(events, 2, milliseconds);
    signalfd_siginfo signal{};
    if (events[0].revents != 0 && read(signals, &signal, sizeof signal) == sizeof signal)
      return static_cast<int>(signal.ssi_signo);
    const std::int32_t told = kelo_dm_watch_dispatch(print_change, &watching);
    if (watching.ended) return 0;
    milliseconds = told == KELO_DM_WATCH_FAILED ? kRetryMilliseconds : -1;
  }
}

int failed_begin(Output& out) {
  out.error("the store cannot be watched: %s",
            *reason_of_failure() != '\0' ? reason_of_failure() : "the folder or the rows cannot be read");
  return waited_in_vain() ? kTimeOut : kStorage;
}

}  // namespace

int store_watch(const Words& words, Output& out) {
  Watching watching{out, 0};
  long long seconds = 0;
  if (!take_number(words.option("count"), "count", watching.left, out) ||
      !take_number(words.option("timeout"), "timeout", seconds, out))
    return kUsage;
  const bool has_count = watching.left != 0;
  const std::int32_t changes = kelo_dm_watch_fd();
  const base::Descriptor signals = open_signals();
  if (!signals || changes < 0) return failed_begin(out);
  // A script waits for this line before it makes a change.
  std::fputs("watching\n", stderr);
  alarm(static_cast<unsigned>(seconds));
  if (watch_until_end(changes, signals.get(), watching) != SIGALRM || !has_count) return kDone;
  out.error("%lld more changes did not come in time", watching.left);
  return kTimeOut;
}

}  // namespace kelo::ctl
#endif
