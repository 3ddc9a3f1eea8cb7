#pragma once
// Kel::System: the one place where time is read.
//
// Invariants:
//  1. Every reader of time in the process goes through System::currentTime(); nothing reads the
//     wall clock directly, so a test or the tool can run the whole library in virtual time.
//  2. In virtual time, time moves only when advanced (virtualTimeIs, or the clock's event loop
//     delivering a wake-up), and never backwards.

namespace Kel {

class System {
 public:
  // Seconds: of the wall clock, or of the virtual clock once virtual time is on.
  static double currentTime();

  // Switches to virtual time, starting at `seconds`.
  static void virtualTimeIs(double seconds);
  // Moves virtual time forward to `seconds`; earlier values are ignored.
  // REQUIRES: virtual time is on.
  static void virtualTimeAdvanceTo(double seconds);
  static bool virtualTime();
  // Back to the wall clock.
  static void realTimeIs();
};

}  // namespace Kel
