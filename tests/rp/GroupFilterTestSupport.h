#pragma once
// Shared fixtures for the group filter suites: one set of group ranges per address family.

#include <ostream>
#include <string>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenPrefix.h"

namespace GroupFilterTest {

// A range of one family, a group inside it and a group outside it.
struct FamilyCase {
  const char* name;
  Ipkit::AddressFamily af;
  const char* range;
  const char* inside;
  const char* outside;
  const char* otherFamilyGroup;
};

inline const FamilyCase kIpv4{"Ipv4",         Ipkit::ipv4(),  "239.0.0.0/8",
                              "239.1.1.1/32", "224.1.1.1/32", "ff3e::1/128"};
inline const FamilyCase kIpv6{"Ipv6",        Ipkit::ipv6(), "ff3e::/16",
                              "ff3e::1/128", "ff05::1/128", "239.1.1.1/32"};

inline std::ostream& operator<<(std::ostream& out, const FamilyCase& family) {
  return out << family.name;
}

inline Ipkit::IpGenPrefix prefix(const char* text) { return Ipkit::IpGenPrefix(text); }

}  // namespace GroupFilterTest
