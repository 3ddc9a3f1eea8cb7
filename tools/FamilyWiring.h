#pragma once
// PimrpTool::FamilyWiring: the inputs and reactors of one address family, created and wired the
// way a routing agent wires them.
//
// Per family: the static RP configuration (named after the VRF), the access-list configuration
// (only the IPv4 one ever holds lists), the static candidate reactor that turns both into the
// static candidate status, the bootstrap candidate status, and one RP hash compute status for
// each query mode (any, sparse, bidir), each over its own RP hash table. The RP configuration is
// shared by both families and handed in.
//
// Invariants:
//  1. The static candidate reactor always watches the current static configuration and the
//     access-list configuration; it is the only writer of the static status.
//  2. The tool writes the bootstrap status itself, as the bootstrap machinery would.
//  3. The RP hash tables stay empty: nothing fills final tables yet, so every answer is
//     computed from the candidate statuses.

#include <array>
#include <cstddef>

#include "framework/Acl/AclTypeConfig.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "model/Pim/RpHashStatus.h"
#include "model/Pim/Static/RpConfig.h"
#include "rp/PimRpCandidateStaticSm.h"
#include "rp/PimRpHash.h"

namespace PimrpTool {

class FamilyWiring {
 public:
  static constexpr std::size_t kQueryModes = 3;  // any, sparse, bidir: indexed by Mode

  FamilyWiring(Ipkit::AddressFamily af, const L3::VrfName& vrf,
               const Kel::PtrConst<Routing::Pim::RpConfig>& rpConfig);

  Ipkit::AddressFamily af() const { return af_; }

  // Replaces the static configuration by an empty one of another VRF and rewires the static
  // candidate reactor to it.
  // REQUIRES: the static configuration holds no RP (its VRF is fixed while it serves any).
  void vrfIs(const L3::VrfName& vrf);

  const Kel::Ptr<Routing::Pim::Static::RpConfig>& staticConfig() const { return staticConfig_; }
  const Kel::Ptr<Acl::AclTypeConfig>& aclConfig() const { return aclConfig_; }
  const Kel::Ptr<Routing::Pim::RpCandidateStatus>& staticStatus() const { return staticStatus_; }
  const Kel::Ptr<Routing::Pim::RpCandidateStatus>& bsrStatus() const { return bsrStatus_; }
  // REQUIRES: mode is modePimNone, modePimSm or modePimBidir.
  const Kel::Ptr<Routing::Pim::RpHashComputeStatus>& compute(Routing::Pim::Mode mode) const {
    return compute_[mode];
  }

 private:
  const Ipkit::AddressFamily af_;
  Kel::Ptr<Routing::Pim::Static::RpConfig> staticConfig_;
  const Kel::Ptr<Acl::AclTypeConfig> aclConfig_;
  const Kel::Ptr<Routing::Pim::RpCandidateStatus> staticStatus_;
  const Kel::Ptr<Routing::Pim::RpCandidateStatus> bsrStatus_;
  Kel::Ptr<Routing::Pim::Static::RpCandidateSm> staticReactor_;
  std::array<Kel::Ptr<Routing::Pim::RpHashStatus>, kQueryModes> rpHash_;
  std::array<Kel::Ptr<Routing::Pim::RpHashComputeStatus>, kQueryModes> compute_;
};

}  // namespace PimrpTool
