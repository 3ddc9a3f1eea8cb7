// RpCandidateSm::KelRpEntry: what one configured RP gives to the static status, explicitly by
// group prefix and through the access lists it names, and the per-group and per-list values.

#include "framework/Kel/Assert.h"
#include "rp/PimRpCandidateStaticSm.h"

namespace Routing {
namespace Pim {
namespace Static {
namespace {

const char* trueFalse(bool value) { return value ? "True" : "False"; }

}  // namespace

RpCandidateSm::KelRpEntry::KelRpEntry(RpCandidateSm* owner, const Kel::PtrConst<RpEntry>& entry)
    : NestedReactor(owner), rpAddr_(entry->address()), name_(entry->address().valueToStrep()) {
  notifierIs(entry);
}

void RpCandidateSm::KelRpEntry::handleGroup() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name());
  const auto config = entry();
  if (!config) return;
  for (const auto& [prefix, present] : config->group()) {
    // Detached by a notification of an earlier add: handleDel has given back what was added.
    if (!entry()) return;
    owner()->doRefCountIs(rpAddr_, prefix);
    auto candidate = owner()->doCandidateIs(rpAddr_, prefix, config->mode());
    doWriteGroupValues(*config, *candidate, prefix);
    KEL_TRACE(trace(), 5,
              owner()->vrfTag() << "Added RP " << rpAddr_ << " into " << prefix << " CRP set.");
    const U32 count = owner()->pfxRefCountIs(rpAddr_)->counterInc(prefix, 1);
    KEL_TRACE(trace(), 8,
              owner()->vrfTag() << "RefCount for group " << prefix << " related to RP " << rpAddr_
                                << " = " << count);
  }
}

void RpCandidateSm::KelRpEntry::handleGroup(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name() << " ( " << prefix << " )");
  const auto config = entry();
  if (!config) return;
  // Presence of the key decides; the stored flag is not consulted.
  if (config->group().contains(prefix)) {
    doGroupAdd(prefix);
  } else {
    doGroupRemove(prefix);
  }
}

void RpCandidateSm::KelRpEntry::handleAcl() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name());
  const auto config = entry();
  if (!config) return;
  for (const auto& [name, present] : config->acl()) doAclAdd(name);
}

void RpCandidateSm::KelRpEntry::handleAcl(const Kel::String& name) {
  KEL_TRACE(
      trace(), 9,
      owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << this->name() << " ( " << name << " )");
  const auto config = entry();
  if (!config) return;
  // Presence of the key decides, as for groups: a present key is added again, whatever its flag.
  if (config->acl().contains(name)) {
    doAclAdd(name);
  } else {
    doAclRemove(name);
  }
}

void RpCandidateSm::KelRpEntry::doWriteGroupValues(const RpEntry& config, RpCandidate& candidate,
                                                   const Ipkit::IpGenPrefix& prefix) const {
  // A group add writes all three values, the sentinels for what is not configured, even over
  // values a list wrote: the explicit binding is the operator's latest word on this prefix.
  candidate.priorityIs(config.priorityGrp().contains(prefix) ? config.priorityGrp(prefix)
                                                             : kRpPriorityNone);
  candidate.hashMaskLenIs(config.hashMaskGrp().contains(prefix) ? config.hashMaskGrp(prefix)
                                                                : kRpHashMaskLenNone);
  candidate.overrideIs(config.overrideDynGrp().contains(prefix) && config.overrideDynGrp(prefix));
}

void RpCandidateSm::KelRpEntry::doGroupAdd(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name() << " ( " << prefix << " )");
  const auto config = entry();
  if (!config) return;
  owner()->doRefCountIs(rpAddr_, prefix);
  auto candidate = owner()->doCandidateIs(rpAddr_, prefix, config->mode());
  doWriteGroupValues(*config, *candidate, prefix);
  KEL_TRACE(trace(), 5,
            owner()->vrfTag() << "Added RP " << rpAddr_ << " into " << prefix << " CRP set.");
  owner()->doRefCountInc(rpAddr_, prefix);
}

void RpCandidateSm::KelRpEntry::doGroupRemove(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name() << " ( " << prefix << " )");
  owner()->doCandidateRelease(rpAddr_, prefix);
}

