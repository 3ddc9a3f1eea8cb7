#pragma once
// Acl::AclConfig: one access list, named, whose rules are its current sub-configuration
// (currCfg). Replacing or dropping currCfg notifies onCurrCfg().

#include "framework/Acl/AclSubConfig.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/String.h"

namespace Acl {

class AclConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<AclConfig> {
   public:
    virtual void onCurrCfg() {}
  };

  explicit AclConfig(const Kel::Name& name) : name_(name) {}
  const Kel::Name& name() const { return name_; }

  Kel::PtrConst<AclSubConfig> currCfg() const { return currCfg_; }
  // The writer's handle on the current sub-configuration, or null.
  const Kel::Ptr<AclSubConfig>& currCfgMutable() { return currCfg_; }
  // Adopts `cfg` as the current sub-configuration (a null one is refused); creates an empty one
  // when called without argument and none exists. Returns the current one.
  Kel::Ptr<AclSubConfig> currCfgIs(const Kel::Ptr<AclSubConfig>& cfg) {
    Kel::requireEntity(cfg, "Acl::AclConfig", "currCfg");
    if (cfg == currCfg_) return currCfg_;
    currCfg_ = cfg;
    notify(&NotifieeConst::onCurrCfg);
    return currCfg_;
  }
  Kel::Ptr<AclSubConfig> currCfgIs() {
    if (currCfg_) return currCfg_;
    return currCfgIs(Kel::Ptr<AclSubConfig>(new AclSubConfig));
  }
  void currCfgDel() {
    if (!currCfg_) return;
    currCfg_ = nullptr;
    notify(&NotifieeConst::onCurrCfg);
  }

 private:
  const Kel::Name name_;
  Kel::Ptr<AclSubConfig> currCfg_;
};

}  // namespace Acl
