#pragma once
// PimrpTool::InputWriter: the statements that change one VRF's inputs, written to the pipeline of
// that VRF as the agent's parts change them: the operator's static RPs, access lists and hash
// algorithm, the candidates that the bootstrap mechanism learns, the groups the router knows, the
// unicast routes, the route shadows' attachment and the embedded-RP settings. One overload per
// such statement.
//
// Invariants:
//  1. A statement goes to the family of its addresses; access lists live in the IPv4 family, and
//     the embedded-RP settings in the IPv6 family, the only one whose groups name their RP.
//  2. Removing what is absent changes nothing and notifies nothing.
//  3. With Commit::inRuns a rule statement edits the run of its list (AclRuleRun), which the
//     session commits; with Commit::eachStatement it edits the list's current rules at once.

#include "pipeline/VrfPipeline.h"
#include "tools/AclRuleRun.h"
#include "tools/Statement.h"

namespace PimrpTool {

// How access-list rule statements reach the list: each one at once, or collected in runs.
enum class Commit { eachStatement, inRuns };

struct InputWriter {
  PimrpPipeline::VrfPipeline& vrf;
  AclRuleRun& run;
  Commit commit;

  void operator()(const RpGroupStatement& s) const;
  void operator()(const RpAclStatement& s) const;
  void operator()(const RpModeStatement& s) const;
  void operator()(const NoRpGroupStatement& s) const;
  void operator()(const NoRpAclStatement& s) const;
  void operator()(const NoRpStatement& s) const;
  void operator()(const AclRuleStatement& s) const;
  void operator()(const NoAclRuleStatement& s) const;
  void operator()(const NoAclStatement& s) const;
  void operator()(const BsrRpStatement& s) const;
  void operator()(const NoBsrRpStatement& s) const;
  void operator()(const RpHashAlgorithmStatement& s) const;
  void operator()(const GroupStatement& s) const;
  void operator()(const NoGroupStatement& s) const;
  void operator()(const RouteStatement& s) const;
  void operator()(const NoRouteStatement& s) const;
  void operator()(const ShadowStatement& s) const;
  void operator()(const EmbeddedRpEnableStatement& s) const;
  void operator()(const EmbeddedRpLimitStatement& s) const;
  void operator()(const EmbeddedRpGroupRangeStatement& s) const;
  void operator()(const NoEmbeddedRpGroupRangeStatement& s) const;

 private:
  PimrpPipeline::FamilyWiring& familyOf(const Ipkit::IpGenAddr& address) const {
    return vrf.family(address.af());
  }
  PimrpPipeline::FamilyWiring& ipv4() const { return vrf.family(Ipkit::AddressFamily::ipv4); }
  Routing::Pim::EmbeddedRpConfig& embeddedRp() const {
    return *vrf.family(Ipkit::AddressFamily::ipv6).embeddedRp().config();
  }
  // The rules a rule statement edits: the run's when collecting, else the list's current ones
  // (created with the list when absent and `create`); null when there are none to edit.
  Kel::Ptr<Acl::AclSubConfig> rulesToEdit(const std::string& acl, bool create) const;
};

}  // namespace PimrpTool
