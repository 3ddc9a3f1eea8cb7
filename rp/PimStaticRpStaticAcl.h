#pragma once
// Routing::Pim::Static::RpStaticAcl: one access list that at least one static RP uses: the group
// prefixes the list permits now (grpPrefix) and the RPs that use it (rpAddr). The static RP
// reactor keeps one per list name so that a change of the list's rules is carried to its RPs by
// difference, prefix by prefix, instead of by rebuilding every RP.
//
// Invariants:
//  1. grpPrefix and rpAddr are hash collections: their iteration order is not promised.
//  2. Setting a key to the value it already holds stores nothing and notifies nothing; a new key,
//     a changed value and a deletion notify onGrpPrefix(prefix) / onRpAddr(address).
//  3. The owner deletes the entity as soon as rpAddr becomes empty.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/String.h"

namespace Routing {
namespace Pim {
namespace Static {

class RpStaticAcl : public Kel::Entity {
 public:
  using GrpPrefixCollection = Kel::HashCollection<Ipkit::IpGenPrefix, bool>;
  using RpAddrCollection = Kel::HashCollection<Ipkit::IpGenAddr, bool>;

  class NotifieeConst : public Kel::Notifiee<RpStaticAcl> {
   public:
    KEL_ON_KEY(GrpPrefix, Ipkit::IpGenPrefix)
    KEL_ON_KEY(RpAddr, Ipkit::IpGenAddr)
  };

  KEL_KEY(RpStaticAcl, aclName, Kel::Name)

  KEL_VALUE_COLLECTION(grpPrefix, GrpPrefix, GrpPrefixCollection)
  KEL_VALUE_COLLECTION(rpAddr, RpAddr, RpAddrCollection)
};

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
