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
//     recording the message (lastCorruption()); nothing here catches it.

#include <cstddef>
#include <string>

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Entity.h"
#include "framework/Mirra/MirraMap.h"
#include "model/Pim/RpHash.h"

namespace Routing {
namespace Pim {

class RpHashStatus : public Kel::Entity {
 public:
  using Table = Mirra::MirraMap<Ipkit::IpGenPrefix, RpHash, RpHashKey>;

  class NotifieeConst : public Kel::Notifiee<RpHashStatus> {
   public:
    virtual void onRpHash(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
  };

  RpHashStatus() {
    rpHash_.corruptionHandlerIs([this](const std::string& message) { lastCorruption_ = message; });
  }

  RpHash rpHash(const Ipkit::IpGenPrefix& prefix) const { return rpHash_.lookup(prefix); }
  // The whole table, for iteration (values are copies) and member count.
  const Table& rpHash() const { return rpHash_; }
  std::size_t rpHashs() const { return rpHash_.members(); }
  // A read-only attachment to this table, as another process would hold.
  Table reader() const { return rpHash_.reader(); }

  void rpHashIs(const RpHash& entry) {
    if (rpHash_.insert(entry)) notify(&NotifieeConst::onRpHash, entry.key());
  }
  void rpHashDel(const Ipkit::IpGenPrefix& prefix) {
    if (rpHash_.erase(prefix)) notify(&NotifieeConst::onRpHash, prefix);
  }

  const std::string& lastCorruption() const { return lastCorruption_; }
  // Fault injection: see Mirra::MirraMap::damageForTest.
  void damageForTest(const Ipkit::IpGenPrefix& prefix) { rpHash_.damageForTest(prefix); }

 private:
  Table rpHash_;
  std::string lastCorruption_;
};

}  // namespace Pim
}  // namespace Routing
