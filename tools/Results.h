#pragma once
// What the show statements answer, as plain values: the Session fills them from the library,
// an Output prints them. Nothing here is computed by the tool; every field is read from the
// library's entities or its answers.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "framework/Acl/IpRuleConfig.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateInfo.h"
#include "tools/Statement.h"

namespace PimrpTool {

// show rp: rpHashCompute's answer and each source's own selection.
struct RpAnswer {
  Ipkit::IpGenAddr group;
  Routing::Pim::Mode queryMode = Routing::Pim::modePimNone;  // none: any mode
  std::optional<Ipkit::IpGenAddr> join;
  Ipkit::IpGenAddr rp;  // unknown family: no RP
  Routing::Pim::RpCandidateInfo staticSelection;
  Routing::Pim::RpCandidateInfo bsrSelection;
};

// One candidate set: its prefix and its candidates in ascending address order, each as the five
// values selection reads.
struct CandidateSetRows {
  Ipkit::IpGenPrefix prefix;
  std::vector<Routing::Pim::RpCandidateInfo> rps;
};

// show candidates: the sets of both families, ascending by prefix (IPv4 first).
struct CandidateListing {
  CandidateSource source = CandidateSource::staticConfig;
  std::vector<CandidateSetRows> sets;
};

// A rule of an access list that names only addresses outside the group space, which the
// folding of the list therefore passes over.
struct IgnoredRule {
  std::uint32_t sequence = 0;
  Acl::AclAction action = Acl::AclAction::deny;
  Ipkit::IpGenPrefix prefix;
};

// show acl: the group prefixes the list permits, ascending, and the rules in sequence order that
// serve no group.
struct AclListing {
  std::string acl;
  bool configured = false;
  std::vector<Ipkit::IpGenPrefix> prefixes;
  std::vector<IgnoredRule> ignored;
};

using ShowResult = std::variant<RpAnswer, CandidateListing, AclListing>;

}  // namespace PimrpTool
