#pragma once
// Routing::Pim::Static::RpEntry: the static configuration of one RP address: the group prefixes
// and access lists it serves, the per-prefix and per-list priority, hash mask length and override,
// and the RP's PIM mode.
//
// Invariants:
//  1. Every collection is ordered by key; a missing key means "not configured" (readers test
//     presence with x().contains(key), and fall back to the sentinels 256 / 128 / false).
//  2. Each change of a key notifies the matching onX(key); setting the value already held
//     notifies nothing. A change of mode notifies onMode().

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/String.h"
#include "model/Pim/PimTypes.h"

namespace Routing {
namespace Pim {
namespace Static {

class RpEntry : public Kel::Entity {
 public:
  template <class V>
  using ByPrefix = Kel::OrderedCollection<Ipkit::IpGenPrefix, V>;
  template <class V>
  using ByAcl = Kel::OrderedCollection<Kel::String, V>;

  class NotifieeConst : public Kel::Notifiee<RpEntry> {
   public:
    KEL_ON_KEY(Group, Ipkit::IpGenPrefix)
    KEL_ON_KEY(Acl, Kel::String)
    KEL_ON_KEY(PriorityGrp, Ipkit::IpGenPrefix)
    KEL_ON_KEY(PriorityAcl, Kel::String)
    KEL_ON_KEY(HashMaskGrp, Ipkit::IpGenPrefix)
    KEL_ON_KEY(HashMaskAcl, Kel::String)
    KEL_ON_KEY(OverrideDynGrp, Ipkit::IpGenPrefix)
    KEL_ON_KEY(OverrideDynAcl, Kel::String)
    KEL_ON(Mode)
  };

  KEL_KEY(RpEntry, address, Ipkit::IpGenAddr)

  KEL_VALUE_COLLECTION(group, Group, ByPrefix<bool>)
  KEL_VALUE_COLLECTION(acl, Acl, ByAcl<bool>)
  KEL_VALUE_COLLECTION(priorityGrp, PriorityGrp, ByPrefix<RpPriority>)
  KEL_VALUE_COLLECTION(priorityAcl, PriorityAcl, ByAcl<RpPriority>)
  KEL_VALUE_COLLECTION(hashMaskGrp, HashMaskGrp, ByPrefix<RpHashMaskLen>)
  KEL_VALUE_COLLECTION(hashMaskAcl, HashMaskAcl, ByAcl<RpHashMaskLen>)
  KEL_VALUE_COLLECTION(overrideDynGrp, OverrideDynGrp, ByPrefix<bool>)
  KEL_VALUE_COLLECTION(overrideDynAcl, OverrideDynAcl, ByAcl<bool>)
  KEL_SCALAR(mode, Mode, modePimSm, Mode)
};

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
