#pragma once
// Acl::AclConfig: one access list, named, whose rules are its current sub-configuration
// (currCfg). Replacing or dropping currCfg notifies onCurrCfg().

#include "framework/Acl/AclSubConfig.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/String.h"

namespace Acl {

class AclConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<AclConfig> {
   public:
    KEL_ON(CurrCfg)
  };

  KEL_ENTITY_NAME("Acl::AclConfig")
  KEL_KEY(AclConfig, name, Kel::Name)
  // currCfg(), currCfgMutable(), currCfgIs(cfg) (adopts; a null one is refused), currCfgIs()
  // (creates an empty one when there is none; returns the current one), currCfgDel().
  KEL_REFERENCE(currCfg, CurrCfg, AclSubConfig)
};

}  // namespace Acl
