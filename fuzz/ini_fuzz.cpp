// SPDX-License-Identifier: MIT
// INI files of any bytes, read by every operation and rewritten by one, each compared with the plain model.
#include <unistd.h>

#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/input.hpp"
#include "kelo_utils/ini.h"
#include "tests/support/ini_model.hpp"

// The file exists for one input only: waiting for the storage would take much time for nothing.
extern "C" int fsync(int /*descriptor*/) { return 0; }
extern "C" int fdatasync(int /*descriptor*/) { return 0; }

namespace {

using kelo::fuzz::require;
using kelo::tests::IniModel;
using Text = IniModel::Text;

constexpr std::array kRooms = {1, 7, 1024};

const char* c_string(const Text& text) { return text ? text->c_str() : nullptr; }

// A folder for this process alone, which is removed at its end.
class Folder {
 public:
  Folder() { require(mkdtemp(path_.data()) != nullptr); }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  [[nodiscard]] std::string file() const { return path_ + "/settings.ini"; }
  [[nodiscard]] std::string temporary() const { return path_ + "/settings.in~"; }

 private:
  std::string path_ = "/tmp/ini_fuzz_XXXXXX";
};

const Folder folder;

std::string bytes_of_file() {
  std::ifstream stream(folder.file(), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// What the input asks for.
struct Request {
  Text section;
  Text key;
  Text value;
  std::string file;
};

// The next line without its end; the line NULL means a null pointer.
Text line(std::string& left) {
  std::string text = left.substr(0, left.find('\n'));
  left.erase(0, text.size() + 1);
  text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
  return text == "NULL" ? Text() : Text(text);
}

// Runs a call with buffers of different sizes, each in a block of that size, and compares what it gives with
// `expected` for that size.
template <typename Call, typename Expected>
void with_buffers(const Call& call, const Expected& expected) {
  for (const int room : kRooms) {
    std::vector<char> buffer(static_cast<std::size_t>(room), 'Z');
    const int length = call(buffer.data(), room);
    require(length >= 0 && length < room);
    expected(IniModel::Answer{length, buffer.data()}, buffer.size());
  }
}

void read_values(const Request& request, const IniModel& model) {
  const char* const section = c_string(request.section);
  const char* const key = c_string(request.key);
  const std::string file = folder.file();
  if (key != nullptr) {
    with_buffers(
        [&](char* buffer, int room) {
          return ini_gets(section, key, c_string(request.value), buffer, room, file.c_str());
        },
        [&](const IniModel::Answer& got, std::size_t room) {
          require(got == model.gets(request.section, request.key, request.value, room));
        });
  }
  require(ini_getl(section, key, -3, file.c_str()) == model.getl(request.section, request.key, -3));
  const float number = ini_getf(section, key, -2.5F, file.c_str());
  const float expected = model.getf(request.section, request.key, -2.5F);
  require(std::bit_cast<std::uint32_t>(number) == std::bit_cast<std::uint32_t>(expected));
  require(ini_getbool(section, key, 7, file.c_str()) == model.getbool(request.section, request.key, 7));
}

void read_names(const Request& request, const IniModel& model) {
  const char* const section = c_string(request.section);
  const std::string file = folder.file();
  for (const int index : {-1, 0, 1, 1000}) {
    with_buffers([&](char* buffer, int room) { return ini_getsection(index, buffer, room, file.c_str()); },
                 [&](const IniModel::Answer& got, std::size_t room) {
                   require(got == model.section_at(index, room));
                 });
    with_buffers(
        [&](char* buffer, int room) { return ini_getkey(section, index, buffer, room, file.c_str()); },
        [&](const IniModel::Answer& got, std::size_t room) {
          require(got == model.key_at(request.section, index, room));
        });
  }
}

void walk(const IniModel& model) {
  std::vector<IniModel::Entry> entries;
  const auto keep = [](const char* section, const char* key, const char* value, void* kept) {
    require(std::strlen(section) + std::strlen(key) + std::strlen(value) + 3 <= 512);
    static_cast<std::vector<IniModel::Entry>*>(kept)->push_back({section, key, value});
    return 1;
  };
  require(ini_browse(keep, &entries, folder.file().c_str()) == 1);
  require(entries == model.walk());
}

void rewrite(const Request& request, IniModel& model) {
  const std::string file = folder.file();
  require(ini_puts(c_string(request.section), c_string(request.key), c_string(request.value), file.c_str()) ==
          1);
  model.puts(request.section, request.key, request.value);
  require(bytes_of_file() == model.bytes());
  require(!std::filesystem::exists(folder.temporary()));
}

}  // namespace

// A section, a key and a value, each on a line of its own, and then the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string left(reinterpret_cast<const char*>(data), size);
  Request request;
  request.section = line(left);
  request.key = line(left);
  request.value = line(left);
  request.file = left;
  std::ofstream(folder.file(), std::ios::binary) << request.file;

  IniModel model(request.file);
  read_values(request, model);
  read_names(request, model);
  walk(model);
  rewrite(request, model);
  read_values(request, model);
  return 0;
}
