#pragma once
// Mirra::internal::ReportLimiter: keeps the reports one attachment of a table writes to the debug
// stream and the system log to at most kReportsPerSecond in any one second: a reader that meets
// the same damage on every lookup must not flood the log. The reports held back are counted, and
// the count goes out with the next report let through (or when the attachment detaches).
//
// The second is measured on the system's monotonic clock: the flood it guards against happens in
// real time, whatever time the library is told it is. A test may give it another clock.

#include <chrono>
#include <cstddef>
#include <functional>
#include <utility>

namespace Mirra {
namespace internal {

class ReportLimiter {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kReportsPerSecond = 10;

  // Whether a report may go out now. When it may, *heldBack is the number held back since the last
  // one let through, to be reported first.
  bool admit(std::size_t* heldBack) {
    const Clock::time_point now = clock_ ? clock_() : Clock::now();
    if (!started_ || now - windowStart_ >= std::chrono::seconds(1)) {
      started_ = true;
      windowStart_ = now;
      admitted_ = 0;
    }
    if (admitted_ == kReportsPerSecond) {
      ++held_;
      return false;
    }
    ++admitted_;
    *heldBack = held_;
    held_ = 0;
    return true;
  }
  // The reports held back since the last one let through; the count starts again from 0.
  std::size_t takeHeldBack() {
    const std::size_t held = held_;
    held_ = 0;
    return held;
  }

  // Test seam: the clock that measures the second.
  void clockIs(std::function<Clock::time_point()> clock) { clock_ = std::move(clock); }

 private:
  std::function<Clock::time_point()> clock_;
  bool started_ = false;
  Clock::time_point windowStart_{};
  std::size_t admitted_ = 0;
  std::size_t held_ = 0;
};

}  // namespace internal
}  // namespace Mirra
