// The name under which this room's fatal programming errors are found in crash logs.
#ifndef KELO_APP_OS_AL_FATAL_PATH_HPP
#define KELO_APP_OS_AL_FATAL_PATH_HPP

namespace kelo::os {

inline constexpr char kFatalPath[] = "kelo-app-os-al/kelo_app_os_al.c";

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_FATAL_PATH_HPP
