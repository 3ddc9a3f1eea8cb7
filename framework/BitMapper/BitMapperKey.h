#pragma once
// BitMapper::BitMapperKey: what a bit-allocation request is for: an address, optionally scoped to
// an interface (the null interface when the address is not).
//
// Invariants:
//  1. Equal when interface and address are equal; ordered by interface, then address.
//  2. Prints as "{<interface>, <address>}", the null interface as "none".

#include <ostream>

#include "framework/Ipkit/IntfId.h"
#include "framework/Ipkit/IpGenAddr.h"

namespace BitMapper {

class BitMapperKey {
 public:
  BitMapperKey() = default;
  BitMapperKey(const Ipkit::IntfId& intf, const Ipkit::IpGenAddr& addr)
      : intf_(intf), addr_(addr) {}

  const Ipkit::IntfId& intf() const { return intf_; }
  const Ipkit::IpGenAddr& addr() const { return addr_; }

  bool operator==(const BitMapperKey& other) const {
    return intf_ == other.intf_ && addr_ == other.addr_;
  }
  bool operator!=(const BitMapperKey& other) const { return !(*this == other); }
  bool operator<(const BitMapperKey& other) const {
    if (intf_ != other.intf_) return intf_ < other.intf_;
    return addr_ < other.addr_;
  }

 private:
  Ipkit::IntfId intf_;
  Ipkit::IpGenAddr addr_;
};

inline std::ostream& operator<<(std::ostream& os, const BitMapperKey& key) {
  return os << "{" << key.intf() << ", " << key.addr() << "}";
}

}  // namespace BitMapper
