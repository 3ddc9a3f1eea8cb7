#pragma once
// Routing::Pim::GroupFilterStatus: whether a multicast group is admitted for one PIM mode and one
// address family, as the rest of the agent asks it.
//
// The filter holds a trie of group ranges that its writer (GroupFilterSm) keeps equal to the
// prefixes of an RP hash table. The same ranges mean opposite things for the two modes: a
// bidirectional filter admits exactly the groups that some range covers, a sparse-mode filter
// admits exactly the groups that no range covers. The writer need not know which it feeds.
//
// Invariants:
//  1. pimMode() is modePimSm or modePimBidir; construction with any other mode raises the
//     assertion "pimMode() == modePimSm() || pimMode() == modePimBidir()".
//  2. From construction on, trie() is a trie of family af() named "GroupFilter" (until the host
//     drops it with trieDel(); without a trie no range covers any group).
//  3. The writer adds 1 to changeCount() for every table change it handles; a reader that caches
//     permitGroup answers drops them whenever changeCount() changes.
//  4. initialized() is the host's flag: nothing here sets it.
// Traces go to the trace file "PimGroupFilter".

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/String.h"
#include "framework/Kel/Types.h"
#include "framework/Routing/TrieGen.h"
#include "model/Pim/PimTypes.h"

namespace Routing {
namespace Pim {

class GroupFilterStatus : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<GroupFilterStatus> {
   public:
    KEL_ON(Trie)
    KEL_ON(ChangeCount)
    KEL_ON(Initialized)
  };

  KEL_ENTITY_NAME("Routing::Pim::GroupFilterStatus")
  KEL_SCALAR(trie, Trie, nullptr, Kel::Ptr<Routing::TrieGen>)
  KEL_COUNTER(changeCount, ChangeCount, 0, U32)
  KEL_SCALAR(initialized, Initialized, false, bool)

  // REQUIRES: pimMode is modePimSm or modePimBidir; af is ipv4 or ipv6.
  GroupFilterStatus(Ipkit::AddressFamily af, Mode pimMode);

  Ipkit::AddressFamily af() const { return af_; }
  Mode pimMode() const { return pimMode_; }

  // A new empty trie of family `af`, replacing the present one.
  Kel::Ptr<Routing::TrieGen> trieIs(const Kel::Name& name, Ipkit::AddressFamily af);
  void trieDel() { trieIs(nullptr); }

  // Checks the mode and creates the trie for the family.
  void handleInitialized();

  // Whether `group` is admitted for this filter's mode.
  bool permitGroup(const Ipkit::IpGenPrefix& group) const;

 private:
  // The spellings of the two admitted modes as the mode assertion states them.
  static constexpr Mode modePimSm() { return Pim::modePimSm; }
  static constexpr Mode modePimBidir() { return Pim::modePimBidir; }

  const Ipkit::AddressFamily af_;
  const Mode pimMode_;
};

Kel::Ptr<GroupFilterStatus> groupFilterStatusFactory(Ipkit::AddressFamily af, Mode pimMode);

}  // namespace Pim
}  // namespace Routing
