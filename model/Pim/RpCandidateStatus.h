#pragma once
// Routing::Pim::RpCandidateStatus: the candidate RPs of one source (static configuration or
// bootstrap), as candidate sets keyed by group prefix.
//
// Invariants:
//  1. `crpSet` is a hash collection: its iteration order is not promised.
//  2. Each change of `crpSet` notifies onCrpSet(prefix); changes inside a set notify that set.
//  3. One writer per status; everything else reads it through PtrConst.

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateSet.h"

namespace Routing {
namespace Pim {

class RpCandidateStatus : public Kel::Entity {
 public:
  using CrpSetCollection = Kel::HashCollection<Ipkit::IpGenPrefix, Kel::Ptr<RpCandidateSet>,
                                               Kel::PtrConst<RpCandidateSet>>;

  class NotifieeConst : public Kel::Notifiee<RpCandidateStatus> {
   public:
    virtual void onCrpSet(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
    virtual void onRpSetType() {}
  };

  const CrpSetCollection& crpSet() const { return crpSet_; }
  Kel::PtrConst<RpCandidateSet> crpSet(const Ipkit::IpGenPrefix& prefix) const {
    return crpSet_.find(prefix);
  }
  // Creates the set of `prefix`, or returns the existing one.
  Kel::Ptr<RpCandidateSet> crpSetIs(const Ipkit::IpGenPrefix& prefix) {
    auto [set, created] = crpSet_.insertNew(
        prefix, [&] { return Kel::Ptr<RpCandidateSet>(new RpCandidateSet(prefix)); });
    if (created) notify(&NotifieeConst::onCrpSet, prefix);
    return set;
  }
  // The writer's handle on an existing set, or null.
  Kel::Ptr<RpCandidateSet> crpSetMutable(const Ipkit::IpGenPrefix& prefix) {
    const auto* stored = crpSet_.findStored(prefix);
    return stored ? *stored : nullptr;
  }
  void crpSetDel(const Ipkit::IpGenPrefix& prefix) {
    if (crpSet_.erase(prefix)) notify(&NotifieeConst::onCrpSet, prefix);
  }
  void crpSetDelAll() {
    crpSet_.eraseAll(
        [&](const Ipkit::IpGenPrefix& prefix) { notify(&NotifieeConst::onCrpSet, prefix); });
  }
  void crpSetNotify(const Ipkit::IpGenPrefix& prefix) { notify(&NotifieeConst::onCrpSet, prefix); }

  RpType rpSetType() const { return rpSetType_; }
  void rpSetTypeIs(RpType type) {
    if (rpSetType_ == type) return;
    rpSetType_ = type;
    notify(&NotifieeConst::onRpSetType);
  }

 private:
  CrpSetCollection crpSet_;
  RpType rpSetType_ = rpTypeUnknown;
};

}  // namespace Pim
}  // namespace Routing
