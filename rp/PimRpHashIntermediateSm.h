#pragma once
// Routing::Pim::RpHashIntermediateSm: the RP hash entries of one candidate source, one address
// family and one PIM mode. It writes two tables: rpHashStatus, one entry per known group (keyed
// by the group's host prefix), and rpPrefixHashStatus, one entry per candidate-set prefix.
//
// Two paths write them. The candidate path follows the source down to single candidates
// (KelCrpSet, KelCrp) and, when a candidate is complete or changes, rewrites the per-prefix entry
// of its set and every per-group entry that overlaps the set's prefix. The review path queues
// changed groups (changedGroup) and works the queue off in paced slices (doReview), driven by the
// review timer and held back while the attribute log is clogged.
//
// Invariants:
//  1. Nothing is written before handleInitialized; from then on crpCompute and trie exist. A
//     set's prefix enters the trie when its KelCrpSet is initialized (after its first candidates
//     computed) and leaves it when the set's last candidate goes.
//  2. A candidate contributes only once its priority is not 256, its hash mask length not 128 and
//     its mode not 0 (those values mean "not set yet"; a real 128 is never taken, on purpose).
//  3. The candidate path never deletes an entry: an entry left without a usable candidate holds
//     the placeholder (unspecified address, priority 256, hash mask length 128, no override,
//     mode pimMode). Per-group entries are deleted by the review, per-prefix entries when their
//     set goes.
//  4. A group stands in changedGroup at most once; true means "compute", false "delete". While
//     the queue is not empty a series of slices is under way and no new kick is asked for.
//  5. A slice handles at least one queued group before it looks at the clock or the log; when it
//     stops early the bookmark names the next unprocessed group (unspecified when the walk ran to
//     the end), and the next slice resumes at the first queued group not below it.
//  6. The output tables stay as they are when the reactor goes.
// Traces go to the trace file "PimRpHashSm": 9 function entry, 8 details, 5 table writes and
// decisions, 4 review progress.
//
// The implementation is split by concern: PimRpHashIntermediateSm.cpp (construction, start-up,
// nested reactors, candidate path), PimRpHashIntermediateSmGuts.cpp (the two entry writers) and
// PimRpHashIntermediateSmReview.cpp (the paced review).

#include <cstdint>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/NestedReactor.h"
#include "framework/Kel/Ptr.h"
#include "framework/Kel/Trace.h"
#include "framework/Oru/ReviewTimer.h"
#include "framework/Routing/TrieGen.h"
#include "model/Pim/GroupStatus.h"
#include "model/Pim/PimAttrLogSm.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidate.h"
#include "model/Pim/RpCandidateSet.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimRpCompute.h"

namespace Routing {
namespace Pim {

class RpHashIntermediateSm : public Kel::ReactorOwner {
 public:
  static constexpr double kBacklogQuantum = 0.01;
  static constexpr double kMinDelay = 0.01;
  static constexpr double kMaxDelay = 0.05;
  static constexpr float kFillInterval = 1.0f;
  static constexpr unsigned kMaxCredits = 4;

  class KelGroupMrt : public Kel::NestedReactor<RpHashIntermediateSm, GroupStatus::NotifieeConst> {
   public:
    KelGroupMrt(RpHashIntermediateSm* owner, const Kel::PtrConst<GroupStatus>& groupMrt);
    void onGroup(const Ipkit::IpGenAddr& group) override;
    void onGroup() override;
  };

  class KelCrpStatus
      : public Kel::NestedReactor<RpHashIntermediateSm, RpCandidateStatus::NotifieeConst> {
   public:
    KelCrpStatus(RpHashIntermediateSm* owner, const Kel::PtrConst<RpCandidateStatus>& crpStatus);
    void onCrpSet(const Ipkit::IpGenPrefix& prefix) override;
  };

  class KelClock : public Kel::NestedReactor<RpHashIntermediateSm, Kel::Clock::NotifieeConst> {
   public:
    KelClock(RpHashIntermediateSm* owner, const Kel::PtrConst<Kel::Clock>& clock);
    void onTime() override;
  };

  class KelRpConfig : public Kel::NestedReactor<RpHashIntermediateSm, RpConfig::NotifieeConst> {
   public:
    KelRpConfig(RpHashIntermediateSm* owner, const Kel::PtrConst<RpConfig>& rpConfig);
    void onRpHashAlgorithm() override;
  };

  // One candidate set of the source: enters its prefix into the trie and keeps one KelCrp per
  // candidate.
  class KelCrpSet : public Kel::NestedReactor<RpHashIntermediateSm, RpCandidateSet::NotifieeConst> {
   public:
    // One candidate: rewrites the entries its set's prefix covers whenever it becomes complete,
    // changes, or goes.
    class KelCrp : public Kel::NestedReactor<KelCrpSet, RpCandidate::NotifieeConst> {
     public:
      KelCrp(KelCrpSet* crpSet, const Kel::PtrConst<RpCandidate>& candidate);

