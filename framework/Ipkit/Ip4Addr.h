#pragma once
// Ipkit::Ip4Addr: an IPv4 address held as a 32-bit number in host byte order.
//
// Invariants:
//  1. value() is the address as a number, most significant octet first in dotted-quad text, so
//     numeric order is address order.
//  2. The default value is 0.0.0.0; Ip4Addr has no notion of absence (IpGenAddr has).

#include <cstdint>
#include <ostream>

namespace Ipkit {

class Ip4Addr {
 public:
  constexpr explicit Ip4Addr(std::uint32_t hostOrder = 0) : value_(hostOrder) {}

  constexpr std::uint32_t value() const { return value_; }

  constexpr bool operator==(const Ip4Addr& other) const { return value_ == other.value_; }
  constexpr bool operator!=(const Ip4Addr& other) const { return value_ != other.value_; }
  constexpr bool operator<(const Ip4Addr& other) const { return value_ < other.value_; }

 private:
  std::uint32_t value_;
};

// Writes the dotted quad by hand: streaming the octets as numbers would follow whatever base or
// width flags the caller left on the stream.
inline std::ostream& operator<<(std::ostream& os, const Ip4Addr& addr) {
  char text[16];
  int n = 0;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const unsigned octet = (addr.value() >> shift) & 0xffu;
    if (octet >= 100) text[n++] = static_cast<char>('0' + octet / 100);
    if (octet >= 10) text[n++] = static_cast<char>('0' + octet / 10 % 10);
    text[n++] = static_cast<char>('0' + octet % 10);
    if (shift != 0) text[n++] = '.';
  }
  return os.write(text, n);
}

}  // namespace Ipkit
