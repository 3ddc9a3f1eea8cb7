#include "framework/Acl/IpFilterBase.h"

#include "framework/Kel/Exception.h"

namespace Acl {

IpFilterBase::IpFilterBase(const IpFilterBase& other) : tni_(other.tni_), vni_(other.vni_) {
  checkTni(tni_);
  checkVni(vni_);
}

IpFilterBase& IpFilterBase::operator=(const IpFilterBase& other) {
  // Both identifiers are judged before either is written, so a refusal leaves *this whole.
  checkTni(other.tni_);
  checkVni(other.vni_);
  tni_ = other.tni_;
  vni_ = other.vni_;
  return *this;
}

void IpFilterBase::tniIs(std::int32_t tni) {
  checkTni(tni);
  tni_ = tni;
}

void IpFilterBase::vniIs(std::int32_t vni) {
  checkVni(vni);
  vni_ = vni;
}

void IpFilterBase::checkTni(std::int32_t tni) {
  if (tni < kIdMin || tni > kIdMax) {
    throw Kel::RangeException("IpFilterBase::tni < 0 or > 16777215 not allowed");
  }
}

void IpFilterBase::checkVni(std::int32_t vni) {
  if (vni < kIdMin || vni > kIdMax) {
    throw Kel::RangeException("IpFilterBase::vni < 0 or > 16777215 not allowed");
  }
}

std::ostream& operator<<(std::ostream& os, const IpFilterBase& base) {
  return os << "tni " << base.tni() << " vni " << base.vni();
}

}  // namespace Acl
