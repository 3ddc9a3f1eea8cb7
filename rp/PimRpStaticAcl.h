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
    virtual void onGrpPrefix(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
    virtual void onRpAddr(const Ipkit::IpGenAddr& address) { (void)address; }
  };

  explicit RpStaticAcl(const Kel::Name& aclName) : aclName_(aclName) {}

  const Kel::Name& aclName() const { return aclName_; }

  const GrpPrefixCollection& grpPrefix() const { return grpPrefix_; }
  bool grpPrefix(const Ipkit::IpGenPrefix& prefix) const { return grpPrefix_.find(prefix); }
  void grpPrefixIs(const Ipkit::IpGenPrefix& prefix, bool value) {
    if (grpPrefix_.set(prefix, value)) notify(&NotifieeConst::onGrpPrefix, prefix);
  }
  void grpPrefixDel(const Ipkit::IpGenPrefix& prefix) {
    if (grpPrefix_.erase(prefix)) notify(&NotifieeConst::onGrpPrefix, prefix);
  }
  void grpPrefixDelAll() {
    grpPrefix_.eraseAll(
        [&](const Ipkit::IpGenPrefix& prefix) { notify(&NotifieeConst::onGrpPrefix, prefix); });
  }
  void grpPrefixNotify(const Ipkit::IpGenPrefix& prefix) {
    notify(&NotifieeConst::onGrpPrefix, prefix);
  }

  const RpAddrCollection& rpAddr() const { return rpAddr_; }
  bool rpAddr(const Ipkit::IpGenAddr& address) const { return rpAddr_.find(address); }
  void rpAddrIs(const Ipkit::IpGenAddr& address, bool value) {
    if (rpAddr_.set(address, value)) notify(&NotifieeConst::onRpAddr, address);
  }
  void rpAddrDel(const Ipkit::IpGenAddr& address) {
    if (rpAddr_.erase(address)) notify(&NotifieeConst::onRpAddr, address);
  }
  void rpAddrDelAll() {
    rpAddr_.eraseAll(
        [&](const Ipkit::IpGenAddr& address) { notify(&NotifieeConst::onRpAddr, address); });
  }
  void rpAddrNotify(const Ipkit::IpGenAddr& address) { notify(&NotifieeConst::onRpAddr, address); }

 private:
  const Kel::Name aclName_;
  GrpPrefixCollection grpPrefix_;
  RpAddrCollection rpAddr_;
};

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
