#pragma once
// Routing::Pim::RpHash: the RP chosen for one group prefix, as the RP hash tables hold it.
//
// Invariants:
//  1. Plain fixed-size bytes (trivially copyable), so that the tables holding it can move into
//     shared memory; today they live in process memory.
//  2. The default value (empty key, unknown address, priority 256, hash mask length 128, no
//     override, mode 0) is the tables' absence marker: a lookup of a missing prefix returns it.
//  3. The five fields after `key` are exactly those of an RpCandidateInfo.

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
      : key_(key),
        address_(info.address()),
        priority_(info.priority()),
        hashMaskLen_(info.hashMaskLen()),
        override_(info.override()),
        mode_(info.mode()) {}
  RpHash(const Ipkit::IpGenPrefix& key, const Ipkit::IpGenAddr& address, RpPriority priority,
         RpHashMaskLen hashMaskLen, bool override, Mode mode)
      : key_(key),
        address_(address),
        priority_(priority),
        hashMaskLen_(hashMaskLen),
        override_(override),
        mode_(mode) {}

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
  Ipkit::IpGenPrefix key_;
  Ipkit::IpGenAddr address_;
  RpPriority priority_ = kRpPriorityNone;
  RpHashMaskLen hashMaskLen_ = kRpHashMaskLenNone;
  bool override_ = false;
  Mode mode_ = modePimNone;
};

static_assert(std::is_trivially_copyable_v<RpHash>, "RpHash lives in shared tables");

// "RpHash(239.0.0.0/8 -> 10.0.0.1, priority 10, hashMaskLen 30, override False, modePimSm)".
std::ostream& operator<<(std::ostream& out, const RpHash& entry);

// The table key of an entry.
struct RpHashKey {
  const Ipkit::IpGenPrefix& operator()(const RpHash& entry) const { return entry.key(); }
};

}  // namespace Pim
}  // namespace Routing
