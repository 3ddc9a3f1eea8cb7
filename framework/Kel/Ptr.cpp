#include "framework/Kel/Ptr.h"

namespace Kel {
namespace internal {

// Plain counting is the default: the agent runs every reactor on one event thread.
std::atomic<bool> atomicCounts{false};

}  // namespace internal

void threadSafePtrsIs(bool threadSafe) {
  internal::atomicCounts.store(threadSafe, std::memory_order_relaxed);
}

bool threadSafePtrs() { return internal::atomicCounts.load(std::memory_order_relaxed); }

void PtrInterface::lastReferenceDropped() const {
  lastReferenceGone();
  delete this;
}

}  // namespace Kel
