// SPDX-License-Identifier: MIT
// Counts the processes with a given name.
#include <array>
#include <cstddef>
#include <span>

#include "base/decimal.hpp"
#include "base/fatal.hpp"
#include "base/pipe_stream.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

constexpr std::size_t kCommandSize = 128;  // bytes, terminator included
constexpr std::size_t kMostDigits = 16;

}  // namespace

int kelo_check_process_exist(const char* name) {
  if (name == nullptr) return kelo::log::param_null(__func__);
  const kelo::base::FixedText<kCommandSize> command("ps | grep -v grep | grep -c %s", name);
  if (command.cut()) kelo::base::fatal(kelo::base::kSystemCode);
  const auto pipe = kelo::base::PipeStream::reading(command.c_str());
  if (!pipe) return 0;
  std::array<char, kMostDigits + 1> digits{};
  if (pipe.read(std::span(digits).first<kMostDigits>()) == 0) return -1;
  return kelo::base::leading_decimal(digits.data()).value_or(0);
}
