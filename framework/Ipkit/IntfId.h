#pragma once
// Ipkit::IntfId: names the interface a neighbour, an RPF path or a join arrived on.
//
// Invariants:
//  1. The empty name means "no interface"; it is what the default constructor makes, and
//     isNull() tells it apart. Every other name, including one made only of spaces, is an
//     interface.
//  2. Equality and ordering are those of the names, byte by byte.

#include <ostream>

#include "framework/Kel/String.h"

namespace Ipkit {

class IntfId {
 public:
  IntfId() = default;
  explicit IntfId(const Kel::String& name) : name_(name) {}

  const Kel::String& name() const { return name_; }
  bool isNull() const { return name_.empty(); }

  bool operator==(const IntfId& other) const { return name_ == other.name_; }
  bool operator!=(const IntfId& other) const { return name_ != other.name_; }
  bool operator<(const IntfId& other) const { return name_ < other.name_; }

 private:
  Kel::String name_;
};

// The null interface prints as "none" so that a log line never ends in an empty field.
inline std::ostream& operator<<(std::ostream& os, const IntfId& intf) {
  return os << (intf.isNull() ? Kel::String("none") : intf.name());
}

}  // namespace Ipkit
