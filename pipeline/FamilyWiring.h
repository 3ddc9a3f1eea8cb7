#pragma once
// PimrpPipeline::FamilyWiring: the inputs and reactors of one address family of one VRF, created
// and wired the way a routing agent wires them (VrfPipeline holds one per family).
//
// Per family: the static RP configuration (named after the VRF), the access-list configuration
// (only the IPv4 one ever holds lists), the static candidate reactor that turns both into the
// static candidate status, the bootstrap candidate status, and the known groups. For each mode
// (sparse, bidir) and each source (static, bootstrap) a review reactor writes that source's
// per-group and per-prefix RP hash tables; for each mode two merge reactors fold the two sources
// into the final per-group table and the final per-prefix table (the RP mapping). One RP hash
// compute status per query mode answers queries: sparse over the final per-group sparse table,
// bidir over the final per-group bidir table, any mode over a table of its own that nothing
// fills. Two group filters (sparse, bidir) are kept over the final per-prefix bidir table. A local
// RP reactor watches both candidate statuses and the family's route shadow. The embedded-RP
// configuration, off by default, and the status its reactor keeps over the known groups
// (EmbeddedRpWiring) reach the sparse per-group merge, the compute statuses and the local RP
// reactor; only IPv6 groups name their RP, so only the IPv6 family's does anything once enabled.
//
// The RP configuration, the clock, the attribute log and the allocator's request record are shared
// by both families, and handed in. The RP hash tables come from a TableMaker (in
// process memory, or attached to shared memory); the reactors that write and read them start at
// reactorsStart(), so that a run over tables left by an earlier one can first put its inputs back
// and then let the reactors take the tables up, as a restarted agent does. The reviews, which
// write the per-source tables, may start first (reviewsStart()), so that they have redone the
// per-source tables before the merges take up the final tables that other processes read.
//
// Invariants:
//  1. The static candidate reactor watches the family's static configuration (of the VRF it was
//     created for) and access-list configuration from construction on; it is the only writer of
//     the static status.
//  2. The agent writes the bootstrap status, the known groups and the route shadow itself, as the
//     bootstrap machinery, the group table and the unicast routing agent do.
//  3. Every table is written by exactly one reactor; the agent only reads them. Before
//     reviewsStart() nothing writes them; before reactorsStart() nothing writes the final tables.
//  4. The route shadow is attached to the local RP reactor from construction until shadowIs(false).

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "framework/Acl/AclTypeConfig.h"
#include "framework/BitMapper/Config.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Clock.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "framework/Routing/Shadow/ShadowStatus.h"
#include "model/Pim/GroupStatus.h"
#include "model/Pim/PimAttrLogSm.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "model/Pim/RpHashStatus.h"
#include "model/Pim/RpLocalStatus.h"
#include "model/Pim/Static/RpConfig.h"
#include "pipeline/EmbeddedRpWiring.h"
#include "pipeline/TableRole.h"
#include "rp/PimGroupFilterSm.h"
#include "rp/PimGroupFilterStatus.h"
#include "rp/PimRpHashComputeStatus.h"
#include "rp/PimRpHashIntermediateSm.h"
#include "rp/PimRpHashSm.h"
#include "rp/PimRpLocalSm.h"
#include "rp/PimStaticRpCandidateSm.h"

namespace PimrpPipeline {

// What both families of a VRF share.
struct SharedInputs {
  Kel::Ptr<Routing::Pim::RpConfig> rpConfig;
  Kel::Ptr<Kel::Clock> clock;
  Kel::Ptr<Routing::Pim::PimAttrLogSm> attrLog;
  Kel::Ptr<BitMapper::Config> bitMapConfig;
};

class FamilyWiring {
 public:
  static constexpr std::size_t kQueryModes = 3;  // any, sparse, bidir: indexed by Mode
  static constexpr std::size_t kTableModes = 2;  // sparse, bidir: indexed by tableModeIndex
  static constexpr std::size_t kSources = 2;     // static, bsr

  // 0 for sparse, 1 for bidir. REQUIRES: mode is modePimSm or modePimBidir.
  static std::size_t tableModeIndex(Routing::Pim::Mode mode) {
    return mode == Routing::Pim::modePimBidir ? 1 : 0;
  }

  // The table of one role of the family.
  using TableMaker =
      std::function<Kel::Ptr<Routing::Pim::RpHashStatus>(HashSource, HashKind, Routing::Pim::Mode)>;

  // Creates the inputs and the tables (through makeTable); the RP hash reactors wait for
  // reactorsStart().
  FamilyWiring(Ipkit::AddressFamily af, const L3::VrfName& vrf, const SharedInputs& shared,
               const TableMaker& makeTable);

  // Creates the reviews, which write the per-source tables, taking them up as they find them.
  // Once only.
  void reviewsStart();
  bool reviewsStarted() const { return reviewsStarted_; }
  // Creates the reactors that write and read the RP hash tables (the reviews unless they run
  // already, the merges, the compute statuses, the group filters); each takes up its tables as it
  // finds them. Once only.
  void reactorsStart();
  bool reactorsStarted() const { return reactorsStarted_; }

  Ipkit::AddressFamily af() const { return af_; }

