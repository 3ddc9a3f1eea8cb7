#pragma once
// Routing::Pim::RpLocalStatus: the local RP table, the candidate RP addresses (of either source)
// that are addresses of this router, each with the interface that holds it.
//
// Invariants:
//  1. `localRpSet` is keyed by RP address and iterates in ascending address order.
//  2. Each change of `localRpSet` notifies onLocalRpSet(address).
//  3. One writer (RpLocalSm); everything else reads it through PtrConst.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "model/Pim/RpLocalInfo.h"

namespace Routing {
namespace Pim {

class RpLocalStatus : public Kel::Entity {
 public:
  using LocalRpSetCollection =
      Kel::OrderedCollection<Ipkit::IpGenAddr, Kel::Ptr<RpLocalInfo>, Kel::PtrConst<RpLocalInfo>>;

  class NotifieeConst : public Kel::Notifiee<RpLocalStatus> {
   public:
    KEL_ON_KEY(LocalRpSet, Ipkit::IpGenAddr)
  };

  KEL_ENTITY_NAME("Routing::Pim::RpLocalStatus")
  KEL_ENTITY_COLLECTION(localRpSet, LocalRpSet, LocalRpSetCollection)
};

}  // namespace Pim
}  // namespace Routing
