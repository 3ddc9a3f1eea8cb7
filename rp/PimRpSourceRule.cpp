#include "rp/PimRpSourceRule.h"

namespace Routing {
namespace Pim {

RpSourceReason rpSourceReason(bool staticHasRp, bool staticOverride, bool bootstrapHasRp) {
  if (!staticHasRp && !bootstrapHasRp) return RpSourceReason::noRp;
  if (rpStaticWins(staticOverride, bootstrapHasRp)) {
    if (!staticHasRp) return RpSourceReason::staticOverrideWithoutRp;
    return bootstrapHasRp ? RpSourceReason::staticOverride : RpSourceReason::onlyStatic;
  }
  return staticHasRp ? RpSourceReason::bootstrapBeatsStatic : RpSourceReason::onlyBootstrap;
}

RpSourceReason rpSourceReasonOfEntries(const RpHash& staticEntry, const RpHash& bsrEntry) {
  return rpSourceReason(rpHashUsable(staticEntry),
                        rpHashPresent(staticEntry) && staticEntry.override(),
                        rpHashUsable(bsrEntry));
}

const char* rpSourceReasonWord(RpSourceReason reason) {
  switch (reason) {
    case RpSourceReason::noRp:
      return "no RP";
    case RpSourceReason::onlyStatic:
      return "only static";
    case RpSourceReason::onlyBootstrap:
      return "only bootstrap";
    case RpSourceReason::bootstrapBeatsStatic:
      return "bootstrap beats static";
    case RpSourceReason::staticOverride:
      return "static override";
    case RpSourceReason::staticOverrideWithoutRp:
      break;
  }
  return "static override without RP";
}

}  // namespace Pim
}  // namespace Routing
