// SPDX-License-Identifier: MIT
// The marks of a history that runs in another process.
#ifndef KELO_TESTS_FAULTS_MARKS_HPP
#define KELO_TESTS_FAULTS_MARKS_HPP

namespace kelo::faults {

// Whether this call of the system is a mark, which is kept then.
bool take_mark(long number, int descriptor, const void* bytes);

}  // namespace kelo::faults

#endif  // KELO_TESTS_FAULTS_MARKS_HPP
