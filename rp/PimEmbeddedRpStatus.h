#pragma once
// Routing::Pim::EmbeddedRpStatus: which known groups use the RP their own address names
// (EmbeddedRp), as the embedded-RP reactor (EmbeddedRpSm) decides it, for the rest of the library
// and the agent to read: the final sparse-mode merge puts those groups' RPs above every other
// (entry), the answer service answers them (admission), local RP detection counts the derived RPs
// as candidates (rp).
//
// The settings in force (enabled, limit, groupRange) are the configuration's, copied by the writer
// as it applies them, so that a reader needs nothing else.
//
// Invariants:
//  1. group holds the groups that use their embedded RP, each with what its address names (always
//     valid, within groupRange); there are at most `limit` of them, and none while not enabled.
//  2. rp(addr) is the number of members of group whose RP is addr; an RP no group uses has no
//     member.
//  3. waitingGroup holds the known groups that would use their embedded RP but found the limit
//     reached: they get the ordinary mapping until a place is free. A group is in at most one of
//     group and waitingGroup. overflowCount counts every time a group was put there.
//  4. Every change notifies with its key (onGroup(addr), onRp(addr), onWaitingGroup(addr),
//     onGroupRange(prefix)); the writer never announces a whole collection at once.
//  5. One writer (EmbeddedRpSm); everything else reads it through PtrConst.

#include <cstdint>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/Types.h"
#include "model/Pim/EmbeddedRp.h"
#include "model/Pim/EmbeddedRpConfig.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpHash.h"

namespace Routing {
namespace Pim {

// What embedded RP does for one group, as the status stands.
enum class EmbeddedRpUse {
  off,            // the status is not enabled
  none,           // the group names no RP (EmbeddedRp::validity says why)
  outsideRanges,  // it names one, outside every group range
  inUse,          // it is a member of group
  available,      // not known to the status, and the limit has room: it would take a place
  overLimit,      // waiting, or not known while every place is taken
};

struct EmbeddedRpAdmission {
  EmbeddedRp embedded;
  EmbeddedRpUse use = EmbeddedRpUse::off;

  // Whether the group's answer is its embedded RP.
  bool servesGroup() const {
    return use == EmbeddedRpUse::inUse || use == EmbeddedRpUse::available;
  }
};

class EmbeddedRpStatus : public Kel::Entity {
 public:
  // What the final sparse-mode table holds for a group that uses its embedded RP: the best
  // priority, the whole group as hash mask (nothing is hashed), and the override flag, since it
  // wins over bootstrap RPs as over static ones.
  static constexpr RpPriority kEntryPriority = 0;
  static constexpr RpHashMaskLen kEntryHashMaskLen = 128;

  using GroupRangeCollection = EmbeddedRpConfig::GroupRangeCollection;
  using GroupCollection = Kel::OrderedCollection<Ipkit::IpGenAddr, EmbeddedRp>;
  using RpCountCollection = Kel::OrderedCollection<Ipkit::IpGenAddr, U32>;
  using WaitingGroupCollection = Kel::OrderedCollection<Ipkit::IpGenAddr, bool>;

  class NotifieeConst : public Kel::Notifiee<EmbeddedRpStatus> {
   public:
    KEL_ON(Enabled)
    KEL_ON(Limit)
    KEL_ON_KEY(GroupRange, Ipkit::IpGenPrefix)
    KEL_ON_KEY(Group, Ipkit::IpGenAddr)
    KEL_ON_KEY(Rp, Ipkit::IpGenAddr)
    KEL_ON_KEY(WaitingGroup, Ipkit::IpGenAddr)
    KEL_ON(OverflowCount)
  };

  KEL_ENTITY_NAME("Routing::Pim::EmbeddedRpStatus")
  KEL_SCALAR(enabled, Enabled, false, bool)
  KEL_SCALAR(limit, Limit, EmbeddedRpConfig::kDefaultLimit, U32)
  KEL_VALUE_COLLECTION(groupRange, GroupRange, GroupRangeCollection)
  KEL_VALUE_COLLECTION(group, Group, GroupCollection)
  KEL_COUNTER_COLLECTION(rp, Rp, RpCountCollection)
  KEL_VALUE_COLLECTION(waitingGroup, WaitingGroup, WaitingGroupCollection)
  KEL_COUNTER(overflowCount, OverflowCount, 0, std::uint64_t)

  // Whether groupRange lets `group` use embedded RP: every group when it holds no range.
  bool inGroupRanges(const Ipkit::IpGenAddr& group) const;
  // What embedded RP does for `group` now (EmbeddedRpUse).
  EmbeddedRpAdmission admission(const Ipkit::IpGenAddr& group) const;
  // The final sparse-mode entry of `key` when it is the host prefix of a member of group;
  // the default RpHash (absence) otherwise.
  RpHash entry(const Ipkit::IpGenPrefix& key) const;
};

}  // namespace Pim
}  // namespace Routing