      const Ipkit::IpGenAddr& address() const { return address_; }
      bool initialized() const { return initialized_; }

      void onPriority() override { handlePriority(); }
      void onHashMaskLen() override { handleHashMask(); }
      void onOverride() override { handleOverride(); }
      void onPimMode() override { handleMode(); }

      // Run once the reactor is in its set's collection.
      void handleInit() { handleInitialized(); }
      // Once complete: computes, and counts as initialized from then on.
      void handleInitialized();
      void handlePriority();
      void handleHashMask();
      void handleOverride();
      void handleMode();
      // The candidate left its set (or the set left the status).
      void handleDel();
      // Rewrites every per-group entry overlapping the set's prefix, then the set's own
      // per-prefix entry; `add` false means this candidate has gone.
      void doUpdateRpHash(bool add);

     private:
      // The shared body of the four value handlers: recompute (or retry the start), then trace
      // what changed as describe(candidate) gives it.
      template <class Describe>
      void doHandleValue(Describe describe);

      const Ipkit::IpGenAddr address_;
      bool initialized_ = false;
    };

    // Creates one KelCrp per candidate already in the set; the set's own handleInitialized runs
    // after (handleInit), so the first computations of a new set run before its prefix is in the
    // trie.
    KelCrpSet(RpHashIntermediateSm* owner, const Kel::PtrConst<RpCandidateSet>& crpSet);

    const Ipkit::IpGenPrefix& prefix() const { return prefix_; }
    bool initialized() const { return initialized_; }

    // Creates the reactor of `candidate`, or returns the existing one. A null candidate is
    // refused.
    Kel::Ptr<KelCrp> crpIs(const Kel::PtrConst<RpCandidate>& candidate);
    KEL_NESTED_REACTORS(crp, KelCrpSet, KelCrp, Ipkit::IpGenAddr)

    void onRp(const Ipkit::IpGenAddr& address) override;

    void handleInit() { handleInitialized(); }
    void handleInitialized();
    // The set left the status: every candidate's handleDel, then the per-prefix entry goes.
    void handleDel();

   private:
    const Ipkit::IpGenPrefix prefix_;
    bool initialized_ = false;
  };

  using ChangedGroupCollection = Kel::OrderedCollection<Ipkit::IpGenAddr, bool>;

  // Stores the inputs, builds the four reactors on them and runs handleInitialized.
  // REQUIRES: groupMrt, crpStatus, rpHashStatus and rpConfig present (else the assertion
  // "groupMrt() && crpStatus() && crpCompute() && rpHashStatus() && rpConfig()"); af ipv4 or ipv6.
  RpHashIntermediateSm(Ipkit::AddressFamily af, const Kel::PtrConst<GroupStatus>& groupMrt,
                       const Kel::PtrConst<RpCandidateStatus>& crpStatus,
                       const Kel::Ptr<RpHashStatus>& rpHashStatus,
                       const Kel::Ptr<RpHashStatus>& rpPrefixHashStatus,
                       const Kel::PtrConst<Kel::Clock>& clock, Mode pimMode,
                       const Kel::Ptr<PimAttrLogSm>& pimAttrLogSm,
                       const Kel::PtrConst<RpConfig>& rpConfig);

  Ipkit::AddressFamily af() const { return af_; }
  Kel::PtrConst<GroupStatus> groupMrt() const { return kelGroupMrt_->notifier(); }
  Kel::PtrConst<RpCandidateStatus> crpStatus() const { return kelCrpStatus_->notifier(); }
  const Kel::Ptr<RpHashStatus>& rpHashStatus() const { return rpHashStatus_; }
  const Kel::Ptr<RpHashStatus>& rpPrefixHashStatus() const { return rpPrefixHashStatus_; }
  Kel::PtrConst<Kel::Clock> clock() const { return kelClock_->notifier(); }
  Mode pimMode() const { return pimMode_; }
  const Kel::Ptr<PimAttrLogSm>& pimAttrLogSm() const { return pimAttrLogSm_; }
  Kel::PtrConst<RpConfig> rpConfig() const { return kelRpConfig_->notifier(); }
  bool initialized() const { return initialized_; }

  KEL_OWNED_SCALAR(reviewedOnce, false, bool)
  // The queue of the review (invariant 4): changedGroup(group), changedGroupIs(group, present),
  // changedGroupDel(group), changedGroupDelAll().
  KEL_OWNED_VALUE_COLLECTION(changedGroup, ChangedGroupCollection)

  double minDelay() const { return minDelay_; }
  double maxDelay() const { return maxDelay_; }
  double backlogQuantum() const { return backlogQuantum_; }
  KEL_OWNED_COUNTER(groupsProcessed, 0, std::uint64_t)
  KEL_OWNED_COUNTER(yieldBeforeFinishingCount, 0, std::uint64_t)
  KEL_OWNED_SCALAR(bookmark, Ipkit::IpGenAddr(), Ipkit::IpGenAddr)

