#include "framework/Kel/Clock.h"

#include <algorithm>
#include <vector>

#include "framework/Kel/System.h"

namespace Kel {

Clock::NotifieeConst::~NotifieeConst() {
  if (notifier()) notifier()->cancel(this);
}

void Clock::NotifieeConst::onDetach(const Entity& from) {
  static_cast<const Clock&>(from).cancel(this);
  timeMin_ = kNever;
}

void Clock::NotifieeConst::notifierIs(const PtrConst<Clock>& clock) {
  if (clock == notifier()) return;
  // Detaching from a previous clock resets timeMin_; only a wake-up asked while detached moves.
  const double askedWhileDetached = notifier() ? kNever : timeMin_;
  Notifiee<Clock>::notifierIs(clock);
  if (clock && askedWhileDetached < kNever) timeMinIs(askedWhileDetached);
}

void Clock::NotifieeConst::timeMinIs(double seconds) {
  timeMin_ = seconds;
  if (!notifier()) return;
  notifier()->schedule(this, seconds);
}

void Clock::schedule(NotifieeConst* reactor, double seconds) const {
  cancel(reactor);
  if (seconds >= kNever) return;
  const Slot slot{seconds, asked_++};
  schedule_.emplace(slot, reactor);
  pending_.emplace(reactor, slot);
}

void Clock::cancel(NotifieeConst* reactor) const {
  auto found = pending_.find(reactor);
  if (found == pending_.end()) return;
  schedule_.erase(found->second);
  pending_.erase(found);
}

double Clock::nextWakeup() const {
  return schedule_.empty() ? kNever : schedule_.begin()->first.first;
}

void Clock::deliver(std::map<Slot, NotifieeConst*>::iterator next) const {
  NotifieeConst* reactor = next->second;
  pending_.erase(reactor);
  schedule_.erase(next);
  reactor->timeMin_ = kNever;
  ++reactor->wakeupsDelivered_;
  // The reactor may drop its own last reference, or its owner's, from inside onTime: held like
  // any dispatch holds its reactors (Entity.h invariant 3).
  const ReactorHold hold(*reactor);
  if (reactor->isRegisteredNotifiee()) reactor->onTime();
}

std::size_t Clock::runPassUpTo(double seconds) const {
  // Fixed before the first delivery: whatever the handlers ask for waits for a later pass.
  std::vector<Slot> due;
  for (const auto& entry : schedule_) {
    if (entry.first.first > seconds) break;
    due.push_back(entry.first);
  }
  std::size_t delivered = 0;
  for (const Slot& slot : due) {
    // A handler earlier in the pass may have cancelled or replaced this wake-up.
    auto next = schedule_.find(slot);
    if (next == schedule_.end()) continue;
    deliver(next);
    ++delivered;
  }
  return delivered;
}

std::size_t Clock::runDue(std::size_t maxPasses) const {
  std::size_t delivered = 0;
  for (std::size_t pass = 0; pass < maxPasses; ++pass) {
    const std::size_t deliveredInPass = runPassUpTo(System::currentTime());
    if (deliveredInPass == 0) break;
    delivered += deliveredInPass;
  }
  return delivered;
}

std::size_t Clock::runUntil(double seconds, std::size_t maxPasses) const {
  std::size_t delivered = 0;
  for (std::size_t pass = 0; pass < maxPasses; ++pass) {
    const double next = nextWakeup();
    if (next > seconds) break;
    System::virtualTimeAdvanceTo(next);
    delivered += runPassUpTo(std::min(System::currentTime(), seconds));
  }
  if (nextWakeup() > seconds) System::virtualTimeAdvanceTo(seconds);
  return delivered;
}

bool Clock::runNext() const {
  if (schedule_.empty()) return false;
  auto next = schedule_.begin();
  if (System::virtualTime()) {
    System::virtualTimeAdvanceTo(next->first.first);
  } else if (next->first.first > System::currentTime()) {
    return false;
  }
  deliver(next);
  return true;
}

}  // namespace Kel
