#include "rp/PimGroupFilterSm.h"

#include "framework/Kel/System.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/TolerantRead.h"

namespace Routing {
namespace Pim {
namespace {

KEL_TRACE_FILE(trace, "PimGroupFilterSm")

}  // namespace

GroupFilterSm::KelRpHashStatus::KelRpHashStatus(GroupFilterSm* owner,
                                                const Kel::PtrConst<RpHashStatus>& table)
    : NestedReactor(owner) {
  notifierIs(table);
}

void GroupFilterSm::KelRpHashStatus::onRpHash(const Ipkit::IpGenPrefix& prefix) {
  if (!ownerTearingDown()) owner()->handleRpHash(prefix);
}

GroupFilterSm::KelClock::KelClock(GroupFilterSm* owner, const Kel::PtrConst<Kel::Clock>& clock)
    : NestedReactor(owner) {
  notifierIs(clock);
}

void GroupFilterSm::KelClock::onTime() {
  if (!ownerTearingDown()) owner()->doReview();
}

GroupFilterSm::GroupFilterSm(const Kel::PtrConst<RpHashStatus>& rpHashStatus,
                             const Kel::Ptr<GroupFilterStatus>& status,
                             const Kel::PtrConst<Kel::Clock>& clock)
    : status_(status) {
  if (rpHashStatus) kelRpHashStatus_.is(new KelRpHashStatus(this, rpHashStatus));
  if (clock) kelClock_.is(new KelClock(this, clock));
  handleInitialized();
}

Kel::PtrConst<RpHashStatus> GroupFilterSm::rpHashStatus() const {
  return kelRpHashStatus_ ? kelRpHashStatus_->notifier() : nullptr;
}

Kel::PtrConst<Kel::Clock> GroupFilterSm::clock() const {
  return kelClock_ ? kelClock_->notifier() : nullptr;
}

void GroupFilterSm::handleInitialized() {
  KEL_TRACE(trace(), 8, "handleInitialized");
  initializedIs(true);
  // A new start reviews the whole table, not the rest of an earlier review.
  reviewBookmarkIs(Ipkit::IpGenPrefix());
  doWakeUpAt(Kel::System::currentTime());
}

void GroupFilterSm::handleRpHash(const Ipkit::IpGenPrefix& prefix) {
  const auto table = rpHashStatus();
  const auto& trie = status_ ? status_->trie() : nullptr;
  if (!table || !trie || prefix.af() != trie->af()) return;
  if (Mirra::tolerantLookup(table->rpHash(), prefix) == RpHash()) {
    KEL_TRACE(trace(), 4, "handleRpHash(" << prefix << ") deleted");
    trie->routeDel(prefix);
  } else {
    KEL_TRACE(trace(), 4, "handleRpHash(" << prefix << ") added");
    trie->routeIs(prefix, 1);
  }
  status_->changeCountInc(1);
}

void GroupFilterSm::doReview() {
  KEL_TRACE(trace(), 8, "doReview");
  if (!initialized()) return;
  const double start = Kel::System::currentTime();
  const double quantum = reviewQuantum();
  const auto table = rpHashStatus();
  bool suspended = false;
  if (table &&
      !Mirra::tolerantRead(*table, [&] { suspended = doReviewSlice(*table, start + quantum); })) {
    // The walk cannot pass a damaged part of the table; the writer's next write repairs it.
    // Retrying at once would spin the event thread until then, so wait one quantum.
    KEL_TRACE(trace(), 3, "doReview(), Damaged table, retrying review");
    doWakeUpAt(Kel::System::currentTime() + quantum);
    return;
  }
  if (suspended) return;
  KEL_TRACE(trace(), 3, "doReview(), Finished review");
  reviewBookmarkIs(Ipkit::IpGenPrefix());
}

bool GroupFilterSm::doReviewSlice(const RpHashStatus& table, double deadline) {
  const auto& entries = table.rpHash();
  auto entry = reviewBookmark().isNull() ? entries.begin() : entries.lowerBound(reviewBookmark());
  while (entry != entries.end()) {
    const Ipkit::IpGenPrefix key = entry->key();
    handleRpHash(key);
    // Should the walk meet damage from here on, the retry resumes at this entry.
    reviewBookmarkIs(key);
    const bool sliceUsedUp = Kel::System::currentTime() >= deadline;
    ++entry;
    if (!sliceUsedUp || entry == entries.end()) continue;
    KEL_TRACE(trace(), 3, "doReview(), Suspending review at " << entry->key());
    reviewBookmarkIs(entry->key());
    doWakeUpAt(Kel::System::currentTime());
    return true;
  }
  return false;
}

void GroupFilterSm::doWakeUpAt(double seconds) {
  if (kelClock_) kelClock_->timeMinIs(seconds);
}

Kel::Ptr<GroupFilterSm> groupFilterSmFactory(const Kel::PtrConst<RpHashStatus>& rpHashStatus,
                                             const Kel::Ptr<GroupFilterStatus>& status,
                                             const Kel::PtrConst<Kel::Clock>& clock) {
  return Kel::Ptr<GroupFilterSm>(new GroupFilterSm(rpHashStatus, status, clock));
}

}  // namespace Pim
}  // namespace Routing
