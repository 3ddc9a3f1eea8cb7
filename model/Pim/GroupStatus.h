#pragma once
// Routing::Pim::GroupStatus: the multicast groups this router currently knows, as the agent's
// group table announces them. The RP hash reactors keep one RP hash entry per known group.
//
// Invariants:
//  1. `group` is an ordered collection: it iterates in ascending address order.
//  2. Every change of `group` notifies onGroup(address): a group entered or left; entering a group
//     already known, or removing one not known, notifies nothing.
//  3. One writer (the agent's group table); everything else reads it through PtrConst.

#include <cstddef>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"

namespace Routing {
namespace Pim {

class GroupStatus : public Kel::Entity {
 public:
  using GroupCollection = Kel::OrderedCollection<Ipkit::IpGenAddr, bool>;

  class NotifieeConst : public Kel::Notifiee<GroupStatus> {
   public:
    virtual void onGroup(const Ipkit::IpGenAddr& address) { (void)address; }
  };

  const GroupCollection& group() const { return group_; }
  // Whether the group is known.
  bool group(const Ipkit::IpGenAddr& address) const { return group_.contains(address); }
  std::size_t groups() const { return group_.size(); }

  void groupIs(const Ipkit::IpGenAddr& address) {
    if (group_.set(address, true)) notify(&NotifieeConst::onGroup, address);
  }
  void groupDel(const Ipkit::IpGenAddr& address) {
    if (group_.erase(address)) notify(&NotifieeConst::onGroup, address);
  }
  void groupDelAll() {
    group_.eraseAll(
        [&](const Ipkit::IpGenAddr& address) { notify(&NotifieeConst::onGroup, address); });
  }

 private:
  GroupCollection group_;
};

}  // namespace Pim
}  // namespace Routing
