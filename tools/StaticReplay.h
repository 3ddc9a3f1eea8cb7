#pragma once
// PimrpTool::StaticReplay: a private copy of the static candidate machinery of both families
// (static RP configuration, access lists, and the library's own static candidate reactor), fed
// statements, so that `show config` can tell whether the statements it prints give back the
// static candidates that the session's library holds.
//
// Invariants:
//  1. The replay shares nothing with any session: what it is fed changes no session state.
//  2. While a replay exists, the static candidate reactor's trace file is silent: the replay's
//     work is no part of what the operator asked to trace.

#include <cstdint>
#include <vector>

#include "framework/Acl/AclTypeConfig.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/Static/RpConfig.h"
#include "rp/PimStaticRpCandidateSm.h"
#include "tools/Statement.h"

namespace PimrpTool {

class StaticReplay {
 public:
  explicit StaticReplay(const L3::VrfName& vrf);
  ~StaticReplay();
  StaticReplay(const StaticReplay&) = delete;
  StaticReplay& operator=(const StaticReplay&) = delete;

  // Applies a rule of an access list, an RP's mode or a binding, as a session applies it one
  // statement at a time; any other statement changes nothing here.
  void apply(const Statement& statement);

  // The static candidates that the statements so far give the family.
  // REQUIRES: af is ipv4 or ipv6.
  const Routing::Pim::RpCandidateStatus& status(Ipkit::AddressFamily af) const;

 private:
  struct Family {
    Kel::Ptr<Routing::Pim::Static::RpConfig> config;
    Kel::Ptr<Acl::AclTypeConfig> acls;
    Kel::Ptr<Routing::Pim::RpCandidateStatus> status;
    Kel::Ptr<Routing::Pim::Static::RpCandidateSm> reactor;
  };
  static Family familyFor(const L3::VrfName& vrf);

  std::vector<bool> tracedLevels_;  // of the static reactor's trace file, restored at the end
  Family ipv4_;
  Family ipv6_;
  std::uint64_t nextRuleId_ = 1;
};

}  // namespace PimrpTool
