# SPDX-License-Identifier: MIT
# Every test runs as a process of its own inside tests/sandbox.sh. A sandbox that cannot be made is a test skipped.
set(KELO_TEST_SANDBOX ${PROJECT_SOURCE_DIR}/tests/sandbox.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} -- ${CMAKE_CROSSCOMPILING_EMULATOR})
# For tests of interfaces: INTERFACES in tests/CMakeLists.txt.
set(KELO_TEST_INTERFACE_SANDBOX ${KELO_TEST_SANDBOX})
list(INSERT KELO_TEST_INTERFACE_SANDBOX 1 --interfaces)
# For programs that make user namespaces themselves.
set(KELO_TEST_EXPLORER_SANDBOX ${KELO_TEST_SANDBOX})
list(INSERT KELO_TEST_EXPLORER_SANDBOX 1 --user-namespaces)
set(KELO_TEST_PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)
