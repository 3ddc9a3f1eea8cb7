#pragma once
// Routing::Pim::RpLocalSm: decides which candidate RP addresses are addresses of this router, and
// on which interface, and keeps the local RP table (RpLocalStatus::localRpSet) in step with the
// static and bootstrap candidate sets, with the arrival and removal of the unicast route shadows,
// and with individual route changes.
//
// An address is local when the longest route covering it has route type 1 (kLocalRouteType) and
// its exact host route has a FEC with at least one via; the via's interface is the answer. The
// type test and the interface deliberately come from different routes (isLocal).
//
// Invariants:
//  1. rp(addr) counts the candidate-set memberships of addr seen so far: each candidate added to a
//     watched set, and each candidate met by a full scan (handleInitialized), adds one; each
//     removal seen by a set reactor takes one off. A full scan counts again what is already
//     counted, deleting a whole set reactor counts nothing off, and a removal that was never
//     counted wraps the count below zero (unsigned), which reads as still named; the pruning pass
//     of the next handleInitialized is what removes table entries left without a candidate.
//  2. Candidate and route notifications add an address to localRpSet only when it is local and
//     (route path) counted; they never rewrite the interface of an existing entry. Only
//     handleInitialized replaces a changed interface, by pruning the entry and re-adding it. An
//     entry is inserted with its interface already set.
//  3. Before the first shadow arrives (initialized() false) full scans do nothing; candidate
//     notifications still count, and find nothing local.
//  4. isLocal changes nothing; corrupt shared-table reads make an address not local.
//  5. The static and bootstrap sides run one implementation, told apart by CrpSource; both
//     families run one implementation over their shadow's type.
//  6. With an embedded-RP status set (embeddedRpStatusIs), an RP that some group uses as its
//     embedded RP is a candidate as long as the status names it, counted apart from rp(addr): it
//     enters localRpSet when local, and leaves it when neither the status nor a candidate set names
//     it any more. Without one, nothing of this runs (PimRpLocalSmEmbedded.cpp).
// Traces go to the trace file "PimRpCompute".

#include <cstdint>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/NestedReactor.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/Trace.h"
#include "framework/Kel/Types.h"
#include "framework/Routing/Shadow/ShadowStatus.h"
#include "framework/Routing/TrieGen.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpLocalStatus.h"
#include "rp/PimEmbeddedRpStatus.h"

namespace Routing {
namespace Pim {

class RpLocalSm : public Kel::ReactorOwner {
 public:
  static constexpr std::uint32_t kLocalRouteType = 1;

  enum class CrpSource { staticRp, bsrRp };

  // Watches one candidate set of one source for candidates added and removed.
  template <CrpSource source>
  class KelCrpSet : public Kel::NestedReactor<RpLocalSm, RpCandidateSet::NotifieeConst> {
   public:
    KelCrpSet(RpLocalSm* owner, const Kel::PtrConst<RpCandidateSet>& set);
    const Ipkit::IpGenPrefix& prefix() const { return prefix_; }

    void onRp(const Ipkit::IpGenAddr& addr) override { handleRpCandidate(addr); }
    // The whole collection changed: a full scan of the set.
    void onRp() override { handleRpCandidate(); }
    void handleInit() { handleRpCandidate(); }

    // Every candidate of the set, once the owner is initialized.
    void handleRpCandidate();
    // One candidate added to or removed from the set.
    void handleRpCandidate(const Ipkit::IpGenAddr& addr);

   private:
    const Ipkit::IpGenPrefix prefix_;
  };
  using KelStaticCrpSet = KelCrpSet<CrpSource::staticRp>;
  using KelBsrCrpSet = KelCrpSet<CrpSource::bsrRp>;

