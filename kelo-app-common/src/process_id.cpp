// SPDX-License-Identifier: MIT
// Finds the id of a process by its name.
#include <array>
#include <span>

#include "base/decimal.hpp"
#include "base/line_reader.hpp"
#include "base/pipe_stream.hpp"
#include "base/text_builder.hpp"
#include "kelo-app-common/src/shell_text.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

constexpr std::size_t kCommandSize = 256;  // bytes, terminator included
constexpr std::size_t kLineSize = 256;     // bytes, terminator included

// Reads the number at the start of the first line. Returns -1 when there is no line or no number.
int read_process_id(const kelo::base::PipeStream& processes) {
  std::array<char, kLineSize> line;
  kelo::base::LineReader lines(processes.descriptor(), std::span(line).first<kLineSize - 1>());
  line[lines.next().size()] = '\0';
  return kelo::base::leading_decimal(line.data()).value_or(-1);
}

}  // namespace

std::int32_t oem_get_pid_by_name(const char* name) {
  if (name == nullptr) return kelo::log::param_null(__func__);
  const kelo::base::FixedText<kCommandSize> command("ps -e | grep %s | grep -v grep", name);
  // A command that was cut must not run.
  if (!command.cut()) {
    if (kelo::common::shell_acts_on(name)) return -1;
    const auto processes = kelo::base::PipeStream::reading(command.c_str());
    if (processes) return read_process_id(processes);
  }
  KELO_LOG(LOG_LVL_ERR, "command popen error!!!\n");
  return -1;
}
