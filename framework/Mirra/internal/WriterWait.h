#pragma once
// Mirra::internal writer waits: how long a reader keeps re-reading a word that the writer holds
// odd (a write under way) before it takes the word as left by a writer that died.
//
// Every wait is bounded: a short spin while no writer is attached elsewhere, or about two seconds
// (sleeping between rounds) while one is.

#include <time.h>

#include <cstdint>

#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

// Rounds of re-reading a word held odd: spun, then slept kWaitNanoseconds each while a writer is
// attached elsewhere.
constexpr int kSpinRounds = 64;
constexpr int kSleepRounds = 20000;
constexpr long kWaitNanoseconds = 100000;

inline bool odd(std::uint64_t word) { return (word & 1) != 0; }

// Called while a word stays odd, with the count of rounds so far; false when the word is to be
// taken as left by a dead writer.
inline bool waitForWriter(const TableMemory& memory, int rounds) {
  if (rounds <= kSpinRounds) return true;
  if (rounds > kSpinRounds + kSleepRounds || !memory.otherWriterAlive()) return false;
  const timespec pause{0, kWaitNanoseconds};
  nanosleep(&pause, nullptr);
  return true;
}

}  // namespace internal
}  // namespace Mirra
