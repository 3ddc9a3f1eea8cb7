#pragma once
// Routing::Pim::RpCandidateStatus: the candidate RPs of one source (static configuration or
// bootstrap), as candidate sets keyed by group prefix.
//
// Invariants:
//  1. `crpSet` is a hash collection: its iteration order is not promised.
//  2. Each change of `crpSet` notifies onCrpSet(prefix); changes inside a set notify that set.
//     crpSetNotify() notifies onCrpSet() with no prefix: "the whole collection changed", which a
//     reactor answers by re-reading every set.
//  3. One writer per status; everything else reads it through PtrConst.

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
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
    KEL_ON_KEY(CrpSet, Ipkit::IpGenPrefix)
    KEL_ON(RpSetType)
  };

  // crpSetIs(prefix) creates the set of `prefix` or returns the existing one; crpSetMutable is
  // the writer's handle on an existing set, or null.
  KEL_ENTITY_NAME("Routing::Pim::RpCandidateStatus")
  KEL_ENTITY_COLLECTION(crpSet, CrpSet, CrpSetCollection)
  KEL_SCALAR(rpSetType, RpSetType, rpTypeUnknown, RpType)
};

}  // namespace Pim
}  // namespace Routing
