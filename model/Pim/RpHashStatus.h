#pragma once
// Routing::Pim::RpHashStatus: one RP hash table, the answer to "which RP serves this prefix",
// keyed by group prefix and held in a shared table (Mirra::MirraMap) so that other processes can
// read it.
//
// Invariants:
//  1. One writer: the status that creates the table holds it in single-writer mode; readers()
//     hands out read-only attachments to the same table.
//  2. rpHash(prefix) never fails: a missing prefix yields the default RpHash.
//  3. Every add, replace (by a different value) and removal notifies onRpHash(prefix); storing
//     the value already held notifies nothing.
//  4. A read that finds the table corrupted raises Mirra::CorruptionDetectedException after
//     reporting it (lastCorruption(), corruptions()); nothing here catches it. A reader that
//     reads on past damage does so through Mirra::tolerantRead. The writer's
//     rpHashIs/rpHashDel never throw for corruption: they report and drop damaged entries, then
//     write (see Mirra::MirraMap, invariant 4).
//  5. rpHash() iterates in ascending prefix order (IPv4 before IPv6, then by address, then by
//     length); rpHashFrom(prefix) positions at the first key at or after prefix. The keys inside
//     a prefix P (P itself and every longer prefix it contains) sort together, starting at P:
//     walk from rpHashFrom(P) while P.contains(key); forEachRpHashWithin does exactly that.
//  6. RpHashStatus() keeps its table in process memory; RpHashStatus(table) works over a given
//     attachment, such as Table::attachShared(name, Mirra::AttachMode::singleWriter) for a table
//     that other processes read, or a reader attachment to another process's table (whose
//     rpHashIs/rpHashDel are then refused).

#include <cstddef>
#include <string>
#include <utility>

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Entity.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/MirraMap.h"
#include "model/Pim/RpHash.h"

namespace Routing {
namespace Pim {

class RpHashStatus : public Kel::Entity {
 public:
  using Table = Mirra::MirraMap<Ipkit::IpGenPrefix, RpHash, RpHashKey, RpHashKeyHash>;

  class NotifieeConst : public Kel::Notifiee<RpHashStatus> {
   public:
    virtual void onRpHash(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
  };

  RpHashStatus() = default;
  explicit RpHashStatus(Table table) : rpHash_(std::move(table)) {}

  RpHash rpHash(const Ipkit::IpGenPrefix& prefix) const { return rpHash_.lookup(prefix); }
  // The whole table, for iteration in key order (values are copies) and member count.
  const Table& rpHash() const { return rpHash_; }
  // The first entry whose key is not less than prefix (a bookmark that has gone resumes at the
  // next key).
  Table::Iterator rpHashFrom(const Ipkit::IpGenPrefix& prefix) const {
    return rpHash_.lowerBound(prefix);
  }
  // Calls visit(entry) for every entry whose key lies inside prefix (prefix itself included), in
  // key order. visit may write this table. Throws Mirra::CorruptionDetectedException, after
  // reporting, when the walk meets damage; the walk ends there.
  template <class Visit>
  void forEachRpHashWithin(const Ipkit::IpGenPrefix& prefix, Visit visit) const {
    const Table::Iterator end = rpHash_.end();
    for (Table::Iterator at = rpHash_.lowerBound(prefix); at != end; ++at) {
      if (!prefix.contains(at->key())) return;
      visit(*at);
    }
  }
  std::size_t rpHashs() const { return rpHash_.members(); }
  // A read-only attachment to this table, as another process would hold.
  Table reader() const { return rpHash_.reader(); }

  void rpHashIs(const RpHash& entry) {
    if (rpHash_.insert(entry)) notify(&NotifieeConst::onRpHash, entry.key());
  }
  void rpHashDel(const Ipkit::IpGenPrefix& prefix) {
    if (rpHash_.erase(prefix)) notify(&NotifieeConst::onRpHash, prefix);
  }

  // Corruption found by this table's writer attachment (which in-process readers share).
  const std::string& lastCorruption() const { return rpHash_.lastCorruption(); }
  std::size_t corruptions() const { return rpHash_.corruptions(); }
  // Hands back a Mirra::CorruptionDetectedException a reader caught (Mirra::tolerantRead does it):
  // see Mirra::MirraMap::corruptionDetected.
  void corruptionDetected(const Mirra::CorruptionDetectedException& caught) const {
    rpHash_.corruptionDetected(caught);
  }

 private:
  Table rpHash_;
};

}  // namespace Pim
}  // namespace Routing
