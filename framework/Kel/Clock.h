#pragma once
// Kel::Clock: wake-ups at absolute times, delivered by an event loop.
//
// A reactor on the clock (Clock::NotifieeConst) asks for its next wake-up with timeMinIs(t); the
// loop then calls its onTime() once the time has come. Each reactor has at most one pending
// wake-up: asking again replaces it, and asking for a never-reached time (kNever, or any time at
// or beyond it) cancels it.
//
// Invariants:
//  1. Wake-ups are delivered in ascending time; equal times in the order they were asked for.
//  2. A wake-up is delivered at most once; a reactor detached or destroyed before its time is
//     never called.
//  3. In virtual time (System::virtualTimeIs) the loop moves time forward to each wake-up it
//     delivers; in wall-clock time it delivers only what is due.

#include <cstdint>
#include <limits>
#include <map>
#include <utility>

#include "framework/Kel/Entity.h"

namespace Kel {

class Clock : public Entity {
 public:
  static constexpr double kNever = std::numeric_limits<double>::max();

  class NotifieeConst : public Notifiee<Clock> {
   public:
    ~NotifieeConst() override;
    virtual void onTime() {}

    double timeMin() const { return timeMin_; }
    // REQUIRES: attached to a clock (notifierIs).
    void timeMinIs(double seconds);

   private:
    friend class Clock;
    void onDetach(const Entity& from) override;

    double timeMin_ = kNever;
  };

  // Delivers every wake-up due at the current time, in order, including those asked for by the
  // handlers it calls while they are due. Returns how many were delivered.
  std::size_t runDue() const;
  // Virtual time: delivers every wake-up up to `seconds` in order, moving time to each, then
  // moves time to `seconds`. Returns how many were delivered.
  // REQUIRES: System::virtualTime().
  std::size_t runUntil(double seconds) const;
  // The time of the earliest pending wake-up, or kNever.
  double nextWakeup() const;
  std::size_t pendingWakeups() const { return schedule_.size(); }

 private:
  using Slot = std::pair<double, std::uint64_t>;  // time, order of asking

  void schedule(NotifieeConst* reactor, double seconds) const;
  void cancel(NotifieeConst* reactor) const;
  bool deliverNextUpTo(double seconds) const;

  mutable std::map<Slot, NotifieeConst*> schedule_;
  mutable std::map<const NotifieeConst*, Slot> pending_;
  mutable std::uint64_t asked_ = 0;
};

}  // namespace Kel
