# SPDX-License-Identifier: MIT
# Toolchain file for any other machine that runs Linux, named by the triplet of its compiler.
#
#   cmake -S . -B build/router --toolchain cmake/cross.cmake -DKELO_TRIPLET=mips-linux-gnu -DKELO_SYSROOT=/path/to/sysroot
#
# KELO_SYSROOT is the folder that holds the machine's /usr, with SQLite in it. The C library is the compiler's. A
# compiler that takes it from a sysroot needs -DCMAKE_SYSROOT instead of KELO_SYSROOT.
set(KELO_TRIPLET "" CACHE STRING "Triplet of the cross compiler, such as mips-linux-gnu")
set(KELO_CROSS_PREFIX "${KELO_TRIPLET}-" CACHE STRING "Prefix of the names of the cross compiler's tools")
set(KELO_SYSROOT "" CACHE PATH "Folder that holds the machine's /usr")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELO_TRIPLET KELO_CROSS_PREFIX KELO_SYSROOT)

set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${KELO_TRIPLET}")
set(CMAKE_LIBRARY_ARCHITECTURE ${KELO_TRIPLET})
set(CMAKE_C_COMPILER ${KELO_CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${KELO_CROSS_PREFIX}g++)

if(KELO_SYSROOT)
  set(CMAKE_FIND_ROOT_PATH ${KELO_SYSROOT})
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
