#include "framework/Kel/Ptr.h"

namespace Kel {
namespace {

// Plain counting is the default: the agent runs every reactor on one event thread.
std::atomic<bool> atomicCounts{false};

}  // namespace

void threadSafePtrsIs(bool threadSafe) {
  atomicCounts.store(threadSafe, std::memory_order_relaxed);
}

bool threadSafePtrs() { return atomicCounts.load(std::memory_order_relaxed); }

void PtrInterface::newRef() const {
  if (atomicCounts.load(std::memory_order_relaxed)) {
    references_.fetch_add(1, std::memory_order_relaxed);
  } else {
    // A relaxed load and store compile to plain arithmetic, with no locked instruction.
    references_.store(references_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }
}

void PtrInterface::deleteRef() const {
  std::uint32_t remaining;
  if (atomicCounts.load(std::memory_order_relaxed)) {
    remaining = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
  } else {
    remaining = references_.load(std::memory_order_relaxed) - 1;
    references_.store(remaining, std::memory_order_relaxed);
  }
  if (remaining != 0) return;
  lastReferenceGone();
  delete this;
}

}  // namespace Kel
