// SPDX-License-Identifier: MIT
// The name by which the C library knows the library that registers fork handlers. The compiler's start files, which
// define it as well, are left out of the device's library.
extern "C" {
extern void* __dso_handle;
__attribute__((visibility("hidden"), weak)) void* __dso_handle = &__dso_handle;
}