void RpCandidateSm::KelRpEntry::doAclAdd(const Kel::String& name) {
  KEL_TRACE(
      trace(), 9,
      owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << this->name() << " ( " << name << " )");
  const auto config = entry();
  if (!config) return;
  const auto rpStaticAcl = owner()->rpStaticAclIs(name);
  // Every add counts, even for an RP the list already holds (a present key announced again):
  // each count is one source, and each later remove gives back exactly one.
  rpStaticAcl->rpAddrIs(rpAddr_, true);
  KEL_TRACE(
      trace(), 8,
      owner()->vrfTag() << "Added RP " << rpAddr_ << " to RpStaticAcl object for acl " << name);
  // Only real values are written: a list without its own priority or hash mask leaves what an
  // explicit group binding set. The override is the list's either way.
  const bool hasPriority =
      config->priorityAcl().contains(name) && config->priorityAcl(name) != kRpPriorityNone;
  const bool hasHashMask =
      config->hashMaskAcl().contains(name) && config->hashMaskAcl(name) != kRpHashMaskLenNone;
  const bool override = config->overrideDynAcl().contains(name) && config->overrideDynAcl(name);
  for (const auto& [prefix, permitted] : rpStaticAcl->grpPrefix()) {
    owner()->doRefCountIs(rpAddr_, prefix);
    auto candidate = owner()->doCandidateIs(rpAddr_, prefix, config->mode());
    if (hasPriority) candidate->priorityIs(config->priorityAcl(name));
    if (hasHashMask) candidate->hashMaskLenIs(config->hashMaskAcl(name));
    candidate->overrideIs(override);
    owner()->doRefCountInc(rpAddr_, prefix);
  }
}

void RpCandidateSm::KelRpEntry::doAclRemove(const Kel::String& name) {
  KEL_TRACE(
      trace(), 9,
      owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << this->name() << " ( " << name << " )");
  const auto rpStaticAcl = owner()->doRpStaticAclMutable(name);
  // Not counted for this RP, so there is nothing of the list's to give back.
  if (!rpStaticAcl || !rpStaticAcl->rpAddr().contains(rpAddr_)) return;
  for (const auto& [prefix, permitted] : rpStaticAcl->grpPrefix()) {
    owner()->doCandidateRelease(rpAddr_, prefix);
  }
  rpStaticAcl->rpAddrDel(rpAddr_);
  KEL_TRACE(
      trace(), 8,
      owner()->vrfTag() << "Deleted RP " << rpAddr_ << "from RpStaticAcl object for acl " << name);
  if (!rpStaticAcl->rpAddr().empty()) return;
  owner()->rpStaticAclDel(name);
  KEL_TRACE(trace(), 8, owner()->vrfTag() << "Deleted RpStaticAcl object for acl " << name);
}

void RpCandidateSm::KelRpEntry::handlePriorityGrp(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name() << " ( " << prefix << " )");
  const auto config = entry();
  if (!config) return;
  // Whichever source gave the candidate, the operator's latest word on this prefix's value is
  // written into it; a prefix this RP has no candidate for is left alone.
  const auto candidate = owner()->doCandidate(prefix, rpAddr_);
  if (!candidate) return;
  const RpPriority priority =
      config->priorityGrp().contains(prefix) ? config->priorityGrp(prefix) : kRpPriorityNone;
  candidate->priorityIs(priority);
  KEL_TRACE(trace(), 5,
            owner()->vrfTag() << "Set priority = " << priority << " for prefix " << prefix
                              << " and RP " << rpAddr_);
}

void RpCandidateSm::KelRpEntry::handleHashMaskGrp(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name() << " ( " << prefix << " )");
  const auto config = entry();
  if (!config) return;
  const auto candidate = owner()->doCandidate(prefix, rpAddr_);
  if (!candidate) return;
  const RpHashMaskLen hashMask =
      config->hashMaskGrp().contains(prefix) ? config->hashMaskGrp(prefix) : kRpHashMaskLenNone;
  candidate->hashMaskLenIs(hashMask);
  KEL_TRACE(trace(), 5,
            owner()->vrfTag() << "Set hashmask = " << hashMask << " for prefix " << prefix
                              << " and RP " << rpAddr_);
}

