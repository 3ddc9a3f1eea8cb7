#pragma once
// Mirra::internal checked words: a value of up to 48 bits and a 16-bit check over it and its
// position, kept in one 64-bit word, so that a single atomic load yields a value that can be
// trusted or is known to be damaged, with no lock and no second word to agree with.
//
// Why any single damaged byte is caught: the value's three 16-bit pieces are each weighted by an
// odd number, which is invertible modulo 2^16, so a change confined to one piece (any one byte of
// the value) changes the check; a damaged byte of the check itself no longer matches. The position
// enters the check too, so a word copied to another place does not pass there. The same check
// guards the hash index entries (HashIndex.h), whose slot and tag make up the 48 bits.

#include <cstddef>
#include <cstdint>

namespace Mirra {
namespace internal {

constexpr std::uint64_t kCheckedValueLimit = (std::uint64_t{1} << 48) - 1;

inline std::uint16_t checkOf48(std::uint64_t value, std::size_t position) {
  const std::uint64_t sum = (value & 0xffffu) * 0x9e37u + ((value >> 16) & 0xffffu) * 0x79b9u +
                            ((value >> 32) & 0xffffu) * 0x7f4bu + position * 0xc2b3u + 0x5bd1u;
  return static_cast<std::uint16_t>(sum);
}

// REQUIRES: value <= kCheckedValueLimit.
inline std::uint64_t checkedWord(std::uint64_t value, std::size_t position) {
  return value | std::uint64_t{checkOf48(value, position)} << 48;
}

// The value of `word`, into *value; false when the word fails its check.
inline bool checkedValue(std::uint64_t word, std::size_t position, std::uint64_t* value) {
  *value = word & kCheckedValueLimit;
  return static_cast<std::uint16_t>(word >> 48) == checkOf48(*value, position);
}

// A check over whole 64-bit words (a block written once, such as the fixed part of a header): each
// word folded to 32 bits (its low half xor its high half) and weighted by an odd number of its
// own, summed modulo 2^32. A single damaged byte lands in one byte of one fold, which changes by
// some d != 0, and d times an odd weight is not 0 modulo 2^32. Never 0 for an all-zero block.
inline std::uint64_t blockCheckOf(const std::uint64_t* words, std::size_t count) {
  constexpr std::uint32_t kFirstWeight = 0x9e3779b1u;  // odd
  constexpr std::uint32_t kWeightStep = 0x632be5aeu;   // even, so every weight stays odd
  std::uint32_t sum = 0x5bd1e995u;
  std::uint32_t weight = kFirstWeight;
  for (std::size_t at = 0; at < count; ++at, weight += kWeightStep) {
    sum += static_cast<std::uint32_t>(words[at] ^ (words[at] >> 32)) * weight;
  }
  return sum;
}

}  // namespace internal
}  // namespace Mirra
