#pragma once
// Routing::Pim::RpLocalInfo: one candidate RP address that is an address of this router, with the
// interface on which it is local. Written by RpLocalSm only.

#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"

namespace Routing {
namespace Pim {

class RpLocalInfo : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<RpLocalInfo> {
   public:
    KEL_ON(IntfId)
  };

  KEL_KEY(RpLocalInfo, address, Ipkit::IpGenAddr)
  KEL_SCALAR(intfId, IntfId, Ipkit::IntfId(), Ipkit::IntfId)
};

}  // namespace Pim
}  // namespace Routing
