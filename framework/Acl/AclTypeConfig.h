#pragma once
// Acl::AclTypeConfig: the access lists of one address family, by name (acl, ascending).
// Each list added or removed notifies onAcl(name).

#include "framework/Acl/AclConfig.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/String.h"

namespace Acl {

class AclTypeConfig : public Kel::Entity {
 public:
  using AclCollection =
      Kel::OrderedCollection<Kel::Name, Kel::Ptr<AclConfig>, Kel::PtrConst<AclConfig>>;

  class NotifieeConst : public Kel::Notifiee<AclTypeConfig> {
   public:
    KEL_ON_KEY(Acl, Kel::Name)
  };

  KEL_ENTITY_NAME("Acl::AclTypeConfig")
  // aclIs(name) creates the list `name`, or returns the existing one.
  KEL_ENTITY_COLLECTION(acl, Acl, AclCollection)
};

}  // namespace Acl
