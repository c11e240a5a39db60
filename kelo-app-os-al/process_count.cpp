// How many processes bear a name.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "base/fatal.hpp"
#include "base/pipe_stream.hpp"
#include "kelo-app-os-al/fatal_path.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

constexpr std::size_t kCommandSize = 128;  // bytes, terminator included
constexpr std::size_t kMostDigits = 16;

}  // namespace

int kelo_check_process_exist(const char* name) {
  if (name == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return -1;
  }
  std::array<char, kCommandSize> command;
  const int length = std::snprintf(command.data(), command.size(), "ps | grep -v grep | grep -c %s", name);
  if (length < 0 || static_cast<std::size_t>(length) >= command.size())
    kelo::base::fatal(kelo::os::kFatalPath, __LINE__);
  const auto pipe = kelo::base::PipeStream::reading(command.data());
  if (!pipe) return 0;
  std::array<char, kMostDigits + 1> digits{};
  if (pipe.read(std::span(digits).first<kMostDigits>()) == 0) return -1;
  // A count beyond the range of an int is the same on every machine, however wide its long is.
  return static_cast<int>(std::clamp<long>(std::strtol(digits.data(), nullptr, 10), INT_MIN, INT_MAX));
}
