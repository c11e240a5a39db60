// SPDX-License-Identifier: MIT
// The C library's assert(), enabled in every build. After a wrong call a release must abort, too, because it could
// overwrite a settings file otherwise. Include this header after the system headers, which may include <cassert>, too.
#ifdef NDEBUG
#undef NDEBUG
#endif
#include <cassert>

// The messages contain the name of the function only. With its C++ signature, glibc's messages take 600 bytes more.
#undef __ASSERT_FUNCTION
#define __ASSERT_FUNCTION \
  __func__  // NOLINT(bugprone-reserved-identifier): the name that glibc's assert() uses