  // Watches one source's status and keeps one set reactor per candidate set.
  template <CrpSource source>
  class KelCrpStatus : public Kel::NestedReactor<RpLocalSm, RpCandidateStatus::NotifieeConst> {
   public:
    KelCrpStatus(RpLocalSm* owner, const Kel::PtrConst<RpCandidateStatus>& status);
    void onCrpSet(const Ipkit::IpGenPrefix& prefix) override;
    // The whole collection changed: reactors created for new sets, dropped for gone ones.
    void onCrpSet() override;
  };
  using KelStaticCrpStatus = KelCrpStatus<CrpSource::staticRp>;
  using KelBsrCrpStatus = KelCrpStatus<CrpSource::bsrRp>;

  // Watches one route shadow for its trie being replaced.
  template <class Shadow>
  class KelShadow : public Kel::NestedReactor<RpLocalSm, typename Shadow::NotifieeConst> {
   public:
    KelShadow(RpLocalSm* owner, const Kel::PtrConst<Shadow>& shadow);
    void onTrie() override;
  };
  using KelUribShadow = KelShadow<Routing::Shadow::Status>;
  using KelUrib6Shadow = KelShadow<Routing6::Shadow::Status>;

  // Watches one shadow's trie for changed routes; the same reactor serves both families.
  class KelTrie : public Kel::NestedReactor<RpLocalSm, Routing::TrieGen::NotifieeConst> {
   public:
    KelTrie(RpLocalSm* owner, const Kel::PtrConst<Routing::TrieGen>& trie);
    void onChangedRoute() override;
  };
  using KelUribTrie = KelTrie;
  using KelUrib6Trie = KelTrie;

  // Watches the RPs of the embedded-RP status (invariant 6).
  class KelEmbeddedRp : public Kel::NestedReactor<RpLocalSm, EmbeddedRpStatus::NotifieeConst> {
   public:
    KelEmbeddedRp(RpLocalSm* owner, const Kel::PtrConst<EmbeddedRpStatus>& status);
    void onRp(const Ipkit::IpGenAddr& addr) override;
  };

  using RpCountCollection = Kel::HashCollection<Ipkit::IpGenAddr, U32>;

  // REQUIRES: localRpStatus present (else the assertion "localRpStatus()"). Either candidate
  // status may be absent: that source then has no candidates.
  RpLocalSm(const Kel::PtrConst<RpCandidateStatus>& staticCrpStatus,
            const Kel::PtrConst<RpCandidateStatus>& bsrCrpStatus,
            const Kel::Ptr<RpLocalStatus>& localRpStatus);

  // The interface on which addr is local, or the empty IntfId. Reads only the shadow of addr's
  // family. REQUIRES: addr's family is IPv4 or IPv6 (else the assertion
  // `0 && "Unknown Address Family"`).
  Ipkit::IntfId isLocal(const Ipkit::IpGenAddr& addr) const;

  Kel::PtrConst<RpCandidateStatus> staticCrpStatus() const;
  Kel::PtrConst<RpCandidateStatus> bsrCrpStatus() const;
  const Kel::Ptr<RpLocalStatus>& localRpStatus() const { return localRpStatus_; }

  // Setting or clearing a shadow re-points the trie reactor and runs handleInitialized, also when
  // the shadow given is the one already held: that is how the host asks for a full re-evaluation.
  // A null shadow is refused with
  // "null _uribShadow parameter to mutator for Routing::Pim::RpLocalSm::uribShadow not allowed".
  Kel::PtrConst<Routing::Shadow::Status> uribShadow() const;
  void uribShadowIs(const Kel::PtrConst<Routing::Shadow::Status>& shadow);
  void uribShadowDel();
  Kel::PtrConst<Routing6::Shadow::Status> urib6Shadow() const;
  void urib6ShadowIs(const Kel::PtrConst<Routing6::Shadow::Status>& shadow);
  void urib6ShadowDel();
  Kel::PtrConst<Routing::TrieGen> uribTrie() const;
  Kel::PtrConst<Routing::TrieGen> urib6Trie() const;

  // The embedded-RP status whose RPs count as candidates (invariant 6); setting one checks each RP
  // it names, null detaches.
  Kel::PtrConst<EmbeddedRpStatus> embeddedRpStatus() const;
  void embeddedRpStatusIs(const Kel::PtrConst<EmbeddedRpStatus>& status);

