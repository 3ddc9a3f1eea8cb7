#include "pipeline/EmbeddedRpWiring.h"

namespace PimrpPipeline {

EmbeddedRpWiring::EmbeddedRpWiring(const Kel::PtrConst<Routing::Pim::GroupStatus>& groups)
    : config_(new Routing::Pim::EmbeddedRpConfig),
      status_(new Routing::Pim::EmbeddedRpStatus),
      sm_(Routing::Pim::embeddedRpSmFactory(groups, config_, status_)) {}

}  // namespace PimrpPipeline
