#pragma once
// Routing::ShadowFib::FecTable<Family>: the forwarding equivalence classes of one route shadow, as
// two shared tables: FEC records keyed by FEC identifier and their vias keyed by (identifier,
// position).
//
// The shadow writes it; readers must attach() before they read, as a reader of a shared segment
// maps it first. Attaching is a reader's own act and changes nothing a reader can observe, so it is
// allowed through a const table.
//
// Invariants:
//  1. FecTable keeps invariants 2 and 3 of FibRecords.h: fecIs writes a FEC's record and exactly
//     its vias, removing vias left over from a longer list.
//  2. A refused fecIs (see there) writes nothing.
//  3. Reads never fail for missing data: an absent FEC reads as the empty Fec (no vias), an absent
//     via as the empty Via. A read that meets a damaged record yields the same empty value,
//     the damage reported once by the table it read (Mirra::tolerantLookup).

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Mirra/MirraMap.h"
#include "framework/Mirra/TolerantRead.h"
#include "framework/Routing/Shadow/FibRecords.h"

namespace Routing {
namespace ShadowFib {

template <class Family>
class FecTable {
 public:
  using FecMap = Mirra::MirraMap<FecId, Fec, FecKeyOf>;
  using ViaRecord = Via<Family>;
  using ViaMap = Mirra::MirraMap<ViaKey, ViaRecord, ViaKeyOf<Family>, ViaKeyHash>;

  // Writes FEC `id` with exactly `vias`, in order; returns whether anything stored changed.
  // Refuses with Kel::RangeException, writing nothing: id kNoFec, more than kMaxVias vias, a next
  // hop of another family, an interface name too long to store.
  bool fecIs(FecId id, const std::vector<ViaEntry>& vias) {
    if (id == kNoFec) throw Kel::RangeException("FEC identifier 0 names no FEC");
    if (vias.size() > kMaxVias) {
      throw Kel::RangeException("FEC " + std::to_string(id) + " given " +
                                std::to_string(vias.size()) + " vias, at most " +
                                std::to_string(kMaxVias) + " allowed");
    }
    std::vector<Via<Family>> records;
    records.reserve(vias.size());
    for (std::uint32_t index = 0; index < vias.size(); ++index) {
      records.push_back(Via<Family>{ViaKey{id, index, 0}, Family::nextHopOf(vias[index].nextHop),
                                    Ipkit::IntfIdStored(vias[index].intfId)});
    }
    const std::uint32_t oldVias = fecs_.lookup(id).vias;
    bool changed = false;
    for (const auto& record : records) changed |= vias_.insert(record);
    for (std::uint32_t index = static_cast<std::uint32_t>(records.size()); index < oldVias;
         ++index) {
      changed |= vias_.erase(ViaKey{id, index, 0});
    }
    changed |= fecs_.insert(Fec{id, static_cast<std::uint32_t>(records.size()), 0});
    return changed;
  }

  // Removes FEC `id` and its vias; returns false when it was absent.
  bool fecDel(FecId id) {
    const std::uint32_t oldVias = fecs_.lookup(id).vias;
    for (std::uint32_t index = 0; index < oldVias; ++index) vias_.erase(ViaKey{id, index, 0});
    return fecs_.erase(id);
  }

  // Makes the table readable through this object; later calls do nothing.
  void attach() const {
    if (fecReader_) return;
    fecReader_.emplace(fecs_.reader());
    viaReader_.emplace(vias_.reader());
  }
  bool attached() const { return fecReader_.has_value(); }
  // How many corruptions this object's reads have reported, over both tables.
  std::size_t corruptions() const {
    return (fecReader_ ? fecReader_->corruptions() : 0) +
           (viaReader_ ? viaReader_->corruptions() : 0);
  }

  // REQUIRES: attached() (else Kel::RangeException).
  Fec fec(FecId id) const { return Mirra::tolerantLookup(fecReader(), id); }
  // REQUIRES: attached() (else Kel::RangeException).
  Via<Family> via(FecId id, std::uint32_t index) const {
    return Mirra::tolerantLookup(viaReader(), ViaKey{id, index, 0});
  }

  // The writer's tables, for iteration and for tests that damage records.
  const FecMap& fecs() const { return fecs_; }
  const ViaMap& vias() const { return vias_; }
  FecMap& fecsForTest() { return fecs_; }
  ViaMap& viasForTest() { return vias_; }

 private:
  static void refuseUnattached() {
    throw Kel::RangeException("FEC table read before it was attached");
  }
  const FecMap& fecReader() const {
    if (!fecReader_) refuseUnattached();
    return *fecReader_;
  }
  const ViaMap& viaReader() const {
    if (!viaReader_) refuseUnattached();
    return *viaReader_;
  }

  FecMap fecs_;
  ViaMap vias_;
  mutable std::optional<FecMap> fecReader_;
  mutable std::optional<ViaMap> viaReader_;
};

}  // namespace ShadowFib
}  // namespace Routing
