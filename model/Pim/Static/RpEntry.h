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
    virtual void onGroup(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
    virtual void onAcl(const Kel::String& name) { (void)name; }
    virtual void onPriorityGrp(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
    virtual void onPriorityAcl(const Kel::String& name) { (void)name; }
    virtual void onHashMaskGrp(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
    virtual void onHashMaskAcl(const Kel::String& name) { (void)name; }
    virtual void onOverrideDynGrp(const Ipkit::IpGenPrefix& prefix) { (void)prefix; }
    virtual void onOverrideDynAcl(const Kel::String& name) { (void)name; }
    virtual void onMode() {}
  };

  explicit RpEntry(const Ipkit::IpGenAddr& address) : address_(address) {}
  const Ipkit::IpGenAddr& address() const { return address_; }

#define PIMRP_RP_ENTRY_COLLECTION(name, Name, KeyType, Coll, Value)                       \
 public:                                                                                  \
  const Coll<Value>& name() const { return name##_; }                                     \
  Value name(const KeyType& key) const { return name##_.find(key); }                      \
  void name##Is(const KeyType& key, const Value& value) {                                 \
    if (name##_.set(key, value)) notify(&NotifieeConst::on##Name, key);                   \
  }                                                                                       \
  void name##Del(const KeyType& key) {                                                    \
    if (name##_.erase(key)) notify(&NotifieeConst::on##Name, key);                        \
  }                                                                                       \
  void name##DelAll() {                                                                   \
    name##_.eraseAll([&](const KeyType& key) { notify(&NotifieeConst::on##Name, key); }); \
  }                                                                                       \
                                                                                          \
 private:                                                                                 \
  Coll<Value> name##_;

  PIMRP_RP_ENTRY_COLLECTION(group, Group, Ipkit::IpGenPrefix, ByPrefix, bool)
  PIMRP_RP_ENTRY_COLLECTION(acl, Acl, Kel::String, ByAcl, bool)
  PIMRP_RP_ENTRY_COLLECTION(priorityGrp, PriorityGrp, Ipkit::IpGenPrefix, ByPrefix, RpPriority)
  PIMRP_RP_ENTRY_COLLECTION(priorityAcl, PriorityAcl, Kel::String, ByAcl, RpPriority)
  PIMRP_RP_ENTRY_COLLECTION(hashMaskGrp, HashMaskGrp, Ipkit::IpGenPrefix, ByPrefix, RpHashMaskLen)
  PIMRP_RP_ENTRY_COLLECTION(hashMaskAcl, HashMaskAcl, Kel::String, ByAcl, RpHashMaskLen)
  PIMRP_RP_ENTRY_COLLECTION(overrideDynGrp, OverrideDynGrp, Ipkit::IpGenPrefix, ByPrefix, bool)
  PIMRP_RP_ENTRY_COLLECTION(overrideDynAcl, OverrideDynAcl, Kel::String, ByAcl, bool)

#undef PIMRP_RP_ENTRY_COLLECTION

 public:
  Mode mode() const { return mode_; }
  void modeIs(Mode mode) {
    if (mode_ == mode) return;
    mode_ = mode;
    notify(&NotifieeConst::onMode);
  }

 private:
  const Ipkit::IpGenAddr address_;
  Mode mode_ = modePimSm;
};

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
