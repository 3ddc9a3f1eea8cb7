#pragma once
// The multicast group space of each address family: where group addresses and group ranges lie.

#include <array>
#include <cstdint>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"

namespace PimrpTool {

// 224.0.0.0/4 for IPv4, ff00::/8 for IPv6. REQUIRES: af is ipv4 or ipv6.
inline Ipkit::IpGenPrefix groupSpace(Ipkit::AddressFamily af) {
  if (af == Ipkit::AddressFamily::ipv4) {
    return Ipkit::IpGenPrefix(Ipkit::IpGenAddr::ip4(0xe0000000u), 4);
  }
  std::array<std::uint8_t, 16> bytes{};
  bytes[0] = 0xff;
  return Ipkit::IpGenPrefix(Ipkit::IpGenAddr(Ipkit::Ip6Addr(bytes)), 8);
}

}  // namespace PimrpTool
