#pragma once
// The per-family pieces of the unicast route shadows: how a prefix and a next hop of one address
// family are laid out in the shared forwarding tables, and how they convert from and to the
// family-independent Ipkit values. Everything else about a shadow is the same for both families
// and is written once, over these two descriptions (Routing::ShadowStatus).
//
// Invariants:
//  1. Keys and next hops are trivially copyable, of fixed size and free of padding, so that their
//     bytes (which the tables checksum) are exactly their fields.
//  2. prefixOf(keyOf(p)) == p for every prefix p of the family; keyOf and nextHopOf refuse a value
//     of another family (the empty prefix or the unknown address included) with
//     Kel::RangeException naming it.
//  3. Keys order like the prefixes they stand for: by address, then by length.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <sstream>
#include <type_traits>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Exception.h"

namespace Routing {
namespace ShadowFamily {

// One mixing round over two words, for the tables' hash functions.
inline std::size_t mixWords(std::uint64_t a, std::uint64_t b) {
  std::uint64_t h = a * 0x9e3779b97f4a7c15ull ^ (b + 0x632be59bd9b4e019ull) * 0xc2b2ae3d27d4eb4full;
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  return static_cast<std::size_t>(h);
}

template <class T>
void refuseFamily(const char* what, const T& value, Ipkit::AddressFamily af) {
  std::ostringstream os;
  os << what << " '" << value << "' is not of family " << af;
  throw Kel::RangeException(os.str());
}

struct Ip4 {
  static constexpr Ipkit::AddressFamily af() { return Ipkit::AddressFamily::ipv4; }

  // An IPv4 prefix as the forwarding tables hold it: the network in host byte order and the length.
  struct PrefixKey {
    std::uint32_t address;
    std::uint8_t len;
    std::uint8_t reserved[3];

    bool operator==(const PrefixKey& other) const {
      return address == other.address && len == other.len;
    }
    bool operator<(const PrefixKey& other) const {
      return address != other.address ? address < other.address : len < other.len;
    }
  };
  struct PrefixKeyHash {
    std::size_t operator()(const PrefixKey& key) const { return mixWords(key.address, key.len); }
  };
  // A next hop in host byte order; the reserved word keeps the via records free of padding.
  struct NextHop {
    std::uint32_t address;
    std::uint32_t reserved;
    bool operator==(const NextHop& other) const { return address == other.address; }
  };

  static PrefixKey keyOf(const Ipkit::IpGenPrefix& prefix) {
    if (prefix.af() != af()) refuseFamily("prefix", prefix, af());
    return PrefixKey{
        prefix.address().ip4Addr().value(), static_cast<std::uint8_t>(prefix.len()), {0, 0, 0}};
  }
  static Ipkit::IpGenPrefix prefixOf(const PrefixKey& key) {
    return Ipkit::IpGenPrefix(Ipkit::IpGenAddr::ip4(key.address), key.len);
  }
  static NextHop nextHopOf(const Ipkit::IpGenAddr& addr) {
    if (addr.af() != af()) refuseFamily("next hop", addr, af());
    return NextHop{addr.ip4Addr().value(), 0};
  }
  static Ipkit::IpGenAddr addressOf(const NextHop& nextHop) {
    return Ipkit::IpGenAddr::ip4(nextHop.address);
  }
};

struct Ip6 {
  static constexpr Ipkit::AddressFamily af() { return Ipkit::AddressFamily::ipv6; }

  // An IPv6 prefix as the forwarding tables hold it: the network's 16 bytes in network order and
  // the length.
  struct PrefixKey {
    std::uint8_t address[16];
    std::uint8_t len;
    std::uint8_t reserved[7];

    bool operator==(const PrefixKey& other) const {
      return std::memcmp(address, other.address, sizeof(address)) == 0 && len == other.len;
    }
    bool operator<(const PrefixKey& other) const {
      const int order = std::memcmp(address, other.address, sizeof(address));
      return order != 0 ? order < 0 : len < other.len;
    }
  };
  struct PrefixKeyHash {
    std::size_t operator()(const PrefixKey& key) const {
      std::uint64_t hi;
      std::uint64_t lo;
      std::memcpy(&hi, key.address, 8);
      std::memcpy(&lo, key.address + 8, 8);
      return mixWords(hi ^ key.len, lo);
    }
  };
  struct NextHop {
    std::uint8_t address[16];
    bool operator==(const NextHop& other) const {
      return std::memcmp(address, other.address, sizeof(address)) == 0;
    }
  };

  static PrefixKey keyOf(const Ipkit::IpGenPrefix& prefix) {
    if (prefix.af() != af()) refuseFamily("prefix", prefix, af());
    PrefixKey key{};
    std::memcpy(key.address, prefix.address().bytes().data(), sizeof(key.address));
    key.len = static_cast<std::uint8_t>(prefix.len());
    return key;
  }
  static Ipkit::IpGenPrefix prefixOf(const PrefixKey& key) {
    return Ipkit::IpGenPrefix(Ipkit::IpGenAddr(Ipkit::Ip6Addr(bytesOf(key.address))), key.len);
  }
  static NextHop nextHopOf(const Ipkit::IpGenAddr& addr) {
    if (addr.af() != af()) refuseFamily("next hop", addr, af());
    NextHop nextHop{};
    std::memcpy(nextHop.address, addr.bytes().data(), sizeof(nextHop.address));
    return nextHop;
  }
  static Ipkit::IpGenAddr addressOf(const NextHop& nextHop) {
    return Ipkit::IpGenAddr(Ipkit::Ip6Addr(bytesOf(nextHop.address)));
  }

 private:
  static std::array<std::uint8_t, 16> bytesOf(const std::uint8_t (&address)[16]) {
    std::array<std::uint8_t, 16> bytes;
    std::memcpy(bytes.data(), address, bytes.size());
    return bytes;
  }
};

static_assert(sizeof(Ip4::PrefixKey) == 8 && sizeof(Ip6::PrefixKey) == 24 &&
                  sizeof(Ip4::NextHop) == 8 && sizeof(Ip6::NextHop) == 16,
              "keys and next hops carry no padding");
static_assert(std::is_trivially_copyable_v<Ip4::PrefixKey> &&
                  std::is_trivially_copyable_v<Ip6::PrefixKey> &&
                  std::is_trivially_copyable_v<Ip4::NextHop> &&
                  std::is_trivially_copyable_v<Ip6::NextHop>,
              "keys and next hops are copied as plain bytes");

}  // namespace ShadowFamily
}  // namespace Routing
