#pragma once
// Routing::Pim::RpConfig: the PIM RP configuration, as far as RP selection reads it.
// Value rpHashAlgorithmModulo (1) replaces the RFC 7761 hash by the modulo rule; any other value
// keeps the hash.

#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "model/Pim/PimTypes.h"

namespace Routing {
namespace Pim {

class RpConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<RpConfig> {
   public:
    KEL_ON(RpHashAlgorithm)
  };

  KEL_SCALAR(rpHashAlgorithm, RpHashAlgorithm, rpHashAlgorithmRfc7761, RpHashAlgorithm)
};

}  // namespace Pim
}  // namespace Routing
