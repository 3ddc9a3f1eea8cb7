#pragma once
// Acl::IpFilter: the addresses an access-list rule matches: either every address ("any") or the
// addresses of one prefix, scoped by the tunnel and virtual-network identifiers of IpFilterBase.
//
// Invariants:
//  1. any() is true exactly when the filter was made by anyAddress() or the default constructor;
//     prefix() is then the null prefix.
//  2. When any() is false the filter matches the addresses of prefix() and nothing else; a null
//     prefix therefore matches nothing.
//  3. Copies are checked like every IpFilterBase (tni and vni in range).

#include <cstdint>
#include <ostream>

#include "framework/Acl/IpFilterBase.h"
#include "framework/Ipkit/IpGenPrefix.h"

namespace Acl {

class IpFilter : public IpFilterBase {
 public:
  // The default filter matches every address, like anyAddress().
  IpFilter() = default;
  explicit IpFilter(const Ipkit::IpGenPrefix& prefix) : any_(false), prefix_(prefix) {}
  // Unchecked, like IpFilterBase's raw constructor and for the same reason: a decoder rebuilds
  // the stored value as is, and the first copy judges it.
  IpFilter(const Ipkit::IpGenPrefix& prefix, std::int32_t tni, std::int32_t vni)
      : IpFilterBase(tni, vni), any_(false), prefix_(prefix) {}

  static IpFilter anyAddress() { return IpFilter(); }

  bool any() const { return any_; }
  const Ipkit::IpGenPrefix& prefix() const { return prefix_; }

  bool operator==(const IpFilter& other) const {
    return IpFilterBase::operator==(other) && any_ == other.any_ && prefix_ == other.prefix_;
  }
  bool operator!=(const IpFilter& other) const { return !(*this == other); }

 private:
  bool any_ = true;
  Ipkit::IpGenPrefix prefix_;
};

inline std::ostream& operator<<(std::ostream& os, const IpFilter& filter) {
  if (filter.any()) {
    os << "any";
  } else {
    os << filter.prefix();
  }
  return os << ' ' << static_cast<const IpFilterBase&>(filter);
}

}  // namespace Acl
