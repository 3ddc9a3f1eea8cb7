#pragma once
// The records of the shared unicast forwarding tables that a route shadow holds, for one address
// family: routes keyed by prefix, forwarding equivalence classes (FECs) keyed by FEC identifier,
// and the vias of each FEC keyed by (FEC identifier, position).
//
// A FEC may have up to kMaxVias vias. They live in their own table rather than inline in the FEC
// record: a reader that wants one via then copies and checksums one small record, not the room for
// all of them.
//
// Invariants:
//  1. Every record is trivially copyable, of fixed size and free of padding (reserved fields are
//     written as zero), so that the bytes a table checksums are exactly the fields.
//  2. FEC identifier kNoFec (0) names no FEC: the default route, which a lookup of an absent
//     prefix yields, carries it, and no FEC is stored under it.
//  3. A FEC with n vias has exactly the via records at positions 0 .. n-1.
//
// The records are also known by the names the forwarding tables use: Mirra::Fib::Route and
// Mirra::Fib6::Route (with Fec and Via beside them).

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/IntfIdStored.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Routing/Shadow/ShadowFamily.h"

namespace Routing {
namespace ShadowFib {

using FecId = std::uint64_t;
constexpr FecId kNoFec = 0;
constexpr std::uint32_t kMaxVias = 512;

template <class Family>
struct Route {
  typename Family::PrefixKey prefix;
  std::uint32_t type;
  std::uint32_t reserved;
  FecId fecId;

  bool operator==(const Route& other) const {
    return prefix == other.prefix && type == other.type && fecId == other.fecId;
  }
  bool operator!=(const Route& other) const { return !(*this == other); }
};

template <class Family>
struct RouteKeyOf {
  const typename Family::PrefixKey& operator()(const Route<Family>& route) const {
    return route.prefix;
  }
};

struct Fec {
  FecId fecId;
  std::uint32_t vias;
  std::uint32_t reserved;

  bool operator==(const Fec& other) const { return fecId == other.fecId && vias == other.vias; }
  bool operator!=(const Fec& other) const { return !(*this == other); }
};

struct FecKeyOf {
  const FecId& operator()(const Fec& fec) const { return fec.fecId; }
};

struct ViaKey {
  FecId fecId;
  std::uint32_t index;
  std::uint32_t reserved;

  bool operator==(const ViaKey& other) const {
    return fecId == other.fecId && index == other.index;
  }
  bool operator<(const ViaKey& other) const {
    return fecId != other.fecId ? fecId < other.fecId : index < other.index;
  }
};

struct ViaKeyHash {
  std::size_t operator()(const ViaKey& key) const {
    return ShadowFamily::mixWords(key.fecId, key.index);
  }
};

template <class Family>
struct Via {
  ViaKey key;
  typename Family::NextHop nextHop;
  Ipkit::IntfIdStored intfId;

  bool operator==(const Via& other) const {
    return key == other.key && nextHop == other.nextHop && intfId == other.intfId;
  }
  bool operator!=(const Via& other) const { return !(*this == other); }
};

template <class Family>
struct ViaKeyOf {
  const ViaKey& operator()(const Via<Family>& via) const { return via.key; }
};

// A via as the host hands it in: a next hop of the shadow's family and the interface.
struct ViaEntry {
  Ipkit::IpGenAddr nextHop;
  Ipkit::IntfId intfId;
};

static_assert(sizeof(Route<ShadowFamily::Ip4>) == 24 && sizeof(Route<ShadowFamily::Ip6>) == 40 &&
                  sizeof(Fec) == 16 && sizeof(Via<ShadowFamily::Ip4>) == 88 &&
                  sizeof(Via<ShadowFamily::Ip6>) == 96,
              "records carry no padding");
static_assert(std::is_trivially_copyable_v<Route<ShadowFamily::Ip6>> &&
                  std::is_trivially_copyable_v<Via<ShadowFamily::Ip6>>,
              "records are copied as plain bytes");

}  // namespace ShadowFib
}  // namespace Routing

namespace Mirra {
namespace Fib {
using Route = Routing::ShadowFib::Route<Routing::ShadowFamily::Ip4>;
using Fec = Routing::ShadowFib::Fec;
using Via = Routing::ShadowFib::Via<Routing::ShadowFamily::Ip4>;
}  // namespace Fib
namespace Fib6 {
using Route = Routing::ShadowFib::Route<Routing::ShadowFamily::Ip6>;
using Fec = Routing::ShadowFib::Fec;
using Via = Routing::ShadowFib::Via<Routing::ShadowFamily::Ip6>;
}  // namespace Fib6
}  // namespace Mirra
