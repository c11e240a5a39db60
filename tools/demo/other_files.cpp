// SPDX-License-Identifier: MIT
// A chapter of the demo: parameters, an INI file and the watch log.
#include "tools/demo/other_files.hpp"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/ini.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tools/demo/claims.hpp"
#include "tools/demo/store_files.hpp"

namespace kelo::demo {
namespace {

constexpr const char* kParameterFolder = "/data/kelo-resource/sqlite3";
constexpr const char* kIniFile = "/data/lan.ini";
constexpr const char* kWatchFolder = "/data/oem/logs";

// The variables that the parameters live in.
std::uint8_t enabled;
std::array<char, 33> ssid;
std::uint32_t max_users;

enum ParameterId : std::int32_t { kEnabled = 1, kSsid, kMaxUsers };

const std::array<kelo_db_param, 4> kParameters = {{
    {&enabled, "enabled", KELO_DB_TYPE_8BIT_0, sizeof enabled, kEnabled},
    {ssid.data(), "ssid", KELO_DB_TYPE_TEXT, ssid.size(), kSsid},
    {&max_users, "max_users", KELO_DB_TYPE_32BIT_4, sizeof max_users, kMaxUsers},
    {},
}};
const kelo_db_query kWifi = {"wifi", kParameters.data()};

bool load() { return kelo_db_query_db_init_struct(&kWifi) == 0; }

void parameters() {
  const std::string command =
      std::string("'") + KELO_SOURCE_DIR + "/tools/provision/provision.sh' " + kParameterFolder;
  claim(std::system(command.c_str()) == 0, "the factory file is provisioned in %s", kParameterFolder);
  const bool loaded = load();
  const std::string factory = ssid.data();
  claim(loaded, "the missing user file is made from it: ssid \"%s\", %u users at most", ssid.data(),
        max_users);
  kelo_strlcpy(ssid.data(), "cabin", ssid.size());
  const bool written = kelo_db_update_db_from_struct(&kWifi, kSsid) == 0 && load();
  claim(written && std::string(ssid.data()) == "cabin", "the ssid is written back and loads as \"%s\"",
        ssid.data());
  const bool reloaded = kelo_db_reload_value(&kWifi, kSsid) == 0;
  claim(reloaded && ssid.data() == factory, "and is reloaded from the factory: \"%s\"", ssid.data());
}

void ini_file() {
  const std::string first_lines = "; the LAN side\n[lan]\nip = 192.168.8.1 ; bridge\n";
  std::ofstream(kIniFile) << first_lines << "[dhcp]\nenabled=yes\n";
  const bool put = ini_puts("lan", "name", "cabin; upstairs", kIniFile) == 1 &&
                   ini_putl("dhcp", "lease", 3600, kIniFile) == 1;
  claim(put, "a name and a lease are put into %s", kIniFile);
  std::array<char, 64> name{};
  ini_gets("LAN", "Name", "", name.data(), name.size(), kIniFile);
  claim(std::string(name.data()) == "cabin; upstairs", "[LAN] Name reads \"%s\"", name.data());
  claim(ini_getl("dhcp", "lease", 0, kIniFile) == 3600 && ini_getbool("dhcp", "enabled", 0, kIniFile) == 1,
        "the lease is 3600, DHCP is enabled");
  claim(file_text(kIniFile) == first_lines + "name=\"cabin; upstairs\"\n[dhcp]\nenabled=yes\nlease=3600\n",
        "each is at the end of its section, all else as it was");
}

void watch_log() {
  std::filesystem::create_directories(kWatchFolder);
  oem_watch("demo", 42, "link %s", "up");
  const std::string record = file_text(std::string(kWatchFolder) + "/fwawatchA.log");
  claim(record.ends_with("demo:42 link up\n"), "the watch log says %s",
        record.substr(0, record.find('\n')).c_str());
}

}  // namespace

void files() {
  chapter("Other files: parameters, an INI file, the watch log");
  life([] {
    hide_log();
    parameters();
    ini_file();
    watch_log();
  });
}

}  // namespace kelo::demo
