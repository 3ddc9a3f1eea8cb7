#pragma once
// PimrpPipeline::EmbeddedRpWiring: the embedded-RP part of one address family's wiring: the
// configuration the agent writes, the status the library keeps from it, and the reactor that
// keeps it over the family's known groups. Only IPv6 groups name their RP: the IPv4 family's
// status holds no group even when its configuration is enabled.
//
// FamilyWiring hands the status to the reactors that put embedded RP first: the merge of the
// per-group sparse tables, the compute statuses and the local RP reactor.
//
// Invariants:
//  1. The reactor watches config() from construction and is the only writer of status().
//  2. The configuration starts off (EmbeddedRpConfig): until the agent enables it, the status
//     stays empty and every reactor given it behaves as without it.

#include "framework/Kel/Ptr.h"
#include "model/Pim/EmbeddedRpConfig.h"
#include "model/Pim/GroupStatus.h"
#include "rp/PimEmbeddedRpSm.h"
#include "rp/PimEmbeddedRpStatus.h"

namespace PimrpPipeline {

class EmbeddedRpWiring {
 public:
  explicit EmbeddedRpWiring(const Kel::PtrConst<Routing::Pim::GroupStatus>& groups);

  const Kel::Ptr<Routing::Pim::EmbeddedRpConfig>& config() const { return config_; }
  const Kel::Ptr<Routing::Pim::EmbeddedRpStatus>& status() const { return status_; }

 private:
  const Kel::Ptr<Routing::Pim::EmbeddedRpConfig> config_;
  const Kel::Ptr<Routing::Pim::EmbeddedRpStatus> status_;
  const Kel::Ptr<Routing::Pim::EmbeddedRpSm> sm_;
};

}  // namespace PimrpPipeline