  const Kel::Ptr<RpCompute>& crpCompute() const { return crpCompute_; }
  // Creates the selection over the source; stays null while either input is missing.
  Kel::Ptr<RpCompute> crpComputeIs(const Kel::PtrConst<RpCandidateStatus>& crpStatus,
                                   const Kel::PtrConst<RpConfig>& rpConfig);
  const Kel::Ptr<Routing::TrieGen>& trie() const { return trie_; }

  const Kel::Ptr<Oru::ReviewTimer>& reviewTimer() const { return reviewTimer_; }
  // Updates the parameters of a timer bound to the same clock reactor in place; otherwise
  // creates a new timer in place of the old one.
  void reviewTimerIs(Kel::Clock::NotifieeConst* clock, float fillInterval, unsigned maxCredits,
                     float minDelay, float maxDelay);
  void reviewTimerDel() { reviewTimer_ = nullptr; }

  // Creates the reactor of `crpSet` (keyed by its prefix), or returns the existing one. A null
  // set is refused.
  Kel::Ptr<KelCrpSet> crpSetIs(const Kel::PtrConst<RpCandidateSet>& crpSet);
  KEL_NESTED_REACTORS(crpSet, RpHashIntermediateSm, KelCrpSet, Ipkit::IpGenPrefix)

  const Kel::Ptr<KelClock>& kelClock() const { return kelClock_.ptr(); }

  // Start-up, once: compute and trie, clean-up of a surviving table, timer, a reactor per
  // candidate set, every known group queued.
  void handleInitialized();
  // Full pass over the candidate sets of the source.
  void handleCrpSet();

  // The paced review (PimRpHashIntermediateSmReview.cpp).
  // Full pass, for "the whole group collection changed": queues every known group, and every
  // group of the per-group table that is no longer known.
  void handleGroup();
  void handleGroup(const Ipkit::IpGenAddr& group);
  void doKickReview();
  void doKickReviewForAllGroups();
  void doReview();
  void handleRpHashAlgorithm();
  void doRemoveExtraRpHashGroups();
  // Rewrites the per-prefix entry of every candidate set.
  void doProcessCrpSets();

 private:
  static const Kel::TraceFile& trace();
  // The entry the review writes for `group`: its selection, or the placeholder when the mode is
  // not this instance's.
  RpHash doReviewEntry(const Ipkit::IpGenAddr& group);

  const Ipkit::AddressFamily af_;
  const Kel::Ptr<RpHashStatus> rpHashStatus_;
  const Kel::Ptr<RpHashStatus> rpPrefixHashStatus_;
  const Mode pimMode_;
  const Kel::Ptr<PimAttrLogSm> pimAttrLogSm_;
  bool initialized_ = false;
  double minDelay_ = kMinDelay;
  double maxDelay_ = kMaxDelay;
  double backlogQuantum_ = kBacklogQuantum;
  Kel::Ptr<RpCompute> crpCompute_;
  Kel::Ptr<Routing::TrieGen> trie_;

  Kel::NestedReactorPtr<KelGroupMrt> kelGroupMrt_;
  Kel::NestedReactorPtr<KelCrpStatus> kelCrpStatus_;
  Kel::NestedReactorPtr<KelClock> kelClock_;
  Kel::NestedReactorPtr<KelRpConfig> kelRpConfig_;
  // Declared after the clock reactor it points to, so that it goes first.
  Kel::Ptr<Oru::ReviewTimer> reviewTimer_;
};

Kel::Ptr<RpHashIntermediateSm> rpHashIntermediateSmFactory(
    Ipkit::AddressFamily af, const Kel::PtrConst<GroupStatus>& groupMrt,
    const Kel::PtrConst<RpCandidateStatus>& crpStatus, const Kel::Ptr<RpHashStatus>& rpHashStatus,
    const Kel::Ptr<RpHashStatus>& rpPrefixHashStatus, const Kel::PtrConst<Kel::Clock>& clock,
    Mode pimMode, const Kel::Ptr<PimAttrLogSm>& pimAttrLogSm,
    const Kel::PtrConst<RpConfig>& rpConfig);

// Computes the RP of `prefix` and writes it into `table`; when `mode` is not 0 and the selection
// is of another mode, writes the placeholder of `mode` instead. Never deletes.
void doAddRpHashGuts(Ipkit::IpGenPrefix prefix, Kel::Ptr<RpHashStatus> table,
                     Kel::Ptr<RpCompute> compute, Mode mode);
// With `add`, exactly doAddRpHashGuts. Otherwise candidate `rp` has gone: the entry of `prefix`
// is recomputed when `rp` was its RP, or always under the modulo algorithm (the index of every
// group moves when the candidate count changes); otherwise it is left as it is.
void doUpdateRpHashGuts(const Ipkit::IpGenPrefix& prefix, bool add, Kel::Ptr<RpHashStatus> table,
                        Kel::Ptr<RpCompute> compute, Ipkit::IpGenAddr rp, Mode mode,
                        RpHashAlgorithm algorithm);

}  // namespace Pim
}  // namespace Routing
