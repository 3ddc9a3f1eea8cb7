#pragma once
// Ipkit::IpGenAddr: an IPv4 or IPv6 address, or no address at all, in one fixed-size value.
//
// Group tables, RP sets and trie keys hold addresses of both families side by side, so the value
// is a family byte plus 16 address bytes and nothing else: trivially copyable, no allocation.
//
// Invariants:
//  1. af() == ipunknown means "no address"; it is what the default constructor makes, and all
//     its address bytes are zero.
//  2. An IPv4 address sits in bytes 0..3 in network order; bytes 4..15 are zero. An IPv6 address
//     uses all 16 bytes in network order.
//  3. Ordering is by family first (ipunknown < ipv4 < ipv6), then by the bytes, which is numeric
//     address order within a family.
//  4. Text parsing is strict and refuses anything but a whole, well-formed address with
//     Kel::ParseException quoting the text; valueToStrep() output parses back to the same value
//     (except the unknown address, printed "unknown").

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <type_traits>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/Ip4Addr.h"
#include "framework/Ipkit/Ip6Addr.h"
#include "framework/Kel/String.h"

namespace Ipkit {

class IpGenAddr {
 public:
  IpGenAddr() : af_(AddressFamily::ipunknown), bytes_{} {}
  explicit IpGenAddr(Ip4Addr addr) : af_(AddressFamily::ipv4), bytes_{} {
    bytes_[0] = static_cast<std::uint8_t>(addr.value() >> 24);
    bytes_[1] = static_cast<std::uint8_t>(addr.value() >> 16);
    bytes_[2] = static_cast<std::uint8_t>(addr.value() >> 8);
    bytes_[3] = static_cast<std::uint8_t>(addr.value());
  }
  explicit IpGenAddr(const Ip6Addr& addr) : af_(AddressFamily::ipv6), bytes_(addr.bytes()) {}
  // Dotted quad, or IPv6 text when the text holds a ':'.
  explicit IpGenAddr(const Kel::String& text);
  IpGenAddr(Kel::String::const_iterator first, Kel::String::const_iterator last);

  static IpGenAddr ip4(std::uint32_t hostOrder) { return IpGenAddr(Ip4Addr(hostOrder)); }

  AddressFamily af() const { return af_; }
  // REQUIRES: af() == ipv4.
  Ip4Addr ip4Addr() const;
  // REQUIRES: af() == ipv6.
  Ip6Addr ip6Addr() const;
  const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

  bool isMulticast() const {
    if (af_ == AddressFamily::ipv4) return (bytes_[0] & 0xf0u) == 0xe0u;
    if (af_ == AddressFamily::ipv6) return bytes_[0] == 0xffu;
    return false;
  }

  Kel::String valueToStrep() const;

  bool operator==(const IpGenAddr& other) const { return compare(other) == 0; }
  bool operator!=(const IpGenAddr& other) const { return compare(other) != 0; }
  bool operator<(const IpGenAddr& other) const { return compare(other) < 0; }
  bool operator<=(const IpGenAddr& other) const { return compare(other) <= 0; }
  bool operator>(const IpGenAddr& other) const { return compare(other) > 0; }
  bool operator>=(const IpGenAddr& other) const { return compare(other) >= 0; }

 private:
  // Clears host bits in place, which no public mutator offers.
  friend class IpGenPrefix;

  // Two numeric words per address order as the bytes do: maps and sorted arrays keyed by
  // address compare on every probe, and a library byte compare costs several times as much.
  int compare(const IpGenAddr& other) const {
    if (af_ != other.af_) return af_ < other.af_ ? -1 : 1;
    const std::uint64_t hi = word(0);
    const std::uint64_t otherHi = other.word(0);
    if (hi != otherHi) return hi < otherHi ? -1 : 1;
    const std::uint64_t lo = word(8);
    const std::uint64_t otherLo = other.word(8);
    if (lo != otherLo) return lo < otherLo ? -1 : 1;
    return 0;
  }
  // The eight bytes from `first` as one number, the first byte most significant.
  std::uint64_t word(std::size_t first) const {
    std::uint64_t value;
    std::memcpy(&value, bytes_.data() + first, sizeof value);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    value = __builtin_bswap64(value);
#endif
    return value;
  }

  AddressFamily af_;
  std::array<std::uint8_t, 16> bytes_;
};

static_assert(sizeof(IpGenAddr) == 17, "IpGenAddr is a family byte and 16 address bytes");
static_assert(std::is_trivially_copyable_v<IpGenAddr>, "IpGenAddr is copied as plain bytes");

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr);

}  // namespace Ipkit

template <>
struct std::hash<Ipkit::IpGenAddr> {
  std::size_t operator()(const Ipkit::IpGenAddr& addr) const noexcept {
    std::uint64_t hi;
    std::uint64_t lo;
    std::memcpy(&hi, addr.bytes().data(), 8);
    std::memcpy(&lo, addr.bytes().data() + 8, 8);
    // IPv4 addresses differ only in a few bits of one word; the multiply and xor-shift rounds
    // spread those over the whole result so that buckets fill evenly.
    std::uint64_t h = hi * 0x9e3779b97f4a7c15ull;
    h ^= (lo + static_cast<std::uint64_t>(addr.af())) * 0xc2b2ae3d27d4eb4full;
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ull;
    h ^= h >> 33;
    return static_cast<std::size_t>(h);
  }
};
