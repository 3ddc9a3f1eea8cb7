#pragma once
// Mirra::internal shared words: atomic access to the 64-bit words of a table that other processes
// read while its writer changes it.
//
// The table's bytes are plain memory (a mapping or a heap block), not std::atomic objects, so they
// are reached through the compiler's __atomic builtins, the C++17 means to what std::atomic_ref
// does: lock-free operations on naturally aligned 64-bit words, address-free, so they work across
// processes that map the same pages.

#include <atomic>
#include <cstdint>

namespace Mirra {
namespace internal {

inline std::uint64_t loadAcquire(const std::uint64_t* word) {
  return __atomic_load_n(word, __ATOMIC_ACQUIRE);
}
inline std::uint64_t loadRelaxed(const std::uint64_t* word) {
  return __atomic_load_n(word, __ATOMIC_RELAXED);
}
inline void storeRelease(std::uint64_t* word, std::uint64_t value) {
  __atomic_store_n(word, value, __ATOMIC_RELEASE);
}
inline void storeRelaxed(std::uint64_t* word, std::uint64_t value) {
  __atomic_store_n(word, value, __ATOMIC_RELAXED);
}
// Makes the word's page present and writable without changing it. Fresh table memory is mapped
// page by page as it is first touched; a page first read is mapped to the shared zero page and
// faults again when written, so memory about to be written is touched this way first.
inline void touchForWriting(std::uint64_t* word) { __atomic_fetch_or(word, 0, __ATOMIC_RELAXED); }
inline void fenceAcquire() { std::atomic_thread_fence(std::memory_order_acquire); }
inline void fenceRelease() { std::atomic_thread_fence(std::memory_order_release); }

static_assert(__atomic_always_lock_free(sizeof(std::uint64_t), 0),
              "shared words must be lock-free to be shared between processes");

}  // namespace internal
}  // namespace Mirra
