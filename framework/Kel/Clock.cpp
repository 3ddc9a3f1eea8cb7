#include "framework/Kel/Clock.h"

#include "framework/Kel/System.h"

namespace Kel {

Clock::NotifieeConst::~NotifieeConst() {
  if (notifier()) notifier()->cancel(this);
}

void Clock::NotifieeConst::onDetach(const Entity& from) {
  static_cast<const Clock&>(from).cancel(this);
  timeMin_ = kNever;
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

bool Clock::deliverNextUpTo(double seconds) const {
  if (schedule_.empty() || schedule_.begin()->first.first > seconds) return false;
  auto next = schedule_.begin();
  const double due = next->first.first;
  NotifieeConst* reactor = next->second;
  pending_.erase(reactor);
  schedule_.erase(next);
  reactor->timeMin_ = kNever;
  if (System::virtualTime()) System::virtualTimeAdvanceTo(due);
  // The reactor may drop its own last reference from inside onTime.
  Ptr<NotifieeBase> keepAlive = reactor->references() > 0 ? Ptr<NotifieeBase>(reactor) : nullptr;
  if (reactor->isRegisteredNotifiee()) reactor->onTime();
  return true;
}

std::size_t Clock::runDue() const {
  std::size_t delivered = 0;
  while (deliverNextUpTo(System::currentTime())) ++delivered;
  return delivered;
}

std::size_t Clock::runUntil(double seconds) const {
  std::size_t delivered = 0;
  while (deliverNextUpTo(seconds)) ++delivered;
  System::virtualTimeAdvanceTo(seconds);
  return delivered;
}

}  // namespace Kel
