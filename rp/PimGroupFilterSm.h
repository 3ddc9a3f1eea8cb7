#pragma once
// Routing::Pim::GroupFilterSm: keeps one GroupFilterStatus in step with one RP hash table: every
// group prefix with an entry in the table is a range of the filter's trie, every other prefix is
// not. Presence alone decides; the entry's RP, priority and mode play no part.
//
// Table changes are applied one at a time as they are announced. After start-up the whole table
// is walked once, in ascending key order, in slices of at most reviewQuantum() seconds of work
// (each slice handles at least one entry), each slice run by its own clock wake-up, so that a
// large table never holds the event thread for long.
//
// Invariants:
//  1. While a review is under way a wake-up is pending, and reviewBookmark() is the key at which
//     the next slice starts (or, when that key has left the table meanwhile, the first key after
//     it); it is empty when no review is under way (and while a review that met damage before
//     its first entry waits to retry).
//  2. One review handles every entry that stays in the table during it exactly once; entries
//     added or removed meanwhile are handled by their own notifications at once.
//  3. Every handled table change adds 1 to the filter's changeCount, whether or not the trie
//     changed. Prefixes of another family than the filter's are none of its business and are
//     left alone.
//  4. A lookup that meets corrupt shared data is reported to the table and taken as an absent
//     entry. A review walk that meets damage acknowledges it to the table and retries one quantum
//     later from the last entry it handled (which is then handled once more): the walk cannot
//     pass the damage, and the writer's next write repairs it.
// Traces go to the trace file "PimGroupFilterSm".

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/NestedReactor.h"
#include "framework/Kel/Ptr.h"
#include "model/Pim/RpHash.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimGroupFilterStatus.h"

namespace Routing {
namespace Pim {

class GroupFilterSm : public Kel::ReactorOwner {
 public:
  // Forwards each change of the watched table.
  class KelRpHashStatus : public Kel::NestedReactor<GroupFilterSm, RpHashStatus::NotifieeConst> {
   public:
    KelRpHashStatus(GroupFilterSm* owner, const Kel::PtrConst<RpHashStatus>& table);
    void onRpHash(const Ipkit::IpGenPrefix& prefix) override;
  };

  // Runs one review slice per wake-up.
  class KelClock : public Kel::NestedReactor<GroupFilterSm, Kel::Clock::NotifieeConst> {
   public:
    KelClock(GroupFilterSm* owner, const Kel::PtrConst<Kel::Clock>& clock);
    void onTime() override;
  };

  static constexpr double kReviewQuantum = 0.1;

  GroupFilterSm(const Kel::PtrConst<RpHashStatus>& rpHashStatus,
                const Kel::Ptr<GroupFilterStatus>& status, const Kel::PtrConst<Kel::Clock>& clock);

  Kel::PtrConst<RpHashStatus> rpHashStatus() const;
  const Kel::Ptr<GroupFilterStatus>& status() const { return status_; }
  Kel::PtrConst<Kel::Clock> clock() const;

  KEL_OWNED_SCALAR(reviewQuantum, kReviewQuantum, double)
  KEL_OWNED_SCALAR(reviewBookmark, Ipkit::IpGenPrefix(), Ipkit::IpGenPrefix)
  KEL_OWNED_SCALAR(initialized, false, bool)

  // Starts a full review of the table at the next clock pass.
  void handleInitialized();
  // Brings the filter's range for `prefix` in line with the table.
  void handleRpHash(const Ipkit::IpGenPrefix& prefix);
  // Runs one slice of the review.
  void doReview();

 private:
  // One slice from the bookmark on, until `deadline` has passed after an entry; returns whether
  // it suspended with entries left.
  bool doReviewSlice(const RpHashStatus& table, double deadline);
  void doWakeUpAt(double seconds);

  Kel::NestedReactorPtr<KelRpHashStatus> kelRpHashStatus_;
  Kel::Ptr<GroupFilterStatus> status_;
  Kel::NestedReactorPtr<KelClock> kelClock_;
};

Kel::Ptr<GroupFilterSm> groupFilterSmFactory(const Kel::PtrConst<RpHashStatus>& rpHashStatus,
                                             const Kel::Ptr<GroupFilterStatus>& status,
                                             const Kel::PtrConst<Kel::Clock>& clock);

}  // namespace Pim
}  // namespace Routing
