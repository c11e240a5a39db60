// Makes real network interfaces. For a test whose .cmake file asks for the sandbox that lets it:
//
//   set(KELO_TEST_SANDBOX ${KELO_TEST_INTERFACE_SANDBOX})
//
// A call that the kernel refuses is a failure of the test.
#ifndef KELO_TESTS_SUPPORT_INTERFACES_HPP
#define KELO_TESTS_SUPPORT_INTERFACES_HPP

#include <string>

namespace kelo::tests {

void add_bridge(const std::string& name);
void add_veth_pair(const std::string& name, const std::string& peer);
void remove_interface(const std::string& name);
void bring_up(const std::string& name);

// An IPv4 or IPv6 address in text form. An IPv6 address can be used at once: no duplicate of it is looked
// for.
void add_address(const std::string& name, const std::string& address, int prefix_length);

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_INTERFACES_HPP
