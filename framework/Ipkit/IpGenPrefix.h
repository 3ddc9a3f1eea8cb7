#pragma once
// Ipkit::IpGenPrefix: an IPv4 or IPv6 prefix (network address and length), or no prefix at all.
//
// Group ranges served by an RP are prefixes of either family; like IpGenAddr the value is fixed
// size (an IpGenAddr and a length byte) and trivially copyable.
//
// Invariants:
//  1. The empty prefix (family ipunknown, length 0) means "no prefix"; it is what the default
//     constructor makes. It contains nothing and nothing contains it.
//  2. Otherwise len() is at most 32 (IPv4) or 128 (IPv6), and every address bit past len() is
//     zero: constructors clear host bits, so equal networks compare equal.
//  3. Ordering is by address (family first, then bytes), then by length, so a covering prefix
//     sorts just before the longer prefixes that share its network address.
//  4. Text parsing is strict ("a.b.c.d/len", "x::/len", nothing else) and refuses bad text with
//     Kel::ParseException quoting it.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <type_traits>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/String.h"

namespace Ipkit {

class IpGenPrefix {
 public:
  IpGenPrefix() : len_(0) {}
  // Clears the host bits of addr. Throws Kel::RangeException when addr is unknown or len is
  // longer than the family's address. Inline: lookups build their answers through it.
  // Each half of the address is masked in a register and stored whole, the way the hash reads it
  // back: a trie's answer is hashed into a table lookup at once, and a wide load over bytes
  // cleared one store at a time waits for those stores to reach the cache.
  IpGenPrefix(const IpGenAddr& addr, unsigned len) : len_(0) {
    const unsigned max = addr.af() == AddressFamily::ipv4 ? 32u : 128u;
    if (addr.af() == AddressFamily::ipunknown || len > max) refuseLength(addr, len);
    addr_.af_ = addr.af_;
    std::uint64_t hi;
    std::uint64_t lo;
    std::memcpy(&hi, addr.bytes_.data(), 8);
    std::memcpy(&lo, addr.bytes_.data() + 8, 8);
    hi &= storedMask(len);
    lo &= storedMask(len > 64u ? len - 64u : 0u);
    std::memcpy(addr_.bytes_.data(), &hi, 8);
    std::memcpy(addr_.bytes_.data() + 8, &lo, 8);
    len_ = static_cast<std::uint8_t>(len);
  }
  explicit IpGenPrefix(const Kel::String& text);
  IpGenPrefix(Kel::String::const_iterator first, Kel::String::const_iterator last);

  // REQUIRES: addr is not the unknown address (else as the constructor refuses it).
  // Inline and without clearing bytes one at a time: a host address has no host bits (IPv4
  // addresses keep bytes 4..15 zero), and every table lookup of a group builds one.
  static IpGenPrefix hostPrefix(const IpGenAddr& addr) {
    if (addr.af() == AddressFamily::ipunknown) refuseLength(addr, 128u);
    IpGenPrefix host;
    host.addr_ = addr;
    host.len_ = static_cast<std::uint8_t>(addr.af() == AddressFamily::ipv4 ? 32u : 128u);
    return host;
  }

  AddressFamily af() const { return addr_.af(); }
  const IpGenAddr& address() const { return addr_; }
  unsigned len() const { return len_; }
  bool isNull() const { return addr_.af() == AddressFamily::ipunknown; }

  bool contains(const IpGenPrefix& other) const {
    return !isNull() && other.af() == af() && other.len_ >= len_ &&
           leadingBitsMatch(other.addr_.bytes());
  }
  bool contains(const IpGenAddr& addr) const {
    return !isNull() && addr.af() == af() && leadingBitsMatch(addr.bytes());
  }

  Kel::String valueToStrep() const;

  bool operator==(const IpGenPrefix& other) const { return compare(other) == 0; }
  bool operator!=(const IpGenPrefix& other) const { return compare(other) != 0; }
  bool operator<(const IpGenPrefix& other) const { return compare(other) < 0; }
  bool operator<=(const IpGenPrefix& other) const { return compare(other) <= 0; }
  bool operator>(const IpGenPrefix& other) const { return compare(other) > 0; }
  bool operator>=(const IpGenPrefix& other) const { return compare(other) >= 0; }

 private:
  [[noreturn]] static void refuseLength(const IpGenAddr& addr, unsigned len);

  // The first `bits` bits of eight address bytes set (all of them from 64 on), as the bytes lie
  // in memory.
  static std::uint64_t storedMask(unsigned bits) {
    const std::uint64_t mask = bits == 0 ? 0 : bits >= 64 ? ~0ull : ~0ull << (64u - bits);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return __builtin_bswap64(mask);
#else
    return mask;
#endif
  }

  int compare(const IpGenPrefix& other) const {
    if (const int byAddress = addr_.compare(other.addr_)) return byAddress;
    if (len_ != other.len_) return len_ < other.len_ ? -1 : 1;
    return 0;
  }

  // Whether the first len_ bits of bytes equal those of addr_.
  bool leadingBitsMatch(const std::array<std::uint8_t, 16>& bytes) const {
    const unsigned whole = len_ / 8u;
    if (std::memcmp(addr_.bytes().data(), bytes.data(), whole) != 0) return false;
    const unsigned rest = len_ % 8u;
    if (rest == 0) return true;
    const unsigned mask = (0xffu << (8u - rest)) & 0xffu;
    return ((addr_.bytes()[whole] ^ bytes[whole]) & mask) == 0;
  }

  IpGenAddr addr_;
  std::uint8_t len_;
};

static_assert(sizeof(IpGenPrefix) == 18, "IpGenPrefix is an IpGenAddr and a length byte");
static_assert(std::is_trivially_copyable_v<IpGenPrefix>, "IpGenPrefix is copied as plain bytes");

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& prefix);

}  // namespace Ipkit

template <>
struct std::hash<Ipkit::IpGenPrefix> {
  std::size_t operator()(const Ipkit::IpGenPrefix& prefix) const noexcept {
    // 10.0.0.0/8 and 10.0.0.0/16 share an address; fold the length in before a last mixing
    // round so that such nested prefixes land in different buckets.
    std::uint64_t h = std::hash<Ipkit::IpGenAddr>()(prefix.address());
    h ^= (static_cast<std::uint64_t>(prefix.len()) + 1) * 0x9e3779b97f4a7c15ull;
    h ^= h >> 29;
    h *= 0xbf58476d1ce4e5b9ull;
    h ^= h >> 32;
    return static_cast<std::size_t>(h);
  }
};