  const Kel::Ptr<Routing::Pim::Static::RpConfig>& staticConfig() const { return staticConfig_; }
  // The static candidate reactor, whose per-list state tells which ranges each list gives.
  const Kel::Ptr<Routing::Pim::Static::RpCandidateSm>& staticReactor() const {
    return staticReactor_;
  }
  const Kel::Ptr<Acl::AclTypeConfig>& aclConfig() const { return aclConfig_; }
  const Kel::Ptr<Routing::Pim::RpCandidateStatus>& staticStatus() const { return staticStatus_; }
  const Kel::Ptr<Routing::Pim::RpCandidateStatus>& bsrStatus() const { return bsrStatus_; }
  const Kel::Ptr<Routing::Pim::GroupStatus>& groups() const { return groups_; }
  // REQUIRES: reactorsStarted(); mode is modePimNone, modePimSm or modePimBidir.
  const Kel::Ptr<Routing::Pim::RpHashComputeStatus>& compute(Routing::Pim::Mode mode) const {
    return compute_[mode];
  }
  // REQUIRES: mode is modePimSm or modePimBidir.
  const Kel::Ptr<Routing::Pim::RpHashStatus>& table(HashSource source, HashKind kind,
                                                    Routing::Pim::Mode mode) const;
  // REQUIRES: reactorsStarted(); mode is modePimSm or modePimBidir; source is staticRp or bsr.
  const Kel::Ptr<Routing::Pim::RpHashIntermediateSm>& review(HashSource source,
                                                             Routing::Pim::Mode mode) const;
  // REQUIRES: reactorsStarted(); mode is modePimSm or modePimBidir.
  const Kel::Ptr<Routing::Pim::GroupFilterStatus>& groupFilter(Routing::Pim::Mode mode) const {
    return groupFilter_[tableModeIndex(mode)];
  }
  const Kel::Ptr<Routing::Pim::RpLocalStatus>& localRpStatus() const { return localRpStatus_; }
  const EmbeddedRpWiring& embeddedRp() const { return embeddedRp_; }

  // A unicast route of the family's shadow.
  struct Route {
    Ipkit::IpGenPrefix prefix;
    std::uint32_t type = 0;
    std::vector<Routing::ShadowFib::ViaEntry> vias;
  };
  // The routes of the family's shadow, ascending by prefix.
  std::vector<Route> routes() const;
  // Whether the route shadow is attached to the local RP reactor.
  bool shadowAttached() const;

  // Installs or replaces a unicast route in the family's shadow.
  // REQUIRES: prefix of this family; every via's next hop of this family.
  void routeIs(const Ipkit::IpGenPrefix& prefix, std::uint32_t type,
               const std::vector<Routing::ShadowFib::ViaEntry>& vias);
  void routeDel(const Ipkit::IpGenPrefix& prefix);
  // Attaches (true) or detaches the route shadow from the local RP reactor; attaching again runs
  // the reactor's full re-evaluation.
  void shadowIs(bool attached);

 private:
  const Ipkit::AddressFamily af_;
  const SharedInputs shared_;
  const Kel::Ptr<Routing::Pim::Static::RpConfig> staticConfig_;
  const Kel::Ptr<Acl::AclTypeConfig> aclConfig_;
  const Kel::Ptr<Routing::Pim::RpCandidateStatus> staticStatus_;
  const Kel::Ptr<Routing::Pim::RpCandidateStatus> bsrStatus_;
  const Kel::Ptr<Routing::Pim::GroupStatus> groups_;
  const Kel::Ptr<Routing::Pim::Static::RpCandidateSm> staticReactor_;
  // Declared before the reactors that read its status, so that they go first.
  const EmbeddedRpWiring embeddedRp_;
  // [source: static, bsr, final][kind: groups, prefixes][mode: sparse, bidir]
  std::array<std::array<std::array<Kel::Ptr<Routing::Pim::RpHashStatus>, kTableModes>, 2>, 3>
      tables_;
  // [source: static, bsr][mode]
  std::array<std::array<Kel::Ptr<Routing::Pim::RpHashIntermediateSm>, kTableModes>, kSources>
      reviews_;
  // [kind][mode]
  std::array<std::array<Kel::Ptr<Routing::Pim::RpHashSm>, kTableModes>, 2> merges_;
  Kel::Ptr<Routing::Pim::RpHashStatus> anyModeTable_;
  std::array<Kel::Ptr<Routing::Pim::RpHashComputeStatus>, kQueryModes> compute_;
  std::array<Kel::Ptr<Routing::Pim::GroupFilterStatus>, kTableModes> groupFilter_;
  std::array<Kel::Ptr<Routing::Pim::GroupFilterSm>, kTableModes> groupFilterSm_;
  const Kel::Ptr<Routing::Pim::RpLocalStatus> localRpStatus_;
  Kel::Ptr<Routing::Shadow::Status> shadow4_;   // IPv4 family only
  Kel::Ptr<Routing6::Shadow::Status> shadow6_;  // IPv6 family only
  Kel::Ptr<Routing::Pim::RpLocalSm> localSm_;
  bool reviewsStarted_ = false;
  bool reactorsStarted_ = false;
};

}  // namespace PimrpPipeline