  // The candidate-set reference counts (invariant 1): rp(addr) (0 when absent), rpIs, rpInc and
  // rpDec (both return the count stored; rpDec wraps below zero), rpDel, rpDelAll.
  KEL_OWNED_COUNTER_COLLECTION(rp, RpCountCollection)

  bool initialized() const { return initialized_; }

  // Full re-evaluation: prune localRpSet, then scan every candidate of both sources.
  void handleInitialized();
  // A route of either shadow was added, replaced or withdrawn; only host routes matter.
  void handleChangedRoute(const Ipkit::IpGenPrefix& prefix);
  // Removes entries no longer local, local on another interface, or no longer a candidate.
  void doRemoveExtraLocalRpSet();
  // The embedded-RP status started or stopped naming addr, or changed how many groups use it.
  void handleEmbeddedRp(const Ipkit::IpGenAddr& addr);

 private:
  static const Kel::TraceFile& trace();

  template <CrpSource source>
  Kel::NestedReactorCollection<RpLocalSm, Ipkit::IpGenPrefix, KelCrpSet<source>>& crpSetReactors();
  template <CrpSource source>
  Kel::PtrConst<RpCandidateStatus> crpStatus() const;
  template <CrpSource source>
  void doScanCrpSets();

  template <class Shadow>
  void doShadowIs(Kel::NestedReactorPtr<KelShadow<Shadow>>& reactor,
                  const Kel::PtrConst<Shadow>& shadow);
  // fn(shadow) with the shadow of af, null when it is not set.
  // REQUIRES: af is IPv4 or IPv6 (else the assertion `0 && "Unknown Address Family"`).
  template <class Fn>
  auto doWithShadow(Ipkit::AddressFamily af, Fn&& fn) const;
  template <class Shadow>
  Ipkit::IntfId doIsLocal(const Shadow& shadow, const Ipkit::IpGenPrefix& hostPrefix) const;
  // Whether the shadow of the prefix's family holds a route under exactly that prefix.
  bool doHasRoute(const Ipkit::IpGenPrefix& prefix) const;
  // Re-points the trie reactor of af at the trie its shadow holds now.
  void doTrackTrie(Ipkit::AddressFamily af);
  bool doIsCandidate(const Ipkit::IpGenAddr& addr) const;
  // Whether the embedded-RP status names addr as the RP of a group in use.
  bool doIsEmbeddedRp(const Ipkit::IpGenAddr& addr) const;
  void doScanEmbeddedRps();
  void doAddLocalRp(const Ipkit::IpGenAddr& addr, const Ipkit::IntfId& intfId);

  const Kel::Ptr<RpLocalStatus> localRpStatus_;
  Kel::NestedReactorPtr<KelStaticCrpStatus> staticCrpStatus_;
  Kel::NestedReactorPtr<KelBsrCrpStatus> bsrCrpStatus_;
  Kel::NestedReactorPtr<KelUribShadow> uribShadow_;
  Kel::NestedReactorPtr<KelUrib6Shadow> urib6Shadow_;
  Kel::NestedReactorPtr<KelUribTrie> uribTrie_;
  Kel::NestedReactorPtr<KelUrib6Trie> urib6Trie_;
  Kel::NestedReactorPtr<KelEmbeddedRp> embeddedRp_;
  bool initialized_ = false;

  KEL_NESTED_REACTORS(staticCrpSet, RpLocalSm, KelStaticCrpSet, Ipkit::IpGenPrefix)
  KEL_NESTED_REACTORS(bsrCrpSet, RpLocalSm, KelBsrCrpSet, Ipkit::IpGenPrefix)
};

Kel::Ptr<RpLocalSm> rpLocalSmFactory(const Kel::PtrConst<RpCandidateStatus>& staticCrpStatus,
                                     const Kel::PtrConst<RpCandidateStatus>& bsrCrpStatus,
                                     const Kel::Ptr<RpLocalStatus>& localRpStatus);

}  // namespace Pim
}  // namespace Routing
