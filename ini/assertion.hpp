// The C library's assertions, live in every build: a release must end here too, rather than carry on with a
// broken caller and overwrite a settings file. To be included after everything else.
#ifdef NDEBUG
#undef NDEBUG
#endif
#include <cassert>

// Messages name the operation alone. With the types of C++ around it, glibc's take some 600 bytes more.
#undef __ASSERT_FUNCTION
#define __ASSERT_FUNCTION \
  __func__  // NOLINT(bugprone-reserved-identifier): the name that glibc's assert() uses
