#pragma once
// Kel::System: the one place where time is read.
//
// Invariants:
//  1. Every reader of time in the process goes through System::currentTime(); nothing reads the
//     wall clock directly, so a test or the tool can run the whole library in virtual time.
//  2. In virtual time, time moves only when advanced (virtualTimeIs, or the clock's event loop
//     delivering a wake-up), and never backwards.
//  3. Stepping virtual time (steppingTimeIs) is virtual time that also moves forward by a fixed
//     step on every read: each currentTime() returns the time, then adds the step. Code that
//     stops work at a deadline read from the clock then stops after a predictable number of reads.

namespace Kel {

class System {
 public:
  // Seconds: of the wall clock, or of the virtual clock once virtual time is on.
  static double currentTime();

  // Switches to virtual time, starting at `seconds`, moving only when advanced.
  static void virtualTimeIs(double seconds);
  // Switches to stepping virtual time: starts at `seconds`, each read then adds `step`.
  // A negative (or NaN) step raises RangeException and changes nothing.
  static void steppingTimeIs(double seconds, double step);
  // Moves virtual time forward to `seconds`; earlier values are ignored.
  // REQUIRES: virtual time is on.
  static void virtualTimeAdvanceTo(double seconds);
  static bool virtualTime();
  // The step added on every read; 0 unless stepping virtual time is on.
  static double timeStep();
  // Back to the wall clock.
  static void realTimeIs();
};

}  // namespace Kel
