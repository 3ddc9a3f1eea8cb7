#include "pipeline/TableRole.h"

#include <cstddef>

namespace PimrpPipeline {

std::string tableRole(Ipkit::AddressFamily af, HashSource source, HashKind kind,
                      Routing::Pim::Mode mode) {
  static const char* const sourceWords[] = {"static", "bsr", "final"};
  return std::string(af == Ipkit::AddressFamily::ipv4 ? "ipv4" : "ipv6") + '.' +
         (mode == Routing::Pim::modePimBidir ? "bidir" : "sparse") + '.' +
         sourceWords[static_cast<std::size_t>(source)] + '.' +
         (kind == HashKind::groups ? "groups" : "prefixes");
}

}  // namespace PimrpPipeline
