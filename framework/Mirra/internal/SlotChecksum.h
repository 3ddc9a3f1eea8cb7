#pragma once
// Mirra::internal::slotChecksum: the 32-bit checksum that every slot of a shared table carries over
// its own bytes.
//
// Readers verify each slot they look at, so this runs on every lookup: words go into two lanes
// whose multiplies do not wait on each other, and the lanes are mixed once at the end. Each word
// is multiplied by an odd constant, so changing any byte changes its lane; the final mixing keeps
// that change in the 32 bits that are kept (a stray write goes unnoticed with odds of 1 in 2^32).

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Mirra {
namespace internal {

inline std::uint32_t slotChecksum(const unsigned char* bytes, std::size_t size) {
  constexpr std::uint64_t kEvenMultiplier = 0x9e3779b97f4a7c15ull;
  constexpr std::uint64_t kOddMultiplier = 0xc2b2ae3d27d4eb4full;
  // Position enters each word, so two words that trade places change the sum.
  constexpr std::uint64_t kPositionStep = 0x27d4eb2f165667c5ull;
  std::uint64_t even = size;
  std::uint64_t odd = 0;
  std::uint64_t position = kPositionStep;
  std::size_t at = 0;
  for (; at + 16 <= size; at += 16, position += 2 * kPositionStep) {
    std::uint64_t first;
    std::uint64_t second;
    std::memcpy(&first, bytes + at, 8);
    std::memcpy(&second, bytes + at + 8, 8);
    even += (first ^ position) * kEvenMultiplier;
    odd += (second ^ (position + kPositionStep)) * kOddMultiplier;
  }
  if (at < size) {
    std::uint64_t tail[2] = {0, 0};
    std::memcpy(tail, bytes + at, size - at);
    even += (tail[0] ^ position) * kEvenMultiplier;
    odd += (tail[1] ^ (position + kPositionStep)) * kOddMultiplier;
  }
  std::uint64_t mixed = even ^ ((odd << 31) | (odd >> 33));
  mixed *= 0xff51afd7ed558ccdull;
  mixed ^= mixed >> 32;
  return static_cast<std::uint32_t>(mixed);
}

}  // namespace internal
}  // namespace Mirra
