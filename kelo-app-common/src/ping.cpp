// SPDX-License-Identifier: MIT
// Tells whether a host answers to a ping.
#include <cstddef>
#include <cstdint>

#include "base/text_builder.hpp"
#include "kelo-app-common/src/shell_text.hpp"
#include "kelo_utils/app_common.h"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

constexpr std::size_t kCommandSize = 256;  // bytes, terminator included
constexpr int kTries = 3;
constexpr int kNoHost = 3;

}  // namespace

int kelo_ping_state(const char* host) {
  if (host == nullptr) return kNoHost;
  const kelo::base::FixedText<kCommandSize> command("ping -c 2 -W 3 %s > /dev/null 2>&1", host);
  const bool refused = !command.cut() && kelo::common::shell_acts_on(host);
  for (int tries = 0; tries < kTries; ++tries) {
    // This is the length before the cut, so a command that did not fit is refused.
    const auto length = static_cast<std::uint32_t>(command.full_size());
    const bool answered = !refused && kelo_system_call_ex(command.c_str(), length) == 0;
    KELO_LOG(LOG_LVL_DBUG, ">>>ping status:%s>>>\n", answered ? "success" : "fail");
    if (answered) return 0;
  }
  return -1;
}
