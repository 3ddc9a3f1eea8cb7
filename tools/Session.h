#pragma once
// PimrpTool::Session: the library wired for both address families, and the statements applied
// to it exactly as a hosting agent would change its inputs.
//
// Configuration statements write the library's input entities (static RP configuration,
// access-list configuration, bootstrap candidate status, RP configuration) and let its reactors
// do the rest; show statements ask the library (rpHashCompute, each source's doComputeRp) and read
// its entities. The session decides nothing about RPs itself.
//
// Invariants:
//  1. A statement goes to the family of its addresses; access lists live in the IPv4 family.
//  2. One RP configuration serves both families.
//  3. Removing what is absent changes nothing and notifies nothing.
//  4. Applied with Commit::inRuns, the rule statements of one access list that follow each other
//     are written into a new version of the list's rules (a fresh Acl::AclSubConfig), which
//     becomes the list's current one when a statement of another kind or list comes, or at
//     commit(): the library refolds the list once per run, as after an operator's configuration
//     session, instead of once per rule. Every other statement, a show included, sees the rules
//     committed.

#include <cstdint>
#include <optional>
#include <string>

#include "framework/Acl/AclSubConfig.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "model/Pim/RpConfig.h"
#include "tools/FamilyWiring.h"
#include "tools/Results.h"
#include "tools/Statement.h"

namespace PimrpTool {

// How access-list rule statements reach the list: each one at once, or collected in runs.
enum class Commit { eachStatement, inRuns };

class Session {
 public:
  Session();

  // Applies one statement; a show statement returns its answer.
  // REQUIRES: the statement was accepted by the Validator that judged every statement before it.
  std::optional<ShowResult> apply(const Statement& statement,
                                  Commit commit = Commit::eachStatement);
  // Makes the rules collected by the current run the list's current rules; nothing without a run.
  void commit();

  const Kel::Ptr<Routing::Pim::RpConfig>& rpConfig() const { return rpConfig_; }
  // REQUIRES: af is ipv4 or ipv6.
  FamilyWiring& family(Ipkit::AddressFamily af) {
    return af == Ipkit::AddressFamily::ipv4 ? ipv4_ : ipv6_;
  }
  const L3::VrfName& vrf() const { return vrf_; }

 private:
  friend struct SessionApply;

  // The rules the run of `acl` collects, ending the run of another list first and starting one
  // from the list's current rules; null when `create` is false and the list has no rules.
  Kel::Ptr<Acl::AclSubConfig> runRulesOf(const std::string& acl, bool create);

  Kel::Ptr<Routing::Pim::RpConfig> rpConfig_;
  L3::VrfName vrf_;
  FamilyWiring ipv4_;
  FamilyWiring ipv6_;
  // Rule identifiers are handed out once each, as the access-list agent's allocator does; 0 is
  // never used for a live rule.
  std::uint64_t nextRuleId_ = 1;
  // The run being collected: the list's name and its next rules; null rules when none.
  std::string runAcl_;
  Kel::Ptr<Acl::AclSubConfig> runRules_;
};

}  // namespace PimrpTool
