# Toolchain file for the device: 32-bit ARM, hard float, with a compiler that is called arm-linux-gnueabihf-g++.
#
#   cmake -S . -B build/device --toolchain cmake/arm-linux-gnueabihf.cmake -DKELO_SYSROOT=/path/to/sysroot
#
# KELO_SYSROOT is the folder that holds the device's /usr, with SQLite in it. With KELO_SYSROOT_HAS_LIBC the C library
# is taken from there too, and not from beside the compiler. KELO_EMULATOR runs programs of the device on this machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(KELO_CROSS_PREFIX arm-linux-gnueabihf- CACHE STRING "What stands before the names of the cross compiler's tools")
set(KELO_SYSROOT "" CACHE PATH "Folder that holds the device's /usr")
option(KELO_SYSROOT_HAS_LIBC "The sysroot holds the C library, with its headers" OFF)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELO_CROSS_PREFIX KELO_SYSROOT KELO_SYSROOT_HAS_LIBC)

set(CMAKE_C_COMPILER ${KELO_CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${KELO_CROSS_PREFIX}g++)

if(KELO_SYSROOT)
  set(CMAKE_FIND_ROOT_PATH ${KELO_SYSROOT})
  if(KELO_SYSROOT_HAS_LIBC)
    set(CMAKE_SYSROOT ${KELO_SYSROOT})
  endif()
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
