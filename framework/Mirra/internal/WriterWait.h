#pragma once
// Mirra::internal::WriterWait: how long one read of a table keeps re-reading words that the writer
// holds odd (a write under way) before it gives up, and why it gave up.
//
// One WriterWait serves one whole read operation (a lookup, one step of a walk), so that however
// many words that read meets held, it waits for the writer at most `limit` in all (kWriterWaitLimit
// of SharedTable.h, unless a test seam shortens it):
//  - where no writer can be at work elsewhere (the writer's own attachment, and those sharing its
//    memory in its process), a word held odd was left by a write that never finished: no wait;
//  - otherwise the read spins a few rounds, then, while the writer process is alive, sleeps in
//    short rounds until the limit has passed; once the writer is gone there is nothing to wait for.
// The limit is measured on the system's monotonic clock, not the library's clock: the writer is
// another process, running in real time whatever time the library is told it is.

#include <time.h>

#include <chrono>
#include <cstdint>

#include "framework/Mirra/SharedTable.h"
#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

inline bool odd(std::uint64_t word) { return (word & 1) != 0; }

class WriterWait {
 public:
  static constexpr int kSpinRounds = 64;
  static constexpr long kPauseNanoseconds = 100000;

  // A wait for the writer of `memory`; `concurrent` tells whether one can be at work elsewhere.
  WriterWait(const TableMemory& memory, bool concurrent, std::chrono::nanoseconds limit)
      : memory_(&memory), concurrent_(concurrent), limit_(limit) {}
  // The wait of reads that no writer elsewhere can meet: it never waits.
  static WriterWait& none() {
    static WriterWait never;
    return never;
  }
  WriterWait(const WriterWait&) = delete;
  WriterWait& operator=(const WriterWait&) = delete;

  // Called each time the read finds a word held odd; false once it is to stop waiting and take
  // the word as it is.
  bool again() {
    if (!concurrent_) return false;
    if (++spins_ <= kSpinRounds) return true;
    writer_ = memory_->writerState();
    if (!writer_.alive()) return false;
    const auto now = std::chrono::steady_clock::now();
    if (!sleeping_) {
      sleeping_ = true;
      deadline_ = now + limit_;
    } else if (now >= deadline_) {
      return false;
    }
    const timespec pause{0, kPauseNanoseconds};
    nanosleep(&pause, nullptr);
    return true;
  }

  // Once again() returned false: the writer as it was found then. Alive means the read gave up
  // on a writer that is stalled, not on a write left unfinished.
  const WriterState& writer() const { return writer_; }
  std::chrono::nanoseconds limit() const { return limit_; }

 private:
  WriterWait() : memory_(nullptr), concurrent_(false), limit_(0) {}

  const TableMemory* memory_;
  const bool concurrent_;
  const std::chrono::nanoseconds limit_;
  int spins_ = 0;
  bool sleeping_ = false;
  std::chrono::steady_clock::time_point deadline_{};
  WriterState writer_;
};

}  // namespace internal
}  // namespace Mirra
