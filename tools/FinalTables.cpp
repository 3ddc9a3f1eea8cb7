#include "tools/FinalTables.h"

#include <tuple>

namespace PimrpTool {

using PimrpPipeline::HashKind;
using PimrpPipeline::HashSource;
using PimrpPipeline::VrfPipeline;
using Routing::Pim::Mode;

std::vector<FinalTables> finalTablesOf(const std::vector<const VrfPipeline*>& vrfs,
                                       std::optional<Ipkit::AddressFamily> af) {
  std::vector<FinalTables> tables;
  for (const VrfPipeline* vrf : vrfs) {
    for (const Ipkit::AddressFamily family :
         {Ipkit::AddressFamily::ipv4, Ipkit::AddressFamily::ipv6}) {
      if (af && *af != family) continue;
      const auto& wiring = vrf->family(family);
      for (const Mode mode : {Routing::Pim::modePimSm, Routing::Pim::modePimBidir}) {
        tables.push_back({vrf->vrf().string(), family, mode,
                          wiring.table(HashSource::final, HashKind::groups, mode),
                          wiring.table(HashSource::final, HashKind::prefixes, mode),
                          wiring.groups()});
      }
    }
  }
  return tables;
}

bool vrfListedBefore(const std::string& a, const std::string& b) {
  return std::make_tuple(a != "default", std::cref(a)) <
         std::make_tuple(b != "default", std::cref(b));
}

}  // namespace PimrpTool
