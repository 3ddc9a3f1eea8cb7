#pragma once
// Routing::Pim::RpConfig: the PIM RP configuration, as far as RP selection reads it.
// Value rpHashAlgorithmModulo (1) replaces the RFC 7761 hash by the modulo rule; any other value
// keeps the hash.

#include "framework/Kel/Entity.h"
#include "model/Pim/PimTypes.h"

namespace Routing {
namespace Pim {

class RpConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<RpConfig> {
   public:
    virtual void onRpHashAlgorithm() {}
  };

  RpHashAlgorithm rpHashAlgorithm() const { return rpHashAlgorithm_; }
  void rpHashAlgorithmIs(RpHashAlgorithm algorithm) {
    if (rpHashAlgorithm_ == algorithm) return;
    rpHashAlgorithm_ = algorithm;
    notify(&NotifieeConst::onRpHashAlgorithm);
  }

 private:
  RpHashAlgorithm rpHashAlgorithm_ = rpHashAlgorithmRfc7761;
};

}  // namespace Pim
}  // namespace Routing
