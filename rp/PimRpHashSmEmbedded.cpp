// RpHashSm: the groups that use their embedded RP, whose final entries the status decides above
// both inputs.

#include "rp/PimRpHashSm.h"
#include "rp/PimRpSourceRule.h"

namespace Routing {
namespace Pim {
namespace {

const char kHandleEmbeddedRp[] =
    "void Routing::Pim::RpHashSm::handleEmbeddedRp(const Ipkit::IpGenPrefix&)";

}  // namespace

RpHashSm::KelEmbeddedRp::KelEmbeddedRp(RpHashSm* owner,
                                       const Kel::PtrConst<EmbeddedRpStatus>& embeddedRp)
    : NestedReactor(owner) {
  notifierIs(embeddedRp);
}

void RpHashSm::KelEmbeddedRp::onGroup(const Ipkit::IpGenAddr& group) {
  if (ownerTearingDown()) return;
  owner()->handleEmbeddedRp(Ipkit::IpGenPrefix::hostPrefix(group));
}

Kel::PtrConst<EmbeddedRpStatus> RpHashSm::embeddedRp() const {
  return kelEmbeddedRp_ ? kelEmbeddedRp_->notifier() : nullptr;
}

// Untraced, unlike the passes over the inputs: a merge given a status that holds no group, as
// when embedded RP is off, writes and traces exactly what the two-input merge does.
void RpHashSm::handleEmbeddedRp() {
  const Kel::PtrConst<EmbeddedRpStatus> status = embeddedRp();
  if (!status) return;
  for (const auto& [group, embedded] : status->group()) {
    handleEmbeddedRp(Ipkit::IpGenPrefix::hostPrefix(group));
  }
}

void RpHashSm::handleEmbeddedRp(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9, kHandleEmbeddedRp << " ( " << prefix << " )");
  const RpHash entry = embeddedRp()->entry(prefix);
  if (rpHashPresent(entry)) {
    KEL_TRACE(trace(), 5, "handleEmbeddedRp: Adding " << entry);
    rpHashIs(entry);
    return;
  }
  // The group no longer uses its embedded RP: the two inputs decide the key again, the static
  // handler falling back to the BSR entry, or deleting, when the static entry has no RP.
  KEL_TRACE(trace(), 5, "handleEmbeddedRp: Embedded RP no longer serves " << prefix);
  handleStaticHash(prefix);
}

bool RpHashSm::doEmbeddedRpServes(const Ipkit::IpGenPrefix& prefix, const char* handler) const {
  if (!kelEmbeddedRp_) return false;
  const RpHash entry = kelEmbeddedRp_->notifier()->entry(prefix);
  if (!rpHashPresent(entry)) return false;
  KEL_TRACE(trace(), 5,
            handler << ": No programming for prefix " << prefix << " since embedded RP "
                    << entry.address() << " serves it");
  return true;
}

}  // namespace Pim
}  // namespace Routing
