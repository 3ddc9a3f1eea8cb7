#pragma once
// Routing::Pim::RpCandidateSet: the candidates for one group prefix, keyed by RP address.
//
// Invariant: `rp` iterates in ascending address order; selection relies on that order.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
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
    KEL_ON_KEY(Rp, Ipkit::IpGenAddr)
  };

  KEL_KEY(RpCandidateSet, prefix, Ipkit::IpGenPrefix)

  // rpIs(address) creates the candidate or returns the existing one; rpMutable is the writer's
  // handle on an existing one, or null.
  KEL_ENTITY_NAME("Routing::Pim::RpCandidateSet")
  KEL_ENTITY_COLLECTION(rp, Rp, RpCollection)
};

}  // namespace Pim
}  // namespace Routing
