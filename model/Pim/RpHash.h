#pragma once
// Routing::Pim::RpHash: the RP chosen for one group prefix, as the RP hash tables hold it.
//
// Invariants:
//  1. Plain fixed-size bytes (trivially copyable), so that the tables holding it can move into
//     shared memory; today they live in process memory.
//  2. The default value (empty key, unknown address, priority 256, hash mask length 128, no
//     override, mode 0) is the tables' absence marker: a lookup of a missing prefix returns it.
//  3. Besides its key, an entry holds exactly the five fields of an RpCandidateInfo (address,
//     priority, hash mask length, override, mode; constructor order).

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <type_traits>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateInfo.h"

namespace Routing {
namespace Pim {

class RpHash {
 public:
  RpHash() = default;
  RpHash(const Ipkit::IpGenPrefix& key, const RpCandidateInfo& info)
      : priority_(info.priority()),
        hashMaskLen_(info.hashMaskLen()),
        mode_(info.mode()),
        key_(key),
        address_(info.address()),
        override_(info.override()) {}
  RpHash(const Ipkit::IpGenPrefix& key, const Ipkit::IpGenAddr& address, RpPriority priority,
         RpHashMaskLen hashMaskLen, bool override, Mode mode)
      : priority_(priority),
        hashMaskLen_(hashMaskLen),
        mode_(mode),
        key_(key),
        address_(address),
        override_(override) {}

  const Ipkit::IpGenPrefix& key() const { return key_; }
  const Ipkit::IpGenAddr& address() const { return address_; }
  RpPriority priority() const { return priority_; }
  RpHashMaskLen hashMaskLen() const { return hashMaskLen_; }
  bool override() const { return override_; }
  Mode mode() const { return mode_; }

  RpCandidateInfo info() const {
    return RpCandidateInfo(address_, priority_, hashMaskLen_, override_, mode_);
  }

  bool operator==(const RpHash& other) const {
    return key_ == other.key_ && address_ == other.address_ && priority_ == other.priority_ &&
           hashMaskLen_ == other.hashMaskLen_ && override_ == other.override_ &&
           mode_ == other.mode_;
  }
  bool operator!=(const RpHash& other) const { return !(*this == other); }

 private:
  // The 32-bit fields come first so that the entry packs into 48 bytes with no padding, and a
  // table slot with its 16-byte header fills one cache line.
  RpPriority priority_ = kRpPriorityNone;
  RpHashMaskLen hashMaskLen_ = kRpHashMaskLenNone;
  Mode mode_ = modePimNone;
  Ipkit::IpGenPrefix key_;
  Ipkit::IpGenAddr address_;
  bool override_ = false;
};

static_assert(std::is_trivially_copyable_v<RpHash>, "RpHash lives in shared tables");
static_assert(sizeof(RpHash) == 48, "RpHash packs without padding");

// "RpHash(239.0.0.0/8 -> 10.0.0.1, priority 10, hashMaskLen 30, override False, modePimSm)".
std::ostream& operator<<(std::ostream& out, const RpHash& entry);

// The table key of an entry.
struct RpHashKey {
  const Ipkit::IpGenPrefix& operator()(const RpHash& entry) const { return entry.key(); }
};

// The tables' hash of a key: every lookup pays for it, so it is one multiply per half of the
// address bytes and one for family, length (so that nested prefixes differ) and the last address
// byte, then a fold of the high product bits, which depend on every input bit, into the low ones
// that pick the home entry.
// The halves are address bytes 0-7 and 7-14 and the last byte is read alone: a key is usually
// built just before its lookup by copying a 17-byte address (family and 16 bytes) as 16 bytes and
// then 1, and loads that each lie inside one of those stores are forwarded from them at once,
// where a load across both would wait for the stores to reach the cache.
struct RpHashKeyHash {
  std::size_t operator()(const Ipkit::IpGenPrefix& key) const {
    const std::uint8_t* bytes = key.address().bytes().data();
    std::uint64_t low;
    std::uint64_t high;
    std::memcpy(&low, bytes, 8);
    std::memcpy(&high, bytes + 7, 8);
    const std::uint64_t shape =
        (static_cast<std::uint64_t>(key.af()) << 16) | (key.len() << 8) | bytes[15];
    std::uint64_t mixed = low * 0x9e3779b97f4a7c15ull + shape * 0x165667b19e3779f9ull;
    mixed ^= high * 0xc2b2ae3d27d4eb4full;
    mixed ^= mixed >> 32;
    return static_cast<std::size_t>(mixed);
  }
};

}  // namespace Pim
}  // namespace Routing
