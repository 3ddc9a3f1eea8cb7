#pragma once
// Acl::IpRuleConfig: what one access-list rule says: whether the addresses its filter matches
// are permitted or denied.
//
// Invariants:
//  1. A rule is a plain value: its action and its filter, nothing else; equal parts make equal
//     rules.
//  2. The default rule denies every address, so a rule that was never filled in lets nothing
//     through.

#include <cstdint>
#include <ostream>

#include "framework/Acl/IpFilter.h"

namespace Acl {

enum class AclAction : std::uint8_t { deny = 0, permit = 1 };

inline std::ostream& operator<<(std::ostream& os, AclAction action) {
  return os << (action == AclAction::permit ? "permit" : "deny");
}

class IpRuleConfig {
 public:
  IpRuleConfig() = default;
  IpRuleConfig(AclAction action, const IpFilter& filter) : action_(action), filter_(filter) {}

  AclAction action() const { return action_; }
  const IpFilter& filter() const { return filter_; }

  bool operator==(const IpRuleConfig& other) const {
    return action_ == other.action_ && filter_ == other.filter_;
  }
  bool operator!=(const IpRuleConfig& other) const { return !(*this == other); }

 private:
  AclAction action_ = AclAction::deny;
  IpFilter filter_;
};

inline std::ostream& operator<<(std::ostream& os, const IpRuleConfig& rule) {
  return os << rule.action() << ' ' << rule.filter();
}

}  // namespace Acl
