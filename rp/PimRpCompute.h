#pragma once
// Routing::Pim::RpCompute: which RP serves a group, for one source of candidates.
//
// Selection: the longest group prefix of the candidate status that covers the group; among its
// candidates, bidirectional ones win outright over sparse ones; then the lowest priority value;
// then the highest RFC 7761 hash (bidirectional candidates hash to 0); then the highest address.
// With the modulo algorithm configured, the hash and address steps are replaced by picking
// candidate (group mod count) in address order.
//
// Invariants:
//  1. The group-prefix trie (grpTrie) is the only lasting state; it is created and kept in step
//     with the status by the trie builder, never here.
//  2. Every selection leaves the scratch collections empty: rpPrioritySet and rpHashMaskSet at the
//     end of doSelectCrp, bidirRpSet and pimsmRpSet at the end of doComputeRpFromPrefix (the two
//     mode sets stay allocated), also when an assertion fails part way.
//  3. Missing data yields the empty RpCandidateInfo; a broken invariant raises
//     Kel::AssertionException with the expression as written here.
//  4. Not reentrant: a selection must not start from inside another (the scratch is shared).
// Traces go to the trace file "PimRpCompute".

#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/String.h"
#include "framework/Kel/Types.h"
#include "framework/Routing/TrieGen.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateInfo.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "rp/PimRpComputeSets.h"

namespace Routing {
namespace Pim {

class RpCompute : public Kel::Entity {
 public:
  using RpPrioritySetCollection =
      Kel::FlatCollection<RpPriority, Kel::Ptr<RpPrioritySet>, Kel::PtrConst<RpPrioritySet>>;
  using RpHashMaskSetCollection =
      Kel::FlatCollection<U32, Kel::Ptr<RpHashMaskSet>, Kel::PtrConst<RpHashMaskSet>>;

  RpCompute(const Kel::PtrConst<RpCandidateStatus>& crp, const Kel::PtrConst<RpConfig>& rpConfig);

  const Kel::PtrConst<RpCandidateStatus>& crp() const { return crp_; }
  const Kel::PtrConst<RpConfig>& rpConfig() const { return rpConfig_; }

  const Kel::Ptr<Routing::TrieGen>& grpTrie() const { return grpTrie_; }
  Kel::Ptr<Routing::TrieGen> grpTrieIs(const Kel::Name& name, Ipkit::AddressFamily af);
  void grpTrieDel() { grpTrie_ = nullptr; }

  // The RP of one group: doComputeRpFromPrefix of its host prefix.
  RpCandidateInfo doComputeRp(const Ipkit::IpGenAddr& groupAddr);
  RpCandidateInfo doComputeRpFromPrefix(const Ipkit::IpGenPrefix& groupPrefix);
  // The candidate set of the longest stored prefix covering groupPrefix, or null.
  Kel::PtrConst<RpCandidateSet> doLongestPrefixGroupMatch(const Ipkit::IpGenPrefix& groupPrefix);
  RpCandidateInfo doSelectCrp(const Kel::PtrConst<CrpSet>& crpSet,
                              const Ipkit::IpGenPrefix& groupPrefix);
  // REQUIRES: rpSet holds candidates; groupAddr has a known family.
  Kel::PtrConst<RpCandidate> doComputeRpModulo(const Ipkit::IpGenAddr& groupAddr,
                                               const Kel::PtrConst<CrpSet>& rpSet) const;
  // REQUIRES: rpSet is not null.
  Kel::PtrConst<RpPrioritySet> doHighestPriorityRpMatch(const Kel::PtrConst<CrpSet>& rpSet);
  Kel::PtrConst<RpHashMaskSet> doHighestHashMaskRpMatch(
      const Ipkit::IpGenAddr& groupAddr, const Kel::PtrConst<RpPrioritySet>& prioritySet);
  // The RFC 7761 hash value of a candidate for a group; 0 for any mode but sparse.
  // REQUIRES: groupAddr has a known family.
  U32 doComputeHashMask(Mode mode, const Ipkit::IpGenAddr& groupAddr, RpHashMaskLen hashMaskLen,
                        const Ipkit::IpGenAddr& rpAddr);
  // REQUIRES: hashMaskSet holds a candidate.
  Ipkit::IpGenAddr doHighestIpRpMatch(const Kel::PtrConst<RpHashMaskSet>& hashMaskSet);

  const RpPrioritySetCollection& rpPrioritySet() const { return rpPrioritySet_; }
  Kel::PtrConst<RpPrioritySet> rpPrioritySet(RpPriority priority) const {
    return rpPrioritySet_.find(priority);
  }
  Kel::Ptr<RpPrioritySet> rpPrioritySetIs(RpPriority priority);
  void rpPrioritySetDel(RpPriority priority) { rpPrioritySet_.erase(priority); }
  // Empties the collection; sets nobody else holds are kept, emptied, for reuse.
  void rpPrioritySetDelAll();
  U32 rpPrioritySets() const { return static_cast<U32>(rpPrioritySet_.size()); }

  const RpHashMaskSetCollection& rpHashMaskSet() const { return rpHashMaskSet_; }
  Kel::PtrConst<RpHashMaskSet> rpHashMaskSet(U32 hashMask) const {
    return rpHashMaskSet_.find(hashMask);
  }
  Kel::Ptr<RpHashMaskSet> rpHashMaskSetIs(U32 hashMask);
  void rpHashMaskSetDel(U32 hashMask) { rpHashMaskSet_.erase(hashMask); }
  // Empties the collection; sets nobody else holds are kept, emptied, for reuse.
  void rpHashMaskSetDelAll();
  U32 rpHashMaskSets() const { return static_cast<U32>(rpHashMaskSet_.size()); }

  const Kel::Ptr<CrpSet>& bidirRpSet() const { return bidirRpSet_; }
  Kel::Ptr<CrpSet> bidirRpSetIs();
  void bidirRpSetDel() { bidirRpSet_ = nullptr; }
  const Kel::Ptr<CrpSet>& pimsmRpSet() const { return pimsmRpSet_; }
  Kel::Ptr<CrpSet> pimsmRpSetIs();
  void pimsmRpSetDel() { pimsmRpSet_ = nullptr; }

 private:
  const Kel::PtrConst<RpCandidateStatus> crp_;
  Kel::Ptr<Routing::TrieGen> grpTrie_;
  const Kel::PtrConst<RpConfig> rpConfig_;
  RpPrioritySetCollection rpPrioritySet_;
  RpHashMaskSetCollection rpHashMaskSet_;
  Kel::Ptr<CrpSet> bidirRpSet_;
  Kel::Ptr<CrpSet> pimsmRpSet_;
  // Emptied scratch sets for the next selection: once warm, a selection allocates none.
  std::vector<Kel::Ptr<RpPrioritySet>> sparePrioritySets_;
  std::vector<Kel::Ptr<RpHashMaskSet>> spareHashMaskSets_;
};

Kel::Ptr<RpCompute> rpComputeFactory(const Kel::PtrConst<RpCandidateStatus>& crp,
                                     const Kel::PtrConst<RpConfig>& rpConfig);

}  // namespace Pim
}  // namespace Routing
