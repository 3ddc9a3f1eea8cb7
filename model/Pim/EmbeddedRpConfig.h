#pragma once
// Routing::Pim::EmbeddedRpConfig: the embedded-RP configuration, as the operator sets it.
//
// With `enabled`, a known IPv6 group whose address names its own RP (EmbeddedRp) is served by
// that RP in sparse mode, above every configured or learnt RP. At most `limit` groups use it at
// once: any group that joins names an RP, and each RP in use costs the router state and the
// allocator a bit. `groupRange` restricts which groups may: empty, every group of ff70::/12 may.
//
// Invariants:
//  1. Off by default, limit kDefaultLimit, no group range.
//  2. Every change notifies: onEnabled(), onLimit(), onGroupRange(prefix).
//  3. One writer (the agent's configuration); the embedded-RP reactor reads it.

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Types.h"

namespace Routing {
namespace Pim {

class EmbeddedRpConfig : public Kel::Entity {
 public:
  static constexpr U32 kDefaultLimit = 25;

  using GroupRangeCollection = Kel::OrderedCollection<Ipkit::IpGenPrefix, bool>;

  class NotifieeConst : public Kel::Notifiee<EmbeddedRpConfig> {
   public:
    KEL_ON(Enabled)
    KEL_ON(Limit)
    KEL_ON_KEY(GroupRange, Ipkit::IpGenPrefix)
  };

  KEL_ENTITY_NAME("Routing::Pim::EmbeddedRpConfig")
  KEL_SCALAR(enabled, Enabled, false, bool)
  KEL_SCALAR(limit, Limit, kDefaultLimit, U32)
  KEL_VALUE_COLLECTION(groupRange, GroupRange, GroupRangeCollection)
};

}  // namespace Pim
}  // namespace Routing
