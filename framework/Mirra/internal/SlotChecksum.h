#pragma once
// Mirra::internal::slotChecksum: the 32-bit checksum that every slot of a table carries over its
// own bytes: the state and padding bytes of its head word and every word after the head.
//
// Readers verify each slot they look at, so this runs on every lookup: each 64-bit word is folded
// to 32 bits (its low half xor its high half) and multiplied by a weight of its own; the products
// are summed modulo 2^32 in two lanes. No multiply waits on another, and there is no final mixing
// step.
//
// Why a single damaged byte is always caught: a byte of a word lands in exactly one byte of the
// word's fold (byte k and byte k+4 share fold byte k, but a single change touches only one of
// them), so the fold changes by some d != 0 modulo 2^32. Every weight is odd, hence invertible
// modulo 2^32, so d * weight != 0 and the sum changes. The same holds for the state and padding
// bytes, taken as one 16-bit number with a weight of their own. Weights differ by position, so
// words that trade places change the sum too (with odds of 1 in about 2^31 of going unnoticed,
// as for any larger damage).

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Mirra {
namespace internal {

// REQUIRES: size is a multiple of 8, at least 8; bytes 0-1 (the sequence) and 4-7 (where the
// checksum is kept) are left out.
inline std::uint32_t slotChecksum(const unsigned char* slot, std::size_t size) {
  constexpr std::uint32_t kFirstWeight = 0x9e3779b1u;  // odd
  constexpr std::uint32_t kWeightStep = 0x632be5aeu;   // even, so every weight stays odd
  // Not zero, so that a slot whose bytes were all cleared fails.
  constexpr std::uint32_t kStart = 0x5bd1e995u;
  std::uint16_t stateAndPadding;
  std::memcpy(&stateAndPadding, slot + 2, sizeof(stateAndPadding));
  std::uint32_t even = kStart + stateAndPadding * kFirstWeight;
  std::uint32_t odd = 0;
  std::uint32_t weight = kFirstWeight + kWeightStep;
  for (std::size_t at = 8; at < size; at += 8, weight += kWeightStep) {
    std::uint64_t word;
    std::memcpy(&word, slot + at, sizeof(word));
    const auto fold = static_cast<std::uint32_t>(word ^ (word >> 32));
    ((at / 8) % 2 == 0 ? even : odd) += fold * weight;
  }
  return even + odd;
}

}  // namespace internal
}  // namespace Mirra
