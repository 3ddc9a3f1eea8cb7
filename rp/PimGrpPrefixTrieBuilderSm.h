#pragma once
// Routing::Pim::GrpPrefixTrieBuilderSm: keeps the group-prefix trie of one RpCompute equal to the
// set of prefixes that have candidate sets in one RpCandidateStatus, so that selection finds the
// covering prefix of a group by longest match instead of a scan.
//
// Invariants:
//  1. Once initialized, every prefix of the status's crpSet is a route of the trie; a prefix
//     leaves the trie only when its set leaves the status (the full rebuild never removes).
//  2. The trie is created lazily, by the first prefix, under the name "crpTrie" and that
//     prefix's family, and is the compute's own grpTrie: one builder serves one family.
//     Prefixes of the other family are no business of this trie and are skipped.
//  3. trieUpdates counts every prefix update applied, re-adds of a present prefix included.
//  4. A notification that the whole crpSet changed (onCrpSet() without a prefix) replaces the
//     compute's trie by one rebuilt from the status, since which prefixes left is not known.
// Traces go to the trace file "PimCrpGrpTrieBuilderSm"; trie changes at level 0.

#include <cstdint>

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/NestedReactor.h"
#include "framework/Kel/Ptr.h"
#include "framework/Routing/TrieGen.h"
#include "model/Pim/RpCandidateStatus.h"
#include "rp/PimRpCompute.h"

namespace Routing {
namespace Pim {

class GrpPrefixTrieBuilderSm : public Kel::ReactorOwner {
 public:
  // Watches one status for its owner and forwards each crpSet change.
  class KelCrpStatus
      : public Kel::NestedReactor<GrpPrefixTrieBuilderSm, RpCandidateStatus::NotifieeConst> {
   public:
    KelCrpStatus(GrpPrefixTrieBuilderSm* owner, const Kel::PtrConst<RpCandidateStatus>& status);
    void onCrpSet(const Ipkit::IpGenPrefix& prefix) override;
    void onCrpSet() override;
  };

  // REQUIRES: both present (else the assertion "crpStatus() && crpCompute()").
  GrpPrefixTrieBuilderSm(const Kel::PtrConst<RpCandidateStatus>& crpStatus,
                         const Kel::Ptr<RpCompute>& crpCompute);
  // The status reactor is detached, so it cannot call back from a dispatch in progress.
  ~GrpPrefixTrieBuilderSm() override = default;

  Kel::PtrConst<RpCandidateStatus> crpStatus() const;
  // Watches another status (its prefixes are added at once once initialized).
  void crpStatusIs(const Kel::PtrConst<RpCandidateStatus>& status);
  void crpStatusDel();
  const Kel::Ptr<RpCompute>& crpCompute() const { return crpCompute_; }
  KEL_OWNED_SCALAR(trie, nullptr, Kel::Ptr<Routing::TrieGen>)
  bool initialized() const { return initialized_; }
  KEL_OWNED_COUNTER(trieUpdates, 0, std::uint64_t)

  void handleInitialized();
  // Full pass: adds every prefix of the status.
  void handleCRpSet();
  // One prefix added to or removed from the status.
  void handleCRpSet(const Ipkit::IpGenPrefix& prefix);
  // The whole crpSet changed: a new trie, filled by the full pass (invariant 4).
  void handleCRpSetRebuild();

 private:
  // Creates the trie on first need; false when `prefix` is of another family than the trie's.
  bool doEnsureTrie(const Ipkit::IpGenPrefix& prefix);

  Kel::NestedReactorPtr<KelCrpStatus> kelCrpStatus_;
  Kel::Ptr<RpCompute> crpCompute_;
  bool initialized_ = false;
};

Kel::Ptr<GrpPrefixTrieBuilderSm> grpPrefixTrieBuilderSmFactory(
    const Kel::PtrConst<RpCandidateStatus>& crpStatus, const Kel::Ptr<RpCompute>& rpCompute);

}  // namespace Pim
}  // namespace Routing
