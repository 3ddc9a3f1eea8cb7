#pragma once
// L3::VrfName: the name of a VRF. Names are at most maxLength bytes; a longer one is refused with
// Kel::RangeException "VrfName::bytes > VrfName::maxLength not allowed", so no VrfName value
// ever holds one.

#include <cstddef>
#include <ostream>

#include "framework/Kel/Exception.h"
#include "framework/Kel/String.h"

namespace L3 {

class VrfName {
 public:
  static constexpr std::size_t maxLength = 100;

  VrfName() : name_("default") {}
  explicit VrfName(const Kel::String& name) : name_(name) {
    if (name_.size() > maxLength) {
      throw Kel::RangeException("VrfName::bytes > VrfName::maxLength not allowed");
    }
  }

  const Kel::String& string() const { return name_; }

  bool operator==(const VrfName& other) const { return name_ == other.name_; }
  bool operator!=(const VrfName& other) const { return name_ != other.name_; }
  bool operator<(const VrfName& other) const { return name_ < other.name_; }

 private:
  Kel::String name_;
};

inline std::ostream& operator<<(std::ostream& out, const VrfName& name) {
  return out << name.string();
}

}  // namespace L3
