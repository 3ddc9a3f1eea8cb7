#include "rp/PimEmbeddedRpStatus.h"

namespace Routing {
namespace Pim {

bool EmbeddedRpStatus::inGroupRanges(const Ipkit::IpGenAddr& group) const {
  if (groupRange().empty()) return true;
  for (const auto& [range, configured] : groupRange()) {
    if (range.contains(group)) return true;
  }
  return false;
}

EmbeddedRpAdmission EmbeddedRpStatus::admission(const Ipkit::IpGenAddr& group) const {
  EmbeddedRpAdmission admission{EmbeddedRp::ofGroup(group), EmbeddedRpUse::off};
  if (!enabled()) return admission;
  if (!admission.embedded.valid()) {
    admission.use = EmbeddedRpUse::none;
  } else if (!inGroupRanges(group)) {
    admission.use = EmbeddedRpUse::outsideRanges;
  } else if (this->group().contains(group)) {
    admission.use = EmbeddedRpUse::inUse;
  } else if (waitingGroup().contains(group) || this->group().size() >= limit()) {
    admission.use = EmbeddedRpUse::overLimit;
  } else {
    admission.use = EmbeddedRpUse::available;
  }
  return admission;
}

RpHash EmbeddedRpStatus::entry(const Ipkit::IpGenPrefix& key) const {
  // The merge asks for every group it writes: with no member, the answer costs one test.
  if (group().empty()) return RpHash();
  if (key.af() != Ipkit::AddressFamily::ipv6 || key.len() != 128) return RpHash();
  const EmbeddedRp embedded = group(key.address());
  if (!embedded.valid()) return RpHash();
  return RpHash(key, embedded.rp(), kEntryPriority, kEntryHashMaskLen, true, modePimSm);
}

}  // namespace Pim
}  // namespace Routing
