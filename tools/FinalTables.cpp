#include "tools/FinalTables.h"

namespace PimrpTool {

using Routing::Pim::Mode;

std::vector<FinalTables> finalTablesOf(Session& session, std::optional<Ipkit::AddressFamily> af) {
  std::vector<FinalTables> tables;
  for (const Ipkit::AddressFamily family :
       {Ipkit::AddressFamily::ipv4, Ipkit::AddressFamily::ipv6}) {
    if (af && *af != family) continue;
    const FamilyWiring& wiring = session.family(family);
    for (const Mode mode : {Routing::Pim::modePimSm, Routing::Pim::modePimBidir}) {
      tables.push_back({session.vrf().string(), family, mode,
                        wiring.table(HashSource::final, HashKind::groups, mode),
                        wiring.table(HashSource::final, HashKind::prefixes, mode),
                        wiring.groups()});
    }
  }
  return tables;
}

}  // namespace PimrpTool
