// SPDX-License-Identifier: MIT
// Converts addresses to text, and checks addresses that users have entered.
#include <arpa/inet.h>
#include <regex.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/text_builder.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

constexpr std::int32_t kIpv4TextSize = INET_ADDRSTRLEN;
constexpr std::int32_t kIpv6TextSize = INET6_ADDRSTRLEN;
static_assert(kIpv4TextSize == 16 && kIpv6TextSize == 46);

constexpr std::uint32_t kIpv6Bytes = 16;

// In a bracket expression a backslash is an ordinary character, so the separators are backslash, "s" and colon. This
// stays as it is, because existing settings must remain valid.
constexpr const char* kMacPattern = "^([0-9a-fA-F]{2})(([\\s:][0-9a-fA-F]{2}){5})$";

bool is_large_enough(const char* caller, std::int32_t size, std::int32_t needed) {
  if (size >= needed) return true;
  KELO_LOG_AS(caller, LOG_LVL_ERR, "ipStr size is %d; must be at least %i\n", size, needed);
  return false;
}

bool is_present(const char* caller, const void* argument) {
  if (argument != nullptr) return true;
  kelo::log::param_null(caller);
  return false;
}

bool is_address(int family, const char* text) {
  in6_addr address{};
  return text != nullptr && inet_pton(family, text, &address) == 1;
}

// Whether all one bits of a mask precede all zero bits. The negative of such a mask has no bit in common with its
// complement. The mask 0.0.0.0, which has no one bit, is accepted.
bool is_contiguous(std::uint32_t mask) { return ((0 - mask) & ~mask) == 0; }

}  // namespace

int ConvertIPv4ArrayToStr(const std::uint8_t* ipNum, char* ipStr, std::int32_t size) {
  if (!is_large_enough(__func__, size, kIpv4TextSize)) return -1;
  if (ipNum == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "input ipNum is NULL now !!!\n");
    return -1;
  }
  if (!is_present(__func__, ipStr)) return -1;
  std::memset(ipStr, 0, static_cast<std::size_t>(size));
  kelo::base::TextBuilder address({ipStr, static_cast<std::size_t>(size)});
  address.print("%u.%u.%u.%u", ipNum[0], ipNum[1], ipNum[2], ipNum[3]);
  return 0;
}

int ConvertIPv4NumToStr(std::uint32_t ipNum, char* ipStr, std::int32_t size) {
  if (!is_large_enough(__func__, size, kIpv4TextSize) || !is_present(__func__, ipStr)) return -1;
  const in_addr address = {htonl(ipNum)};
  if (inet_ntop(AF_INET, &address, ipStr, static_cast<socklen_t>(size)) == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "Error converting %X to IP string\n", ipNum);
    return -1;
  }
  return 0;
}

int ConvertIPv6NumToStr(const std::uint8_t* ipNum, char* ipStr, std::int32_t size) {
  if (!is_large_enough(__func__, size, kIpv6TextSize) || !is_present(__func__, ipNum) ||
      !is_present(__func__, ipStr)) {
    return -1;
  }
  std::memset(ipStr, 0, static_cast<std::size_t>(size));
  if (inet_ntop(AF_INET6, ipNum, ipStr, static_cast<socklen_t>(size)) == nullptr) {
    hex_BinaryToString(ipNum, kIpv6Bytes, ipStr, 2 * kIpv6Bytes + 1);
    KELO_LOG(LOG_LVL_ERR, "Error converting %s to IP string\n", ipStr);
    return -1;
  }
  return 0;
}

int kelo_check_v4_ip(const char* text) { return is_address(AF_INET, text) ? 1 : 0; }

int is_valid_ip(const char* text) { return is_address(AF_INET, text) ? 1 : 0; }

int is_valid_ipv6(const char* text) { return is_address(AF_INET6, text) ? 1 : 0; }

int Is_valid_SubnetMask(const char* text) {
  in_addr mask{};
  if (text == nullptr || inet_pton(AF_INET, text, &mask) != 1) return 0;
  return is_contiguous(ntohl(mask.s_addr)) ? 1 : 0;
}

int ereg(const char* pattern, const char* text) {
  if (!is_present(__func__, pattern) || !is_present(__func__, text)) return 1;
  regex_t expression;
  if (regcomp(&expression, pattern, REG_EXTENDED) != 0) return 1;
  const bool matches = regexec(&expression, text, 0, nullptr, 0) == 0;
  regfree(&expression);
  return matches ? 0 : 1;
}

int Is_valid_Mac(const char* text) {
  if (!is_present(__func__, text)) return 0;
  if (ereg(kMacPattern, text) != 0) {
    KELO_LOG(LOG_LVL_ERR, "No Match!!! \n");
    return 0;
  }
  KELO_LOG(LOG_LVL_DBUG, "Yes Match!!! \n");
  return 1;
}
