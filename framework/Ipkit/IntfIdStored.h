#pragma once
// Ipkit::IntfIdStored: an interface name in the form that can sit in a shared table: a length
// byte and a fixed array of name bytes, with no pointer into process memory.
//
// IntfId keeps its name in a Kel::String, which owns heap memory and so cannot be copied into a
// table that another process reads. Tables store this form instead and hand back an IntfId.
//
// Invariants:
//  1. Trivially copyable and exactly kSize bytes.
//  2. IntfIdStored(intf).intfId() == intf for every name of at most kMaxName bytes, the empty
//     name (no interface) included; the default value is the empty name.
//  3. Bytes past the name are zero, so two stored forms are equal exactly when their names are,
//     whether compared field by field or as plain bytes.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "framework/Ipkit/IntfId.h"
#include "framework/Kel/Exception.h"

namespace Ipkit {

class IntfIdStored {
 public:
  static constexpr std::size_t kSize = 64;
  static constexpr std::size_t kMaxName = kSize - 1;

  IntfIdStored() = default;
  // Throws Kel::RangeException naming the interface when its name is longer than kMaxName bytes.
  explicit IntfIdStored(const IntfId& intf) {
    const Kel::String& name = intf.name();
    if (name.size() > kMaxName) {
      throw Kel::RangeException("interface name '" + name + "' longer than " +
                                std::to_string(kMaxName) + " bytes cannot be stored");
    }
    length_ = static_cast<std::uint8_t>(name.size());
    std::memcpy(name_, name.data(), name.size());
  }

  IntfId intfId() const { return IntfId(Kel::String(name_, length_)); }
  bool isNull() const { return length_ == 0; }

  bool operator==(const IntfIdStored& other) const {
    return length_ == other.length_ && std::memcmp(name_, other.name_, length_) == 0;
  }
  bool operator!=(const IntfIdStored& other) const { return !(*this == other); }

 private:
  std::uint8_t length_ = 0;
  char name_[kMaxName] = {};
};

static_assert(sizeof(IntfIdStored) == IntfIdStored::kSize, "a length byte and the name bytes");
static_assert(std::is_trivially_copyable_v<IntfIdStored>, "stored forms are copied as plain bytes");

}  // namespace Ipkit
