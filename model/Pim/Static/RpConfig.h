#pragma once
// Routing::Pim::Static::RpConfig: the static RP configuration of one VRF: its name and one RpEntry
// per configured RP address (rpTable, ascending by address).
// Each RP added to or removed from rpTable notifies onRpTable(address).

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/L3/VrfName.h"
#include "model/Pim/Static/RpEntry.h"

namespace Routing {
namespace Pim {
namespace Static {

class RpConfig : public Kel::Entity {
 public:
  using RpTable =
      Kel::OrderedCollection<Ipkit::IpGenAddr, Kel::Ptr<RpEntry>, Kel::PtrConst<RpEntry>>;

  class NotifieeConst : public Kel::Notifiee<RpConfig> {
   public:
    KEL_ON_KEY(RpTable, Ipkit::IpGenAddr)
  };

  KEL_KEY(RpConfig, vrfName, L3::VrfName)

  // rpTableIs(address) creates the entry of `address` or returns the existing one;
  // rpTableMutable is the writer's handle on an existing entry, or null.
  KEL_ENTITY_NAME("Routing::Pim::Static::RpConfig")
  KEL_ENTITY_COLLECTION(rpTable, RpTable, RpTable)
};

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
