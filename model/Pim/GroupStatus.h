#pragma once
// Routing::Pim::GroupStatus: the multicast groups this router currently knows, as the agent's
// group table announces them. The RP hash reactors keep one RP hash entry per known group.
//
// Invariants:
//  1. `group` is an ordered collection: it iterates in ascending address order. A group is known
//     while the collection holds its address (the stored flag is the writer's, read by nobody).
//  2. Every change of `group` notifies onGroup(address): a group entered or left; entering a group
//     already known, or removing one not known, notifies nothing.
//  3. One writer (the agent's group table); everything else reads it through PtrConst.

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"

namespace Routing {
namespace Pim {

class GroupStatus : public Kel::Entity {
 public:
  using GroupCollection = Kel::OrderedCollection<Ipkit::IpGenAddr, bool>;

  class NotifieeConst : public Kel::Notifiee<GroupStatus> {
   public:
    KEL_ON_KEY(Group, Ipkit::IpGenAddr)
  };

  KEL_ENTITY_NAME("Routing::Pim::GroupStatus")
  KEL_VALUE_COLLECTION(group, Group, GroupCollection)
};

}  // namespace Pim
}  // namespace Routing
