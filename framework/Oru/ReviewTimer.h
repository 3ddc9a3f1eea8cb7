#pragma once
// Oru::ReviewTimer: paces the wake-ups of a reactor that works a queue off in review slices.
//
// The owner asks for a review with doUpdateNextReview() when work arrives and no review is pending;
// the timer then asks the owner's clock reactor for a wake-up by this pacing rule:
//  - it holds up to maxCredits() credits, starts full, and regains one credit every fillInterval()
//    seconds, never above the maximum (worked out lazily from System::currentTime());
//  - a request with a credit spends it and wakes the reactor minDelay() after now;
//  - a request with no credit left wakes it maxDelay() after now.
// So a burst of requests is served quickly up to the credits, then slowed to one per maxDelay().
//
// Invariants:
//  1. reviewPending() is true from doUpdateNextReview() until the clock has delivered that
//     wake-up (or the wake-up was cancelled, or the reactor left its clock).
//  2. A slice that continues at once by calling timeMinIs(now) on the clock reactor itself goes
//     around the timer: it spends no credit and does not make reviewPending() true.
//  3. Credits stay within 0..maxCredits(); lowering the maximum drops the excess.
//  4. Changing a parameter first settles the credits regained so far under the old one.
//  5. The time of the last finished review is a plain attribute, written by the owner.

#include <cstdint>

#include "framework/Kel/Attribute.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/Ptr.h"

namespace Oru {

class ReviewTimer : public Kel::PtrInterface {
 public:
  // A null clock reactor, a fill interval that is not positive or a negative delay raises
  // Kel::RangeException.
  // REQUIRES: `clock` outlives the timer (its owner holds both).
  ReviewTimer(Kel::Clock::NotifieeConst* clock, float fillInterval, unsigned maxCredits,
              float minDelay, float maxDelay);

  Kel::Clock::NotifieeConst* clock() const { return clock_; }

  float fillInterval() const { return fillInterval_; }
  // A value that is not positive raises Kel::RangeException and changes nothing.
  void fillIntervalIs(float seconds);
  unsigned maxCredits() const { return maxCredits_; }
  void maxCreditsIs(unsigned credits);
  float minDelay() const { return minDelay_; }
  // A negative value raises Kel::RangeException and changes nothing.
  void minDelayIs(float seconds);
  float maxDelay() const { return maxDelay_; }
  // A negative value raises Kel::RangeException and changes nothing.
  void maxDelayIs(float seconds);

  // The credits held at the current time.
  unsigned credits() const;

  bool reviewPending() const;
  // Schedules the clock reactor's next wake-up by the pacing rule above.
  void doUpdateNextReview();

  // lastReviewTime(), lastReviewTimeIs(seconds): when the owner recorded its last finished
  // review; 0 until it records one.
  KEL_OWNED_SCALAR(lastReviewTime, 0.0, double)

 private:
  struct Refill {
    unsigned credits;
    double countingFrom;  // when the credit now being regained started to count
  };

  Refill refillAt(double now) const;
  void settleAt(double now);

  Kel::Clock::NotifieeConst* clock_;
  float fillInterval_;
  unsigned maxCredits_;
  float minDelay_;
  float maxDelay_;
  unsigned credits_;
  double countingFrom_ = 0.0;
  bool armed_ = false;
  std::uint64_t deliveriesWhenArmed_ = 0;
};

}  // namespace Oru
