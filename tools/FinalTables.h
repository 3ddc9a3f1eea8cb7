#pragma once
// PimrpTool::FinalTables: a session's final tables as the what-if and the RP load summary read
// them, one view per VRF, family and mode. finalTablesOf is the one place that knows how a
// session holds its VRFs (today one, the session's own).

#include <optional>
#include <string>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "model/Pim/GroupStatus.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpHashStatus.h"
#include "tools/Session.h"

namespace PimrpTool {

struct FinalTables {
  std::string vrf;
  Ipkit::AddressFamily af = Ipkit::AddressFamily::ipv4;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  Kel::PtrConst<Routing::Pim::RpHashStatus> groups;  // the final per-group table
  Kel::PtrConst<Routing::Pim::RpHashStatus> ranges;  // the final per-range table
  Kel::PtrConst<Routing::Pim::GroupStatus> knownGroups;
};

// The session's final tables by VRF, family (IPv4 first) and mode (sparse first); those of `af`
// alone when it is given.
std::vector<FinalTables> finalTablesOf(Session& session,
                                       std::optional<Ipkit::AddressFamily> af = std::nullopt);

}  // namespace PimrpTool
