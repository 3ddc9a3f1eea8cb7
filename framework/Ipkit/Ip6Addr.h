#pragma once
// Ipkit::Ip6Addr: an IPv6 address held as its 16 bytes in network order.
//
// Invariants:
//  1. bytes()[0] is the most significant byte; u64() and u32() read the bytes big-endian, so
//     comparing bytes lexicographically, or the halves numerically, is address order.
//  2. The default value is :: (all zero); Ip6Addr has no notion of absence (IpGenAddr has).
//  3. Text output is the canonical form: lower-case hex without leading zeros, the longest run
//     of two or more zero words (the first one on a tie) written as ::, and IPv4-mapped addresses
//     (::ffff:0:0/96) with their last 32 bits as a dotted quad.

#include <array>
#include <cstdint>
#include <ostream>

#include "framework/Kel/Exception.h"

namespace Ipkit {

class Ip6Addr {
 public:
  Ip6Addr() : bytes_{} {}
  explicit Ip6Addr(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

  // REQUIRES: i is 0 or 1.
  std::uint64_t u64(int i) const {
    if (i < 0 || i > 1) throw Kel::RangeException("Ip6Addr::u64: half index out of range");
    std::uint64_t v = 0;
    for (int b = 0; b < 8; ++b) v = (v << 8) | bytes_[static_cast<std::size_t>(i * 8 + b)];
    return v;
  }

  // REQUIRES: i is 0..3.
  std::uint32_t u32(int i) const {
    if (i < 0 || i > 3) throw Kel::RangeException("Ip6Addr::u32: word index out of range");
    std::uint32_t v = 0;
    for (int b = 0; b < 4; ++b) v = (v << 8) | bytes_[static_cast<std::size_t>(i * 4 + b)];
    return v;
  }

  const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

  bool operator==(const Ip6Addr& other) const { return bytes_ == other.bytes_; }
  bool operator!=(const Ip6Addr& other) const { return bytes_ != other.bytes_; }
  bool operator<(const Ip6Addr& other) const { return bytes_ < other.bytes_; }

 private:
  std::array<std::uint8_t, 16> bytes_;
};

// Writes the canonical text by hand: streaming the words with std::hex would leave the caller's
// stream flags changed, and honour any width they had set.
inline std::ostream& operator<<(std::ostream& os, const Ip6Addr& addr) {
  const auto& b = addr.bytes();
  unsigned words[8];
  for (int i = 0; i < 8; ++i) {
    words[i] = (static_cast<unsigned>(b[static_cast<std::size_t>(2 * i)]) << 8) |
               b[static_cast<std::size_t>(2 * i + 1)];
  }
  const bool v4Mapped = words[0] == 0 && words[1] == 0 && words[2] == 0 && words[3] == 0 &&
                        words[4] == 0 && words[5] == 0xffff;
  const int hexWords = v4Mapped ? 6 : 8;

  // The longest run of zero words; a lone zero word stays written as 0.
  int bestStart = -1;
  int bestLen = 1;
  for (int i = 0; i < hexWords;) {
    if (words[i] != 0) {
      ++i;
      continue;
    }
    int j = i;
    while (j < hexWords && words[j] == 0) ++j;
    if (j - i > bestLen) {
      bestStart = i;
      bestLen = j - i;
    }
    i = j;
  }

  static const char kHex[] = "0123456789abcdef";
  char text[48];
  int n = 0;
  for (int i = 0; i < hexWords; ++i) {
    if (i == bestStart) {
      text[n++] = ':';
      text[n++] = ':';
      i += bestLen - 1;
      continue;
    }
    if (i != 0 && i != bestStart + bestLen) text[n++] = ':';
    bool started = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
      const unsigned nibble = (words[i] >> shift) & 0xfu;
      if (nibble != 0 || started || shift == 0) {
        text[n++] = kHex[nibble];
        started = true;
      }
    }
  }
  if (v4Mapped) {
    text[n++] = ':';
    for (int i = 12; i < 16; ++i) {
      const unsigned octet = b[static_cast<std::size_t>(i)];
      if (octet >= 100) text[n++] = static_cast<char>('0' + octet / 100);
      if (octet >= 10) text[n++] = static_cast<char>('0' + octet / 10 % 10);
      text[n++] = static_cast<char>('0' + octet % 10);
      if (i != 15) text[n++] = '.';
    }
  }
  return os.write(text, n);
}

}  // namespace Ipkit
