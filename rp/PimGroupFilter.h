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
//  3. changeCount() only grows (by the writer, once per handled table change); a reader that
//     caches permitGroup answers drops them when it changes.
//  4. initialized() is the host's flag: nothing here sets it.
// Traces go to the trace file "PimGroupFilter".

#include <cstdint>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/String.h"
#include "framework/Routing/TrieGen.h"
#include "model/Pim/PimTypes.h"

namespace Routing {
namespace Pim {

class GroupFilterStatus : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<GroupFilterStatus> {
   public:
    virtual void onTrie() {}
    virtual void onChangeCount() {}
    virtual void onInitialized() {}
  };

  // REQUIRES: pimMode is modePimSm or modePimBidir; af is ipv4 or ipv6.
  GroupFilterStatus(Ipkit::AddressFamily af, Mode pimMode);

  Ipkit::AddressFamily af() const { return af_; }
  Mode pimMode() const { return pimMode_; }

  const Kel::Ptr<Routing::TrieGen>& trie() const { return trie_; }
  Kel::Ptr<Routing::TrieGen> trieIs(const Kel::Name& name, Ipkit::AddressFamily af);
  void trieDel();

  std::uint32_t changeCount() const { return changeCount_; }
  void changeCountIs(std::uint32_t count);
  void changeCountInc(std::uint32_t n);

  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized);

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
  Kel::Ptr<Routing::TrieGen> trie_;
  std::uint32_t changeCount_ = 0;
  bool initialized_ = false;
};

Kel::Ptr<GroupFilterStatus> groupFilterStatusFactory(Ipkit::AddressFamily af, Mode pimMode);

}  // namespace Pim
}  // namespace Routing
