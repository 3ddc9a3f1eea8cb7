#pragma once
// Acl::UniqueId: the identifier of one access-list rule, stable for the rule's lifetime so that
// notifications and tables can refer to a rule without holding it.
//
// Invariants:
//  1. A UniqueId is a plain 64-bit value; two ids are equal exactly when their values are equal.
//  2. Ordering and hashing follow the value, so ids key ordered and hashed containers alike.
//  3. The default id is 0, which no allocator hands out for a live rule.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>

namespace Acl {

class UniqueId {
 public:
  constexpr explicit UniqueId(std::uint64_t value = 0) : value_(value) {}

  constexpr std::uint64_t value() const { return value_; }

  constexpr bool operator==(const UniqueId& other) const { return value_ == other.value_; }
  constexpr bool operator!=(const UniqueId& other) const { return value_ != other.value_; }
  constexpr bool operator<(const UniqueId& other) const { return value_ < other.value_; }

 private:
  std::uint64_t value_;
};

inline std::ostream& operator<<(std::ostream& os, const UniqueId& id) { return os << id.value(); }

}  // namespace Acl

template <>
struct std::hash<Acl::UniqueId> {
  std::size_t operator()(const Acl::UniqueId& id) const noexcept {
    return std::hash<std::uint64_t>()(id.value());
  }
};
