#pragma once
// Acl::AclTypeConfig: the access lists of one address family, by name (acl, ascending).
// Each list added or removed notifies onAcl(name).

#include "framework/Acl/AclConfig.h"
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
    virtual void onAcl(const Kel::Name& name) { (void)name; }
  };

  const AclCollection& acl() const { return acl_; }
  Kel::PtrConst<AclConfig> acl(const Kel::Name& name) const { return acl_.find(name); }
  // Creates the list `name`, or returns the existing one.
  Kel::Ptr<AclConfig> aclIs(const Kel::Name& name) {
    auto [list, created] =
        acl_.insertNew(name, [&] { return Kel::Ptr<AclConfig>(new AclConfig(name)); });
    if (created) notify(&NotifieeConst::onAcl, name);
    return list;
  }
  Kel::Ptr<AclConfig> aclMutable(const Kel::Name& name) {
    const auto* stored = acl_.findStored(name);
    return stored ? *stored : nullptr;
  }
  void aclDel(const Kel::Name& name) {
    if (acl_.erase(name)) notify(&NotifieeConst::onAcl, name);
  }

 private:
  AclCollection acl_;
};

}  // namespace Acl
