#pragma once
// Routing::Pim::Static::RpConfig: the static RP configuration of one VRF: its name and one RpEntry
// per configured RP address (rpTable, ascending by address).
// Each RP added to or removed from rpTable notifies onRpTable(address).

#include "framework/Ipkit/IpGenAddr.h"
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
    virtual void onRpTable(const Ipkit::IpGenAddr& address) { (void)address; }
  };

  explicit RpConfig(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
  const L3::VrfName& vrfName() const { return vrfName_; }

  const RpTable& rpTable() const { return rpTable_; }
  Kel::PtrConst<RpEntry> rpTable(const Ipkit::IpGenAddr& address) const {
    return rpTable_.find(address);
  }
  // Creates the entry of `address`, or returns the existing one.
  Kel::Ptr<RpEntry> rpTableIs(const Ipkit::IpGenAddr& address) {
    auto [entry, created] =
        rpTable_.insertNew(address, [&] { return Kel::Ptr<RpEntry>(new RpEntry(address)); });
    if (created) notify(&NotifieeConst::onRpTable, address);
    return entry;
  }
  // The writer's handle on an existing entry, or null.
  Kel::Ptr<RpEntry> rpTableMutable(const Ipkit::IpGenAddr& address) {
    const auto* stored = rpTable_.findStored(address);
    return stored ? *stored : nullptr;
  }
  void rpTableDel(const Ipkit::IpGenAddr& address) {
    if (rpTable_.erase(address)) notify(&NotifieeConst::onRpTable, address);
  }

 private:
  const L3::VrfName vrfName_;
  RpTable rpTable_;
};

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
