#pragma once
// Addresses of either family as plain numbers, for arithmetic on ranges of them: an IPv4 address
// in the low 32 bits, an IPv6 address whole.

#include <array>
#include <cstdint>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/Ip6Addr.h"
#include "framework/Ipkit/IpGenAddr.h"

namespace PimrpTool {

using AddressNumber = unsigned __int128;

// 32 for IPv4, 128 for IPv6.
inline unsigned addressBits(Ipkit::AddressFamily af) {
  return af == Ipkit::AddressFamily::ipv4 ? 32 : 128;
}

// REQUIRES: the address is IPv4 or IPv6.
inline AddressNumber numberOf(const Ipkit::IpGenAddr& address) {
  AddressNumber number = 0;
  for (const std::uint8_t byte : address.bytes()) number = (number << 8) | byte;
  // An IPv4 address fills the first 4 of the 16 bytes.
  return address.af() == Ipkit::AddressFamily::ipv4 ? number >> 96 : number;
}

// REQUIRES: af is ipv4 or ipv6; an IPv4 number is below 2^32.
inline Ipkit::IpGenAddr addressOf(Ipkit::AddressFamily af, AddressNumber number) {
  if (af == Ipkit::AddressFamily::ipv4)
    return Ipkit::IpGenAddr::ip4(static_cast<std::uint32_t>(number));
  std::array<std::uint8_t, 16> bytes{};
  for (int byte = 15; byte >= 0; --byte, number >>= 8) {
    bytes[static_cast<std::size_t>(byte)] = static_cast<std::uint8_t>(number);
  }
  return Ipkit::IpGenAddr(Ipkit::Ip6Addr(bytes));
}

}  // namespace PimrpTool
