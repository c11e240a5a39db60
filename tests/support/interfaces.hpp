// SPDX-License-Identifier: MIT
// Makes real network interfaces, for a test that has INTERFACES in tests/CMakeLists.txt. A call that the kernel refuses
// is a failure of the test.
#ifndef KELO_TESTS_SUPPORT_INTERFACES_HPP
#define KELO_TESTS_SUPPORT_INTERFACES_HPP

#include <string>

namespace kelo::tests {

void add_bridge(const std::string& name);
void add_veth_pair(const std::string& name, const std::string& peer);
void remove_interface(const std::string& name);
void bring_up(const std::string& name);

// The network namespace of another process, which has the interface from then on, down and without addresses.
void move_to_namespace_of(const std::string& name, int process);

// Before the interface is up: it then makes no IPv6 address for itself.
void make_no_addresses(const std::string& name);

// An IPv4 or IPv6 address in text form. An IPv6 address can be used at once: no duplicate of it is looked
// for. With a peer the link is one from point to point.
void add_address(const std::string& name, const std::string& address, int prefix_length,
                 const std::string& peer = {});

// A route of the main table; without a gateway the destination is on the link.
void add_route(const std::string& name, const std::string& destination, int prefix_length,
               const std::string& gateway = {});

// A veth pair whose ends are up and have no address. The other end is called "<name>-far". It goes with the
// object, unless it has gone before.
class Link {
 public:
  explicit Link(std::string name);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

 private:
  const std::string name_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_INTERFACES_HPP
