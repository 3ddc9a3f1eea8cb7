#include "framework/Oru/ReviewTimer.h"

#include <cmath>
#include <string>

#include "framework/Kel/Exception.h"
#include "framework/Kel/System.h"

namespace Oru {
namespace {

// Written so that NaN is refused too.
void requirePositive(const char* parameter, float seconds) {
  if (seconds > 0.0f) return;
  throw Kel::RangeException(std::string("review timer ") + parameter + " " +
                            std::to_string(seconds) + " refused: must be positive");
}

void requireNotNegative(const char* parameter, float seconds) {
  if (seconds >= 0.0f) return;
  throw Kel::RangeException(std::string("review timer ") + parameter + " " +
                            std::to_string(seconds) + " refused: must not be negative");
}

}  // namespace

ReviewTimer::ReviewTimer(Kel::Clock::NotifieeConst* clock, float fillInterval, unsigned maxCredits,
                         float minDelay, float maxDelay)
    : clock_(clock),
      fillInterval_(fillInterval),
      maxCredits_(maxCredits),
      minDelay_(minDelay),
      maxDelay_(maxDelay),
      credits_(maxCredits) {
  Kel::requireEntity(clock, "Oru::ReviewTimer", "clock");
  requirePositive("fillInterval", fillInterval);
  requireNotNegative("minDelay", minDelay);
  requireNotNegative("maxDelay", maxDelay);
}

ReviewTimer::Refill ReviewTimer::refillAt(double now) const {
  if (credits_ >= maxCredits_) return {maxCredits_, now};
  const double gained = std::floor((now - countingFrom_) / fillInterval_);
  // Time read from the wall clock may step back; nothing is regained then.
  if (!(gained >= 1.0)) return {credits_, countingFrom_};
  if (gained >= maxCredits_ - credits_) return {maxCredits_, now};
  return {credits_ + static_cast<unsigned>(gained), countingFrom_ + gained * fillInterval_};
}

void ReviewTimer::settleAt(double now) {
  const Refill refill = refillAt(now);
  credits_ = refill.credits;
  countingFrom_ = refill.countingFrom;
}

unsigned ReviewTimer::credits() const { return refillAt(Kel::System::currentTime()).credits; }

void ReviewTimer::fillIntervalIs(float seconds) {
  requirePositive("fillInterval", seconds);
  settleAt(Kel::System::currentTime());
  fillInterval_ = seconds;
}

void ReviewTimer::maxCreditsIs(unsigned credits) {
  settleAt(Kel::System::currentTime());
  maxCredits_ = credits;
  if (credits_ > maxCredits_) credits_ = maxCredits_;
}

void ReviewTimer::minDelayIs(float seconds) {
  requireNotNegative("minDelay", seconds);
  minDelay_ = seconds;
}

void ReviewTimer::maxDelayIs(float seconds) {
  requireNotNegative("maxDelay", seconds);
  maxDelay_ = seconds;
}

bool ReviewTimer::reviewPending() const {
  // The clock counts a delivery before it calls onTime, and resets timeMin when it delivers, when
  // the wake-up is cancelled and when the reactor leaves its clock.
  return armed_ && clock_->wakeupsDelivered() == deliveriesWhenArmed_ &&
         clock_->timeMin() < Kel::Clock::kNever;
}

void ReviewTimer::doUpdateNextReview() {
  const double now = Kel::System::currentTime();
  settleAt(now);
  double delay = maxDelay_;
  if (credits_ > 0) {
    --credits_;
    delay = minDelay_;
  }
  armed_ = true;
  deliveriesWhenArmed_ = clock_->wakeupsDelivered();
  clock_->timeMinIs(now + delay);
}

}  // namespace Oru
