// RpLocalSm: the RPs that groups use as their embedded RP, treated as candidates while the
// embedded-RP status names them.

#include "framework/Kel/Trace.h"
#include "rp/PimRpLocalSm.h"

namespace Routing {
namespace Pim {

RpLocalSm::KelEmbeddedRp::KelEmbeddedRp(RpLocalSm* owner,
                                        const Kel::PtrConst<EmbeddedRpStatus>& status)
    : NestedReactor(owner) {
  notifierIs(status);
}

void RpLocalSm::KelEmbeddedRp::onRp(const Ipkit::IpGenAddr& addr) {
  if (!ownerTearingDown()) owner()->handleEmbeddedRp(addr);
}

Kel::PtrConst<EmbeddedRpStatus> RpLocalSm::embeddedRpStatus() const {
  return embeddedRp_ ? embeddedRp_->notifier() : nullptr;
}

void RpLocalSm::embeddedRpStatusIs(const Kel::PtrConst<EmbeddedRpStatus>& status) {
  if (status == embeddedRpStatus()) return;
  const Kel::PtrConst<EmbeddedRpStatus> previous = embeddedRpStatus();
  if (status) {
    embeddedRp_.is(Kel::Ptr<KelEmbeddedRp>(new KelEmbeddedRp(this, status)));
  } else {
    embeddedRp_.del();
  }
  // The RPs of the status let go count no more; those of the new one count from now on.
  if (previous) {
    for (const auto& [addr, groups] : previous->rp()) handleEmbeddedRp(addr);
  }
  doScanEmbeddedRps();
}

bool RpLocalSm::doIsEmbeddedRp(const Ipkit::IpGenAddr& addr) const {
  return embeddedRp_ && embeddedRp_->notifier()->rp(addr) != 0;
}

void RpLocalSm::doScanEmbeddedRps() {
  const Kel::PtrConst<EmbeddedRpStatus> status = embeddedRpStatus();
  if (!status) return;
  for (const auto& [addr, groups] : status->rp()) handleEmbeddedRp(addr);
}

void RpLocalSm::handleEmbeddedRp(const Ipkit::IpGenAddr& addr) {
  KEL_TRACE(
      trace(), 9,
      "void Routing::Pim::RpLocalSm::handleEmbeddedRp(const Ipkit::IpGenAddr&) ( " << addr << " )");
  if (doIsEmbeddedRp(addr)) {
    KEL_TRACE(trace(), 4,
              "Embedded RP " << addr << " used by " << embeddedRpStatus()->rp(addr) << " groups");
    const Ipkit::IntfId intfId = isLocal(addr);
    // An entry already present keeps its interface, as for the candidate sets.
    if (!intfId.isNull() && !localRpStatus_->localRpSet(addr)) doAddLocalRp(addr, intfId);
    return;
  }
  // A candidate set that still names it keeps it.
  if (rp(addr) != 0 || !localRpStatus_->localRpSet(addr)) return;
  localRpStatus_->localRpSetDel(addr);
  KEL_TRACE(trace(), 5, "Deleted RP " << addr << " from local RP information table");
}

}  // namespace Pim
}  // namespace Routing
