#pragma once
// PimrpTool static bindings: how an rp-address binding writes the configuration entry of its RP,
// and an access-list rule statement the rules of its list, as an operator's configuration
// reaches a router's static RP configuration and access lists.
//
// Each option is written before the binding itself, so that the static candidate reactor finds
// the binding's values in place when the binding arrives, and a rebinding changes only what
// differs. An option left out takes the protocol's default; `none` leaves the value
// unconfigured (the library's "not set"); override left out is removed.

#include <cstdint>

#include "framework/Acl/AclSubConfig.h"
#include "framework/Acl/IpRuleConfig.h"
#include "framework/Ipkit/AddressFamily.h"
#include "model/Pim/Static/RpEntry.h"
#include "tools/Statement.h"

namespace PimrpTool {

// What a binding gets for an option left out, as routers' configuration gives it: the best
// priority, and the hash mask length that the bootstrap router mechanism advises (RFC 5059: 30
// for IPv4, 126 for IPv6).
constexpr unsigned kDefaultPriority = 0;
inline unsigned defaultHashMask(Ipkit::AddressFamily af) {
  return af == Ipkit::AddressFamily::ipv4 ? 30 : 126;
}

// REQUIRES: the entry is the configuration of the statement's RP.
void bindingWrite(Routing::Pim::Static::RpEntry& entry, const RpGroupStatement& binding);
void bindingWrite(Routing::Pim::Static::RpEntry& entry, const RpAclStatement& binding);

// Sets the rule the statement names in `rules`, under a new identifier taken from
// `nextRuleId`; nothing when the sequence number already holds that rule.
void ruleWrite(Acl::AclSubConfig& rules, const AclRuleStatement& rule, std::uint64_t& nextRuleId);
// Removes the rule of the statement's sequence number; nothing when there is none.
void ruleRemove(Acl::AclSubConfig& rules, const NoAclRuleStatement& rule);

}  // namespace PimrpTool
