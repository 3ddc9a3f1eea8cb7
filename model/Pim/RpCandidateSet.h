#pragma once
// Routing::Pim::RpCandidateSet: the candidates for one group prefix, keyed by RP address.
//
// Invariant: `rp` iterates in ascending address order; selection relies on that order.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "model/Pim/RpCandidate.h"

namespace Routing {
namespace Pim {

class RpCandidateSet : public Kel::Entity {
 public:
  using RpCollection =
      Kel::OrderedCollection<Ipkit::IpGenAddr, Kel::Ptr<RpCandidate>, Kel::PtrConst<RpCandidate>>;

  class NotifieeConst : public Kel::Notifiee<RpCandidateSet> {
   public:
    virtual void onRp(const Ipkit::IpGenAddr& address) { (void)address; }
  };

  explicit RpCandidateSet(const Ipkit::IpGenPrefix& prefix) : prefix_(prefix) {}

  const Ipkit::IpGenPrefix& prefix() const { return prefix_; }

  const RpCollection& rp() const { return rp_; }
  Kel::PtrConst<RpCandidate> rp(const Ipkit::IpGenAddr& address) const { return rp_.find(address); }
  // Creates the candidate, or returns the existing one.
  Kel::Ptr<RpCandidate> rpIs(const Ipkit::IpGenAddr& address) {
    auto [candidate, created] =
        rp_.insertNew(address, [&] { return Kel::Ptr<RpCandidate>(new RpCandidate(address)); });
    if (created) notify(&NotifieeConst::onRp, address);
    return candidate;
  }
  // The writer's handle on an existing candidate, or null.
  Kel::Ptr<RpCandidate> rpMutable(const Ipkit::IpGenAddr& address) {
    const auto* stored = rp_.findStored(address);
    return stored ? *stored : nullptr;
  }
  void rpDel(const Ipkit::IpGenAddr& address) {
    if (rp_.erase(address)) notify(&NotifieeConst::onRp, address);
  }
  void rpDelAll() {
    rp_.eraseAll([&](const Ipkit::IpGenAddr& address) { notify(&NotifieeConst::onRp, address); });
  }
  void rpNotify(const Ipkit::IpGenAddr& address) { notify(&NotifieeConst::onRp, address); }

 private:
  const Ipkit::IpGenPrefix prefix_;
  RpCollection rp_;
};

}  // namespace Pim
}  // namespace Routing
