#pragma once
// Ipkit::AddressFamily: which kind of IP address a value holds.
//
// Invariants:
//  1. ipunknown is the zero value and stands for "no address"; it orders before ipv4, which
//     orders before ipv6, so that sorting by family puts absent values first.
//  2. The underlying values are stable (0, 1, 2): addresses and prefixes store the family in one
//     byte and compare it numerically.

#include <cstdint>
#include <ostream>

namespace Ipkit {

enum class AddressFamily : std::uint8_t { ipunknown = 0, ipv4 = 1, ipv6 = 2 };

constexpr AddressFamily ipunknown() { return AddressFamily::ipunknown; }
constexpr AddressFamily ipv4() { return AddressFamily::ipv4; }
constexpr AddressFamily ipv6() { return AddressFamily::ipv6; }

inline std::ostream& operator<<(std::ostream& os, AddressFamily af) {
  switch (af) {
    case AddressFamily::ipv4:
      return os << "ipv4";
    case AddressFamily::ipv6:
      return os << "ipv6";
    case AddressFamily::ipunknown:
      break;
  }
  // A byte that holds none of the enumerators can only come from a corrupted value; print it as
  // unknown rather than nothing so that logs still show something was there.
  return os << "ipunknown";
}

}  // namespace Ipkit
