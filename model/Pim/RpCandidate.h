#pragma once
// Routing::Pim::RpCandidate: one candidate RP for one group prefix, keyed by its address.
// Written by the candidate status's one writer (static configuration or bootstrap); read by
// selection and by the RP hash reactors, which react to its attributes.
//
// A candidate not yet written carries the "not set" values: priority 256, hash mask length 128,
// no override, mode 0 (which selection ignores), setup time 0.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "model/Pim/PimTypes.h"

namespace Routing {
namespace Pim {

class RpCandidate : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<RpCandidate> {
   public:
    KEL_ON(Priority)
    KEL_ON(HashMaskLen)
    KEL_ON(Override)
    KEL_ON(PimMode)
    KEL_ON(SetupTime)
  };

  KEL_KEY(RpCandidate, address, Ipkit::IpGenAddr)

  KEL_SCALAR(priority, Priority, kRpPriorityNone, RpPriority)
  KEL_SCALAR(hashMaskLen, HashMaskLen, kRpHashMaskLenNone, RpHashMaskLen)
  KEL_SCALAR(override, Override, false, bool)
  KEL_SCALAR(pimMode, PimMode, modePimNone, Mode)
  KEL_SCALAR(setupTime, SetupTime, 0.0, double)
};

}  // namespace Pim
}  // namespace Routing
