#pragma once
// The unicast route shadow of one address family: Routing::Shadow::Status (IPv4) and
// Routing6::Shadow::Status (IPv6), one implementation over the family's description
// (ShadowFamily.h).
//
// A shadow mirrors the unicast routes installed on the router in three forms: a prefix trie for
// longest-match searches, a shared route table keyed by prefix (route type and FEC identifier per
// route) and a shared FEC table holding each FEC's vias. The host installs and withdraws routes
// through routeIs / routeDel (tests and the pimrp tool play the host); readers watch the trie's
// changedRoute announcements.
//
// Invariants:
//  1. Every route of the route table has its own FEC, under an identifier the shadow chose
//     (never kNoFec); replacing a route keeps its identifier and rewrites the FEC's vias.
//  2. While `trie` is set, it holds every route installed or replaced through routeIs since it
//     was set, and none withdrawn since, each with its route type as value. A host that sets
//     another trie hands in one that already holds the routes it wants matched.
//  3. routeIs and routeDel update the FEC table, then the route table, then the trie, and only
//     then announce the prefix through the trie's changedRoute, so a reader woken by the
//     announcement sees the change complete. A call that changes nothing announces nothing.
//  4. Bad input (a prefix or next hop of the other family, too many vias, an interface name too
//     long to store) is refused with Kel::RangeException before anything is written.
//  5. route(prefix) never fails: an absent prefix reads as the default route (type 0, kNoFec);
//     a damaged record is reported to the route table and read as the default route too.

#include <cstdint>
#include <vector>

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/String.h"
#include "framework/Mirra/MirraMap.h"
#include "framework/Mirra/TolerantRead.h"
#include "framework/Routing/Shadow/FecTable.h"
#include "framework/Routing/Shadow/FibRecords.h"
#include "framework/Routing/Shadow/ShadowFamily.h"
#include "framework/Routing/TrieGen.h"

namespace Routing {

template <class FamilyDescription>
class ShadowStatus : public Kel::Entity {
 public:
  using Family = FamilyDescription;
  using PrefixKey = typename Family::PrefixKey;
  using Route = ShadowFib::Route<Family>;
  using RouteTable = Mirra::MirraMap<PrefixKey, Route, ShadowFib::RouteKeyOf<Family>,
                                     typename Family::PrefixKeyHash>;
  using FecTable = ShadowFib::FecTable<Family>;

  class NotifieeConst : public Kel::Notifiee<ShadowStatus> {
   public:
    KEL_ON(Trie)
  };

  // Starts with an empty trie named trieName.
  explicit ShadowStatus(const Kel::Name& trieName) : trie_(new TrieGen(trieName, Family::af())) {}

  static constexpr Ipkit::AddressFamily af() { return Family::af(); }

  KEL_SCALAR(trie, Trie, nullptr, Kel::Ptr<TrieGen>)

  const RouteTable& routeTable() const { return routeTable_; }
  // Invariant 5. REQUIRES: prefix.af() == af() (else Kel::RangeException).
  Route route(const Ipkit::IpGenPrefix& prefix) const {
    return Mirra::tolerantLookup(routeTable_, Family::keyOf(prefix));
  }
  const FecTable& fecTable() const { return fecTable_; }

  // Installs the route, or replaces its type and vias (invariants 1 to 4).
  void routeIs(const Ipkit::IpGenPrefix& prefix, std::uint32_t type,
               const std::vector<ShadowFib::ViaEntry>& vias) {
    const PrefixKey key = Family::keyOf(prefix);
    const Route old = routeTable_.lookup(key);
    const ShadowFib::FecId fecId = old.fecId != ShadowFib::kNoFec ? old.fecId : nextFecId_;
    bool changed = fecTable_.fecIs(fecId, vias);
    if (fecId == nextFecId_) ++nextFecId_;
    changed |= routeTable_.insert(Route{key, type, 0, fecId});
    if (!changed) return;
    if (trie()) {
      trie()->routeIs(prefix, type);
      trie()->changedRouteIs(prefix);
    }
  }

  // Withdraws the route and its FEC; no effect when absent.
  void routeDel(const Ipkit::IpGenPrefix& prefix) {
    const PrefixKey key = Family::keyOf(prefix);
    const Route old = routeTable_.lookup(key);
    if (old.fecId == ShadowFib::kNoFec) return;
    fecTable_.fecDel(old.fecId);
    routeTable_.erase(key);
    if (trie()) {
      trie()->routeDel(prefix);
      trie()->changedRouteIs(prefix);
    }
  }

  // The writer's tables, for tests that damage records.
  RouteTable& routeTableForTest() { return routeTable_; }
  FecTable& fecTableForTest() { return fecTable_; }

 private:
  RouteTable routeTable_;
  FecTable fecTable_;
  ShadowFib::FecId nextFecId_ = 1;
};

extern template class ShadowStatus<ShadowFamily::Ip4>;
extern template class ShadowStatus<ShadowFamily::Ip6>;

namespace Shadow {
using Status = ShadowStatus<ShadowFamily::Ip4>;
}  // namespace Shadow

}  // namespace Routing

namespace Routing6 {
namespace Shadow {
using Status = Routing::ShadowStatus<Routing::ShadowFamily::Ip6>;
}  // namespace Shadow
}  // namespace Routing6
