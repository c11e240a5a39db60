# SPDX-License-Identifier: MIT
# Toolchain file for the device: 32-bit ARM, hard float, with a compiler that is called arm-linux-gnueabihf-g++. See
# cross.cmake, which has the options.
#
#   cmake -S . -B build/device --toolchain cmake/arm-linux-gnueabihf.cmake -DKELO_SYSROOT=/path/to/sysroot
set(KELO_TRIPLET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
