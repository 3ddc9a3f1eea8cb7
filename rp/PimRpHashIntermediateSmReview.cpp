// The paced review of RpHashIntermediateSm: the queue of changed groups and the time-boxed
// slices that work it off.

#include "framework/Kel/System.h"
#include "framework/Mirra/TolerantRead.h"
#include "rp/PimRpHashIntermediateSm.h"

namespace Routing {
namespace Pim {
namespace {

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kHandleGroup[] =
    "void Routing::Pim::RpHashIntermediateSm::handleGroup(const Ipkit::IpGenAddr&)";
const char kHandleGroupAll[] = "void Routing::Pim::RpHashIntermediateSm::handleGroup()";
const char kDoKickReview[] = "void Routing::Pim::RpHashIntermediateSm::doKickReview()";
const char kDoReview[] = "void Routing::Pim::RpHashIntermediateSm::doReview()";
const char kHandleRpHashAlgorithm[] =
    "void Routing::Pim::RpHashIntermediateSm::handleRpHashAlgorithm()";
const char kDoRemoveExtraRpHashGroups[] =
    "void Routing::Pim::RpHashIntermediateSm::doRemoveExtraRpHashGroups()";

}  // namespace

void RpHashIntermediateSm::handleGroup(const Ipkit::IpGenAddr& group) {
  KEL_TRACE(trace(), 9, kHandleGroup << "( " << group << " )");
  // A queue that is not empty already has a series of slices under way.
  if (changedGroup_.empty()) doKickReview();
  const bool present = groupMrt()->group().contains(group);
  changedGroupIs(group, present);
  KEL_TRACE(trace(), 8,
            "Added " << group << " for group " << (present ? "added to" : "removed from")
                     << " change. count is " << changedGroup_.size());
}

void RpHashIntermediateSm::handleGroup() {
  KEL_TRACE(trace(), 9, kHandleGroupAll);
  if (!initialized_) return;
  const auto groups = groupMrt();
  // Entries past damage in the table wait for the next full pass.
  Mirra::tolerantRead(*rpHashStatus_, [&] {
    for (const RpHash& entry : rpHashStatus_->rpHash()) {
      const Ipkit::IpGenAddr& group = entry.key().address();
      if (!groups->group().contains(group)) changedGroupIs(group, false);
    }
  });
  doKickReviewForAllGroups();
}

void RpHashIntermediateSm::doKickReview() {
  KEL_TRACE(trace(), 9, kDoKickReview);
  // Without a timer (reviewTimerDel) nothing is scheduled until one is set again.
  if (!initialized_ || !reviewTimer_) return;
  if (!reviewTimer_->reviewPending()) reviewTimer_->doUpdateNextReview();
}

void RpHashIntermediateSm::doKickReviewForAllGroups() {
  for (const auto& [group, known] : groupMrt()->group()) changedGroupIs(group, true);
  doKickReview();
}

RpHash RpHashIntermediateSm::doReviewEntry(const Ipkit::IpGenAddr& group) {
  RpCandidateInfo info = crpCompute_->doComputeRp(group);
  if (pimMode_ != modePimNone && info.mode() != pimMode_) {
    KEL_TRACE(trace(), 9,
              "doReview: mismatch mode " << info.mode() << " expected mode: " << pimMode_);
    info =
        RpCandidateInfo(Ipkit::IpGenAddr(), kRpPriorityNone, kRpHashMaskLenNone, false, pimMode_);
  }
  return RpHash(Ipkit::IpGenPrefix::hostPrefix(group), info);
}

void RpHashIntermediateSm::doReview() {
  KEL_TRACE(trace(), 9, kDoReview);
  const double deadline = Kel::System::currentTime() + backlogQuantum_;
  auto at = changedGroup_.begin();
  if (bookmark_ != Ipkit::IpGenAddr()) {
    at = changedGroup_.lowerBound(bookmark_);
    KEL_TRACE(trace(), 4, "doReview(), Resuming review at bookmark " << bookmark_);
  } else {
    KEL_TRACE(trace(), 4, "doReview(), Starting review");
  }
  while (at != changedGroup_.end()) {
    const auto [group, present] = *at;
    const Ipkit::IpGenPrefix key = Ipkit::IpGenPrefix::hostPrefix(group);
    if (present) {
      const RpHash entry = doReviewEntry(group);
      KEL_TRACE(trace(), 4, "doReview: Adding " << entry);
      rpHashStatus_->rpHashIs(entry);
      // The write notifies before it returns, and a reader woken by it may delete the entry
      // again; reading it back and writing it once more leaves the group with its entry.
      if (rpHashStatus_->rpHash(key) == RpHash()) rpHashStatus_->rpHashIs(entry);
    } else {
      KEL_TRACE(trace(), 4, "doReview: Deleting group " << key);
      rpHashStatus_->rpHashDel(key);
    }
    groupsProcessedInc(1);
    changedGroupDel(group);
    ++at;
    if (Kel::System::currentTime() > deadline) break;
    if (pimAttrLogSm_ && pimAttrLogSm_->isAttrLogOutClogged()) break;
  }
  if (!changedGroup_.empty()) {
    KEL_TRACE(trace(), 4,
              "doReview(), Suspending review. " << changedGroup_.size() << " groups remaining.");
    yieldBeforeFinishingCountInc(1);
    bookmarkIs(at != changedGroup_.end() ? (*at).first : Ipkit::IpGenAddr());
    kelClock_->timeMinIs(Kel::System::currentTime());
    return;
  }
  KEL_TRACE(trace(), 4, "doReview(), Finished review");
  bookmarkIs(Ipkit::IpGenAddr());
  if (reviewTimer_) reviewTimer_->lastReviewTimeIs(Kel::System::currentTime());
}

void RpHashIntermediateSm::handleRpHashAlgorithm() {
  KEL_TRACE(trace(), 9, kHandleRpHashAlgorithm << " : " << rpConfig()->rpHashAlgorithm());
  doProcessCrpSets();
  doKickReviewForAllGroups();
}

void RpHashIntermediateSm::doRemoveExtraRpHashGroups() {
  KEL_TRACE(trace(), 9, kDoRemoveExtraRpHashGroups);
  const auto groups = groupMrt();
  // Damage in the table ends the clean-up there.
  Mirra::tolerantRead(*rpHashStatus_, [&] {
    for (const RpHash& entry : rpHashStatus_->rpHash()) {
      const Ipkit::IpGenPrefix& key = entry.key();
      if (groups->group().contains(key.address())) continue;
      KEL_TRACE(trace(), 5, "doRemoveExtraRpHashGroups: Deleting group " << key);
      rpHashStatus_->rpHashDel(key);
    }
  });
}

void RpHashIntermediateSm::reviewTimerIs(Kel::Clock::NotifieeConst* clock, float fillInterval,
                                         unsigned maxCredits, float minDelay, float maxDelay) {
  if (reviewTimer_ && reviewTimer_->clock() == clock) {
    reviewTimer_->fillIntervalIs(fillInterval);
    reviewTimer_->maxCreditsIs(maxCredits);
    reviewTimer_->minDelayIs(minDelay);
    reviewTimer_->maxDelayIs(maxDelay);
    return;
  }
  reviewTimer_ = Kel::Ptr<Oru::ReviewTimer>(
      new Oru::ReviewTimer(clock, fillInterval, maxCredits, minDelay, maxDelay));
}

}  // namespace Pim
}  // namespace Routing
