#pragma once
// Kel::Clock: wake-ups at absolute times, delivered by an event loop.
//
// A reactor on the clock (Clock::NotifieeConst) asks for its next wake-up with timeMinIs(t); the
// loop then calls its onTime() once the time has come. Each reactor has at most one pending
// wake-up: asking again replaces it, and asking for a never-reached time (kNever, or any time at
// or beyond it) cancels it.
//
// The loop works in passes. A pass reads the time once and delivers, in order, the wake-ups that
// were pending when it began and are due by then; a wake-up asked for from inside the pass (even
// for a time already reached) waits for a later pass. So a handler that keeps asking for "now"
// runs once per pass, and between two of its runs every other due wake-up gets its turn.
//
// Invariants:
//  1. Wake-ups are delivered in ascending time; equal times in the order they were asked for.
//  2. A wake-up is delivered at most once; a reactor detached or destroyed before its time is
//     never called. Its timeMin() is back to kNever before its onTime() runs, and its
//     wakeupsDelivered() count has gone up by one.
//  3. A pass delivers only wake-ups asked for before the pass began. runDue() and runUntil() run
//     passes until one delivers nothing (or their pass limit is reached), so a reactor that
//     re-asks for the current time from every onTime() is called exactly once per pass.
//  4. runNext() delivers exactly one wake-up, the first by invariant 1, regardless of passes.
//  5. In virtual time (System::virtualTimeIs) the loop moves time forward to each wake-up it
//     delivers; in wall-clock time it delivers only what is due.
//  6. A wake-up asked for while the reactor is not attached to a clock is remembered (timeMin())
//     and scheduled when the reactor is attached through Clock::NotifieeConst::notifierIs.
//     Detaching cancels it and sets timeMin() back to kNever.
//  7. Each pass reads System::currentTime() exactly once (virtual time that advances on every
//     read stays predictable); runNext() reads it only in wall-clock time.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <utility>

#include "framework/Kel/Entity.h"

namespace Kel {

class Clock : public Entity {
 public:
  static constexpr double kNever = std::numeric_limits<double>::max();
  static constexpr std::size_t kAllPasses = std::numeric_limits<std::size_t>::max();

  class NotifieeConst : public Notifiee<Clock> {
   public:
    ~NotifieeConst() override;
    virtual void onTime() {}

    // Attaches to `clock` (null detaches) and schedules the wake-up asked for while detached.
    // Hides Notifiee<Clock>::notifierIs so that attaching through a clock reactor schedules.
    void notifierIs(const PtrConst<Clock>& clock);

    double timeMin() const { return timeMin_; }
    // Takes effect at once when attached, else on attach.
    void timeMinIs(double seconds);

    // How many wake-ups the clock has delivered to this reactor (counted before each onTime()).
    std::uint64_t wakeupsDelivered() const { return wakeupsDelivered_; }

   private:
    friend class Clock;
    void onDetach(const Entity& from) override;

    double timeMin_ = kNever;
    std::uint64_t wakeupsDelivered_ = 0;
  };

  // Runs passes at the current time (see above) until a pass delivers nothing, or `maxPasses`
  // passes have run. Never moves time. Returns how many wake-ups were delivered.
  std::size_t runDue(std::size_t maxPasses = kAllPasses) const;
  // Virtual time: runs passes at the time of each next wake-up up to `seconds`, moving time to
  // it first; when nothing is left up to `seconds`, moves time to `seconds` (stopped by
  // `maxPasses` earlier, time stays at the last pass). Returns how many wake-ups were delivered.
  // REQUIRES: System::virtualTime().
  std::size_t runUntil(double seconds, std::size_t maxPasses = kAllPasses) const;
  // Delivers the first pending wake-up if it is due; in virtual time delivers it anyway, moving
  // time forward to it. Returns whether it delivered one.
  bool runNext() const;

  // The time of the earliest pending wake-up, or kNever.
  double nextWakeup() const;
  std::size_t pendingWakeups() const { return schedule_.size(); }

 private:
  using Slot = std::pair<double, std::uint64_t>;  // time, order of asking

  void schedule(NotifieeConst* reactor, double seconds) const;
  void cancel(NotifieeConst* reactor) const;
  std::size_t runPassUpTo(double seconds) const;
  void deliver(std::map<Slot, NotifieeConst*>::iterator next) const;

  mutable std::map<Slot, NotifieeConst*> schedule_;
  mutable std::map<const NotifieeConst*, Slot> pending_;
  mutable std::uint64_t asked_ = 0;
};

}  // namespace Kel
