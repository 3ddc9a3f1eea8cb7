#include "tools/FamilyWiring.h"

namespace PimrpTool {

using namespace Routing::Pim;

FamilyWiring::FamilyWiring(Ipkit::AddressFamily af, const L3::VrfName& vrf,
                           const Kel::PtrConst<RpConfig>& rpConfig)
    : af_(af),
      staticConfig_(new Static::RpConfig(vrf)),
      aclConfig_(new Acl::AclTypeConfig),
      staticStatus_(new RpCandidateStatus),
      bsrStatus_(new RpCandidateStatus) {
  // The bootstrap machinery marks the status it writes, as the static reactor marks its own.
  bsrStatus_->rpSetTypeIs(rpTypeBsr);
  staticReactor_ = Static::rpCandidateSmFactory(staticConfig_, aclConfig_, staticStatus_);
  for (const Mode mode : {modePimNone, modePimSm, modePimBidir}) {
    rpHash_[mode] = Kel::Ptr<RpHashStatus>(new RpHashStatus);
    compute_[mode] =
        rpHashComputeStatusFactory(staticStatus_, bsrStatus_, rpHash_[mode], mode, rpConfig);
  }
}

void FamilyWiring::vrfIs(const L3::VrfName& vrf) {
  if (vrf == staticConfig_->vrfName()) return;
  // Detach the reactor from the old configuration before it watches the new one, so that the
  // static status never has two writers.
  staticReactor_ = nullptr;
  staticConfig_ = Kel::Ptr<Static::RpConfig>(new Static::RpConfig(vrf));
  staticReactor_ = Static::rpCandidateSmFactory(staticConfig_, aclConfig_, staticStatus_);
}

}  // namespace PimrpTool
