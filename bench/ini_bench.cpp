// SPDX-License-Identifier: MIT
// Settings files, against the plainest code that does no more than read the lines of the file.
#include "kelo_utils/ini.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "bench/ratio.hpp"

namespace {

constexpr char kPath[] = "/tmp/settings.ini";
constexpr int kLines = 200;

// Ten sections, of whose lines some are comments.
void make_file() {
  std::ofstream file(kPath, std::ios::trunc);
  for (int i = 0; i < kLines; ++i) {
    if (i % 20 == 0) {
      file << "[section" << i / 20 << "]\n";
    } else if (i % 20 == 1) {
      file << "; what the keys of this section are for\n";
    } else {
      file << "key" << i << " = value " << i << "\n";
    }
  }
}

// Opens the file, takes every line and closes it: every reader of lines must do this.
int count_lines() {
  std::FILE* const file = std::fopen(kPath, "rb");
  if (file == nullptr) return 0;
  std::array<char, INI_BUFFERSIZE> line;
  int count = 0;
  while (std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr) ++count;
  std::fclose(file);
  return count;
}

void read_the_last_key(benchmark::State& state) {
  make_file();
  std::array<char, 64> value{};
  int lines = 0;
  kelo::bench::compare(
      state,
      [&] {
        ini_gets("section9", "key199", "", value.data(), static_cast<int>(value.size()), kPath);
        benchmark::DoNotOptimize(value);
      },
      [&] { lines = count_lines(); });
  if (std::strcmp(value.data(), "value 199") != 0 || lines != kLines) state.SkipWithError("not the last key");
}
BENCHMARK(read_the_last_key)->UseManualTime()->Unit(benchmark::kMicrosecond);

void browse_all_keys(benchmark::State& state) {
  make_file();
  int keys = 0;
  const auto count = [](const char*, const char*, const char* value, void* counter) {
    benchmark::DoNotOptimize(value);
    return ++*static_cast<int*>(counter);
  };
  int lines = 0;
  kelo::bench::compare(
      state,
      [&] {
        keys = 0;
        ini_browse(count, &keys, kPath);
      },
      [&] { lines = count_lines(); });
  if (keys != kLines / 20 * 18 || lines != kLines) state.SkipWithError("not every key");
}
BENCHMARK(browse_all_keys)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The value is there already, so the file is only read.
void set_the_value_that_is_there(benchmark::State& state) {
  make_file();
  int result = 1;
  int lines = 0;
  kelo::bench::compare(
      state, [&] { result &= ini_puts("section9", "key199", "value 199", kPath); },
      [&] { lines = count_lines(); });
  if (result != 1 || lines != kLines) state.SkipWithError("not set");
}
BENCHMARK(set_the_value_that_is_there)->UseManualTime()->Unit(benchmark::kMicrosecond);

constexpr char kLongPath[] = "/tmp/long.ini";
constexpr char kCopyPath[] = "/tmp/copy.ini";
constexpr int kKeys = 1000;

void make_long_file(const char* path) {
  std::ofstream file(path, std::ios::trunc);
  file << "[section]\n";
  for (int i = 0; i < kKeys; ++i) file << "key" << i << " = value " << i << "\n";
}

// Copies the file line by line with another line in the place of one, and puts the copy into its place. The library also
// takes over the owner and the mode, and syncs the folder.
bool copy_with_line(const char* key, const char* line) {
  std::FILE* const from = std::fopen(kCopyPath, "rb");
  std::FILE* const to = std::fopen("/tmp/copy.in~", "wb");
  if (from == nullptr || to == nullptr) return false;
  std::array<char, INI_BUFFERSIZE> text;
  while (std::fgets(text.data(), static_cast<int>(text.size()), from) != nullptr) {
    std::fputs(std::strncmp(text.data(), key, std::strlen(key)) == 0 ? line : text.data(), to);
  }
  const bool written = std::fflush(to) == 0 && fsync(fileno(to)) == 0;
  std::fclose(from);
  std::fclose(to);
  return written && std::rename("/tmp/copy.in~", kCopyPath) == 0;
}

// A value of another length in the middle of the file: all of it is written anew.
void set_a_value_of_another_length(benchmark::State& state) {
  make_long_file(kLongPath);
  make_long_file(kCopyPath);
  int result = 1;
  bool copied = true;
  bool longer = false;
  kelo::bench::compare(
      state,
      [&] {
        longer = !longer;
        result &= ini_puts("section", "key500", longer ? "a longer value" : "short", kLongPath);
      },
      [&] { copied &= copy_with_line("key500", longer ? "key500=a longer value\n" : "key500=short\n"); });
  if (result != 1 || !copied) state.SkipWithError("not set");
}
BENCHMARK(set_a_value_of_another_length)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
