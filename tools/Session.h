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

#include <cstdint>
#include <optional>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "model/Pim/RpConfig.h"
#include "tools/FamilyWiring.h"
#include "tools/Results.h"
#include "tools/Statement.h"

namespace PimrpTool {

class Session {
 public:
  Session();

  // Applies one statement; a show statement returns its answer.
  // REQUIRES: the statement was accepted by the Validator that judged every statement before it.
  std::optional<ShowResult> apply(const Statement& statement);

  const Kel::Ptr<Routing::Pim::RpConfig>& rpConfig() const { return rpConfig_; }
  // REQUIRES: af is ipv4 or ipv6.
  FamilyWiring& family(Ipkit::AddressFamily af) {
    return af == Ipkit::AddressFamily::ipv4 ? ipv4_ : ipv6_;
  }
  const L3::VrfName& vrf() const { return vrf_; }

 private:
  friend struct SessionApply;

  Kel::Ptr<Routing::Pim::RpConfig> rpConfig_;
  L3::VrfName vrf_;
  FamilyWiring ipv4_;
  FamilyWiring ipv6_;
  // Rule identifiers are handed out once each, as the access-list agent's allocator does; 0 is
  // never used for a live rule.
  std::uint64_t nextRuleId_ = 1;
};

}  // namespace PimrpTool