void RpCandidateSm::KelRpEntry::handleOverrideDynGrp(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name() << " ( " << prefix << " )");
  const auto config = entry();
  if (!config) return;
  const auto candidate = owner()->doCandidate(prefix, rpAddr_);
  if (!candidate) return;
  const bool override = config->overrideDynGrp().contains(prefix) && config->overrideDynGrp(prefix);
  candidate->overrideIs(override);
  KEL_TRACE(trace(), 5,
            owner()->vrfTag() << "Setting overrride = " << trueFalse(override) << " for prefix "
                              << prefix << " and RP " << rpAddr_);
}

void RpCandidateSm::KelRpEntry::handlePriorityAcl(const Kel::String& name) {
  KEL_TRACE(
      trace(), 9,
      owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << this->name() << " ( " << name << " )");
  const auto config = entry();
  if (!config) return;
  // The list's prefixes are known only while some RP lists it; this RP's candidates of those
  // prefixes take the value whether they came from the list or from a group.
  const auto rpStaticAcl = owner()->rpStaticAcl(name);
  if (!rpStaticAcl) return;
  // Unlike a list add, the sentinel is written: the list's priority was removed, and the
  // candidates it gave must stop carrying it.
  const RpPriority priority =
      config->priorityAcl().contains(name) ? config->priorityAcl(name) : kRpPriorityNone;
  for (const auto& [prefix, permitted] : rpStaticAcl->grpPrefix()) {
    const auto candidate = owner()->doCandidate(prefix, rpAddr_);
    if (!candidate) continue;
    candidate->priorityIs(priority);
    KEL_TRACE(trace(), 5,
              owner()->vrfTag() << "Set priority = " << priority << " for acl " << name
                                << " and RP " << rpAddr_ << " in " << prefix << " CRP set");
  }
}

void RpCandidateSm::KelRpEntry::handleHashMaskAcl(const Kel::String& name) {
  KEL_TRACE(
      trace(), 9,
      owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << this->name() << " ( " << name << " )");
  const auto config = entry();
  if (!config) return;
  const auto rpStaticAcl = owner()->rpStaticAcl(name);
  if (!rpStaticAcl) return;
  const RpHashMaskLen hashMask =
      config->hashMaskAcl().contains(name) ? config->hashMaskAcl(name) : kRpHashMaskLenNone;
  for (const auto& [prefix, permitted] : rpStaticAcl->grpPrefix()) {
    const auto candidate = owner()->doCandidate(prefix, rpAddr_);
    if (!candidate) continue;
    candidate->hashMaskLenIs(hashMask);
    KEL_TRACE(trace(), 5,
              owner()->vrfTag() << "Set hashmask = " << hashMask << " for acl " << name
                                << " and RP " << rpAddr_ << " in " << prefix << " CRP set");
  }
}

void RpCandidateSm::KelRpEntry::handleOverrideDynAcl(const Kel::String& name) {
  KEL_TRACE(
      trace(), 9,
      owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << this->name() << " ( " << name << " )");
  const auto config = entry();
  if (!config) return;
  const auto rpStaticAcl = owner()->rpStaticAcl(name);
  if (!rpStaticAcl) return;
  const bool override = config->overrideDynAcl().contains(name) && config->overrideDynAcl(name);
  for (const auto& [prefix, permitted] : rpStaticAcl->grpPrefix()) {
    const auto candidate = owner()->doCandidate(prefix, rpAddr_);
    if (!candidate) continue;
    candidate->overrideIs(override);
    KEL_TRACE(trace(), 5,
              owner()->vrfTag() << "Setting overrride = " << trueFalse(override) << " for acl "
                                << name << " and RP " << rpAddr_);
  }
}

void RpCandidateSm::KelRpEntry::handleMode() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name());
  const auto config = entry();
  if (!config) return;
  const Mode mode = config->mode();
  const auto& status = owner()->crpStatus();
  for (const auto& [prefix, set] : status->crpSet()) {
    if (const auto candidate = status->crpSetMutable(prefix)->rpMutable(rpAddr_)) {
      candidate->pimModeIs(mode);
    }
  }
}

void RpCandidateSm::KelRpEntry::handleDel() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << __PRETTY_FUNCTION__ << " " << name());
  const auto config = entry();
  KEL_ASSERT(trace(), config);
  for (const auto& [prefix, present] : config->group()) doGroupRemove(prefix);
  for (const auto& [name, present] : config->acl()) doAclRemove(name);
}

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
