/* SPDX-License-Identifier: MIT */
/**
 * @file run.hpp
 * @brief The C++ face: programs that run supervised, with their output as text.
 *
 *     const auto listing = kelo::run({"ip", "-6", "route"}, std::chrono::seconds(2));
 *     if (listing && listing.value().exit_code == 0) parse(listing.value().output);
 */
#ifndef KELO_UTILS_KELO_RUN_HPP
#define KELO_UTILS_KELO_RUN_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "kelo_utils/command.h"
#include "kelo_utils/kelo/result.hpp"
#include "kelo_utils/run.h"

namespace kelo {

/** Bytes of output that are kept when a caller does not say another number. */
inline constexpr std::int32_t kMostOutput = 4096;

/** @cond */
namespace face_detail {

// Has `call` write text into a buffer of `most` bytes and a terminator.
template <class Call>
std::int32_t capture(std::string& text, std::int32_t most, Call call) {
  text.assign(most > 0 ? static_cast<std::size_t>(most) + 1 : 1, '\0');
  const std::int32_t code = call(&text[0], static_cast<std::int32_t>(text.size()));
  text.resize(std::strlen(text.c_str()));
  return code;
}

inline std::int32_t milliseconds_of(std::chrono::milliseconds time) {
  return time.count() > INT32_MAX ? INT32_MAX
         : time.count() < 0       ? 0
                                  : static_cast<std::int32_t>(time.count());
}

}  // namespace face_detail
/** @endcond */

#ifndef KELO_NO_ADDITIONS

/** How a program has ended. */
struct Ended {
  std::string output;          /**< standard output and standard error together, up to the first NUL */
  std::int32_t exit_code = -1; /**< 0 to 255; -1 when the program has not exited */
  std::int32_t signal = 0;     /**< number of the signal that ended the program; 0 when none did */
};

/**
 * Runs a program without a shell, as kelo_run() does.
 * @param arguments    the words of the command, with a null pointer after the last one. The first is the program.
 * @param limit        limit of time for the whole run, 1 ms or more.
 * @param most_output  bytes of output to keep, less than INT32_MAX; 0 or less for none.
 * @return success when the program has exited, with any exit code; the code is a ::kelo_run_result, otherwise.
 *         The value is complete also when a signal ended the program (code 1). After a time-out it has the
 *         output until then.
 * @par Blocking
 * It blocks until the program has ended, for `limit` at most.
 * @par Threads
 * Any thread may call it at any time. SIGCHLD is blocked in the calling thread meanwhile. It is not for signal
 * handlers.
 */
inline Result<Ended> run(const char* const* arguments, std::chrono::milliseconds limit,
                         std::int32_t most_output = kMostOutput) {
  return Result<Ended>::filled_by([&](Ended& ended) {
    std::int32_t number = 0;
    const std::int32_t code =
        face_detail::capture(ended.output, most_output, [&](char* text, std::int32_t size) {
          return kelo_run(arguments, face_detail::milliseconds_of(limit), text, size, &number);
        });
    if (code == KELO_RUN_EXITED) ended.exit_code = number;
    if (code == KELO_RUN_KILLED) ended.signal = number;
    return code;
  });
}

/**
 * Runs a program without a shell, as kelo_run() does.
 * @param arguments    the words of the command. The first is the program.
 * @param limit        limit of time for the whole run, 1 ms or more.
 * @param most_output  bytes of output to keep, less than INT32_MAX; 0 or less for none.
 * @return as the other function of this name.
 * @par Blocking
 * It blocks until the program has ended, for `limit` at most.
 * @par Threads
 * Any thread may call it at any time. SIGCHLD is blocked in the calling thread meanwhile. It is not for signal
 * handlers.
 */
inline Result<Ended> run(std::initializer_list<const char*> arguments, std::chrono::milliseconds limit,
                         std::int32_t most_output = kMostOutput) {
  std::vector<const char*> words(arguments);
  words.push_back(nullptr);
  return run(words.data(), limit, most_output);
}

/**
 * Runs a program without a shell, as kelo_run() does.
 * @param arguments    the words of the command. The first is the program. A word ends at its first NUL.
 * @param limit        limit of time for the whole run, 1 ms or more.
 * @param most_output  bytes of output to keep, less than INT32_MAX; 0 or less for none.
 * @return as the other function of this name.
 * @par Blocking
 * It blocks until the program has ended, for `limit` at most.
 * @par Threads
 * Any thread may call it at any time. SIGCHLD is blocked in the calling thread meanwhile. It is not for signal
 * handlers.
 */
inline Result<Ended> run(const std::vector<std::string>& arguments, std::chrono::milliseconds limit,
                         std::int32_t most_output = kMostOutput) {
  std::vector<const char*> words;
  words.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) words.push_back(argument.c_str());
  words.push_back(nullptr);
  return run(words.data(), limit, most_output);
}

#endif /* KELO_NO_ADDITIONS */

/**
 * Runs one of the system tools, and kills it when it is silent for 2 seconds, as kelo_ds_system_call3() does.
 * @param command      the command line, as for that function. It is not logged.
 * @param most_output  bytes of output to keep, less than INT32_MAX; 0 or less for none.
 * @return the output of a tool that exited with code 0; else the code -1, with the output until then, error
 *         messages included, as the value.
 * @par Blocking
 * It blocks until the command has ended or has been silent for 2 seconds.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline Result<std::string> run_tool(const char* command, std::int32_t most_output = kMostOutput) {
  return Result<std::string>::filled_by([&](std::string& output) {
    return face_detail::capture(output, most_output, [&](char* text, std::int32_t size) {
      return kelo_ds_system_call3(command, 0, text, size, 0);
    });
  });
}

}  // namespace kelo

#endif /* KELO_UTILS_KELO_RUN_HPP */
