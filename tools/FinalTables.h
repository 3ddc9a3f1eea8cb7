#pragma once
// PimrpTool::FinalTables: the final tables of VRF pipelines as the what-if and the RP load summary
// read them, one view per VRF, family and mode.

#include <optional>
#include <string>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "model/Pim/GroupStatus.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpHashStatus.h"
#include "pipeline/VrfPipeline.h"

namespace PimrpTool {

struct FinalTables {
  std::string vrf;
  Ipkit::AddressFamily af = Ipkit::AddressFamily::ipv4;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  Kel::PtrConst<Routing::Pim::RpHashStatus> groups;  // the final per-group table
  Kel::PtrConst<Routing::Pim::RpHashStatus> ranges;  // the final per-range table
  Kel::PtrConst<Routing::Pim::GroupStatus> knownGroups;
};

// The final tables of `vrfs`, in their order, then by family (IPv4 first) and mode (sparse
// first); those of `af` alone when it is given.
std::vector<FinalTables> finalTablesOf(const std::vector<const PimrpPipeline::VrfPipeline*>& vrfs,
                                       std::optional<Ipkit::AddressFamily> af = std::nullopt);

// Whether VRF `a` is listed before VRF `b`: "default" first, then the others by name, the order in
// which the tool lists the VRFs in use.
bool vrfListedBefore(const std::string& a, const std::string& b);

}  // namespace PimrpTool
