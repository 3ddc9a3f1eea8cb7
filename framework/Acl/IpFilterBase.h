#pragma once
// Acl::IpFilterBase: the part of an access-list filter shared by every kind of filter: the
// tunnel (tni) and virtual-network (vni) identifiers the filter is scoped to.
//
// Invariants:
//  1. A value built by the default constructor, tniIs/vniIs, a copy or an assignment holds a tni
//     and a vni within 0..16777215 (the 24 bits the encapsulation carries).
//  2. A set, copy or assignment that would store an out-of-range identifier throws
//     Kel::RangeException and changes nothing: an assignment checks both identifiers before it
//     writes either.
//  3. The unchecked raw constructor is the only way to hold an out-of-range identifier; such a
//     value is refused as soon as it is copied.

#include <cstdint>
#include <ostream>

namespace Acl {

class IpFilterBase {
 public:
  static constexpr std::int32_t kIdMin = 0;
  static constexpr std::int32_t kIdMax = 16777215;

  IpFilterBase() = default;
  // Rebuilds a value exactly as it was stored (a decoder, a test) without judging it. Decoders
  // validate a whole record at once and report it in their own terms, so this constructor stays
  // quiet; the value is refused the first time it is copied into a live configuration. Tests use
  // it to reach that copy check, which no checked path could otherwise feed a bad value to.
  IpFilterBase(std::int32_t tni, std::int32_t vni) : tni_(tni), vni_(vni) {}
  IpFilterBase(const IpFilterBase& other);
  IpFilterBase& operator=(const IpFilterBase& other);
  ~IpFilterBase() = default;

  std::int32_t tni() const { return tni_; }
  // REQUIRES: kIdMin <= tni <= kIdMax, else Kel::RangeException and no change.
  void tniIs(std::int32_t tni);

  std::int32_t vni() const { return vni_; }
  // REQUIRES: kIdMin <= vni <= kIdMax, else Kel::RangeException and no change.
  void vniIs(std::int32_t vni);

  bool operator==(const IpFilterBase& other) const {
    return tni_ == other.tni_ && vni_ == other.vni_;
  }
  bool operator!=(const IpFilterBase& other) const { return !(*this == other); }

 private:
  static void checkTni(std::int32_t tni);
  static void checkVni(std::int32_t vni);

  std::int32_t tni_ = 0;
  std::int32_t vni_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpFilterBase& base);

}  // namespace Acl
