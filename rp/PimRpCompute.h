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
//  5. A selection writes how it went to a record only inside doComputeRpRecorded; otherwise each
//     recording step tests one null pointer and does nothing. Recording changes no answer and no
//     trace.
// Traces go to the trace file "PimRpCompute".

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
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
#include "rp/PimRpSelectionRecord.h"

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

  // grpTrie(), grpTrieIs(name, af) (created when absent, else the one held), grpTrieDel().
  KEL_OWNED(grpTrie, Kel::create<Routing::TrieGen>, Kel::Ptr<Routing::TrieGen>)

  // The RP of one group: doComputeRpFromPrefix of its host prefix.
  RpCandidateInfo doComputeRp(const Ipkit::IpGenAddr& groupAddr);
  // doComputeRp, with how the selection went written to `record` (reset first).
  RpCandidateInfo doComputeRpRecorded(const Ipkit::IpGenAddr& groupAddr, RpSelectionRecord& record);
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

  // The per-selection scratch: rpPrioritySet(), rpPrioritySet(priority),
  // rpPrioritySetIs(priority), rpPrioritySetDel(priority), rpPrioritySetDelAll() (sets nobody
  // else holds are kept, emptied, for the next selection), and the same for rpHashMaskSet.
  KEL_SCRATCH_COLLECTION(rpPrioritySet, RpPrioritySetCollection)
  KEL_SCRATCH_COLLECTION(rpHashMaskSet, RpHashMaskSetCollection)
  U32 rpPrioritySets() const { return static_cast<U32>(rpPrioritySet_.size()); }
  U32 rpHashMaskSets() const { return static_cast<U32>(rpHashMaskSet_.size()); }

  // The two mode sets: created by the first selection that matches a prefix, then kept.
  KEL_OWNED(bidirRpSet, Kel::create<CrpSet>, Kel::Ptr<CrpSet>)
  KEL_OWNED(pimsmRpSet, Kel::create<CrpSet>, Kel::Ptr<CrpSet>)

 private:
  // The recording steps of the selection; each does nothing without a recorder.
  void doRecordStep(RpSelectionStep step) const {
    if (recorder_) recorder_->step = step;
  }
  void doRecordContest(const CrpSet& crpSet) const;
  void doRecordOtherMode(const CrpSet& setAside, bool bidirPreferred) const;
  void doRecordHash(const Ipkit::IpGenAddr& rpAddr, RpHashMaskLen hashMaskLen, U32 hash) const;

  const Kel::PtrConst<RpCandidateStatus> crp_;
  const Kel::PtrConst<RpConfig> rpConfig_;
  // Set only while doComputeRpRecorded runs.
  RpSelectionRecord* recorder_ = nullptr;
};

Kel::Ptr<RpCompute> rpComputeFactory(const Kel::PtrConst<RpCandidateStatus>& crp,
                                     const Kel::PtrConst<RpConfig>& rpConfig);

}  // namespace Pim
}  // namespace Routing
