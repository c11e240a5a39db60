// SPDX-License-Identifier: MIT
// The type of the request of ioctl(), which C libraries declare differently.
#ifndef KELO_TESTS_SUPPORT_IOCTL_REQUEST_HPP
#define KELO_TESTS_SUPPORT_IOCTL_REQUEST_HPP

#include <sys/ioctl.h>

namespace kelo::tests {

template <typename Request>
Request request_of(int (*call)(int, Request, ...));

using IoctlRequest = decltype(request_of(::ioctl));

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_IOCTL_REQUEST_HPP
