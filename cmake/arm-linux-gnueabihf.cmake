# SPDX-License-Identifier: MIT
# Toolchain file for the device: 32-bit ARM, hard float, with a compiler that is called arm-linux-gnueabihf-g++.
#
#   cmake -S . -B build/device --toolchain cmake/arm-linux-gnueabihf.cmake -DKELO_SYSROOT=/path/to/sysroot
#
# KELO_SYSROOT is the folder that holds the device's /usr, with SQLite in it. The C library is the compiler's. A
# compiler that takes it from a sysroot needs -DCMAKE_SYSROOT instead of KELO_SYSROOT.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(KELO_CROSS_PREFIX arm-linux-gnueabihf- CACHE STRING "Prefix of the names of the cross compiler's tools")
set(KELO_SYSROOT "" CACHE PATH "Folder that holds the device's /usr")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELO_CROSS_PREFIX KELO_SYSROOT)

set(CMAKE_C_COMPILER ${KELO_CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${KELO_CROSS_PREFIX}g++)

if(KELO_SYSROOT)
  set(CMAKE_FIND_ROOT_PATH ${KELO_SYSROOT})
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
