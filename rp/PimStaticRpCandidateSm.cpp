#include "rp/PimStaticRpCandidateSm.h"

#include "framework/Kel/Assert.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/System.h"
#include "framework/Kel/Trace.h"

namespace Routing {
namespace Pim {
namespace Static {
namespace {

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kHandleInitialize[] = "void Routing::Pim::Static::RpCandidateSm::handleInitialize()";
const char kDoRemoveExtraStatusEntries[] =
    "void Routing::Pim::Static::RpCandidateSm::doRemoveExtraStatusEntries()";

const char kClassName[] = "Routing::Pim::Static::RpCandidateSm";

}  // namespace

KEL_TRACE_FILE(RpCandidateSm::trace, "PimRpCandidateStaticSm")

// ---- KelRpConfig ------------------------------------------------------------------------------

RpCandidateSm::KelRpConfig::KelRpConfig(RpCandidateSm* owner,
                                        const Kel::PtrConst<RpConfig>& rpConfig)
    : NestedReactor(owner) {
  notifierIs(rpConfig);
  for (const auto& [address, entry] : rpConfig->rpTable()) owner->rpEntryIs(entry);
}

void RpCandidateSm::KelRpConfig::onRpTable(const Ipkit::IpGenAddr& address) {
  if (const auto entry = notifier()->rpTable(address)) {
    owner()->rpEntryIs(entry);
    return;
  }
  // The reactor's delete hook still sees the departed entry, so it gives back what it gave.
  owner()->rpEntryDel(address);
}

void RpCandidateSm::KelRpConfig::onRpTable() { owner()->rpEntry_.resync(notifier()->rpTable()); }

// ---- RpCandidateSm ----------------------------------------------------------------------------

RpCandidateSm::RpCandidateSm(const Kel::PtrConst<RpConfig>& rpConfig,
                             const Kel::PtrConst<Acl::AclTypeConfig>& aclConfig,
                             const Kel::Ptr<RpCandidateStatus>& crpStatus)
    : rpConfig_(rpConfig),
      aclConfig_(aclConfig),
      crpStatus_(crpStatus),
      vrfName_(rpConfig ? rpConfig->vrfName() : L3::VrfName()),
      vrfTag_("<Vrf:" + vrfName_.string() + ">") {
  KEL_ASSERT(trace(), rpConfig && aclConfig && crpStatus);
  // Read before the start-up handlers below write their candidates, so that the check does not
  // depend on whether they run before or after handleInitialize().
  statusSurvived_ = !crpStatus_->crpSet().empty();
  kelRpConfig_.is(new KelRpConfig(this, rpConfig_));
  kelAclConfig_.is(new KelAclConfig(this, aclConfig_));
  handleAclConfig();
  handleInitialize();
}

Kel::Ptr<RpCandidateSm::KelRpEntry> RpCandidateSm::rpEntryIs(const Kel::PtrConst<RpEntry>& entry) {
  Kel::requireEntity(entry, kClassName, "rpEntry");
  return rpEntry_.insertNew(entry->address(), entry).first;
}

Kel::Ptr<RpCandidateSm::KelAcl> RpCandidateSm::aclIs(
    const Kel::PtrConst<Acl::AclConfig>& aclConfig) {
  Kel::requireEntity(aclConfig, kClassName, "acl");
  return acl_.insertNew(aclConfig->name(), aclConfig).first;
}

void RpCandidateSm::rpStaticAclCreated(const Kel::Ptr<RpStaticAcl>& rpStaticAcl) {
  KEL_TRACE(trace(), 8,
            vrfTag() << "Created RpStaticAcl object for acl " << rpStaticAcl->aclName());
  rpStaticAclSmIs(rpStaticAcl)->initializeIs(true);
}

Kel::Ptr<RpCandidateSm::KelRpStaticAclSm> RpCandidateSm::rpStaticAclSmIs(
    const Kel::Ptr<RpStaticAcl>& rpStaticAcl) {
  Kel::requireEntity(rpStaticAcl, kClassName, "rpStaticAclSm");
  return rpStaticAclSm_.insertNew(rpStaticAcl->aclName(), rpStaticAcl).first;
}

void RpCandidateSm::handleInitialize() {
  KEL_TRACE(trace(), 9, vrfTag() << kHandleInitialize);
  if (initialize_) return;
  crpStatus_->rpSetTypeIs(rpTypeStatic);
  if (statusSurvived_) {
    doBuildRpStaticAcl();
    doRemoveExtraStatusEntries();
  }
  KEL_TRACE(trace(), 5, vrfTag() << "Initialized CRP set");
  initialize_ = true;
}

Kel::Ptr<RpCandidate> RpCandidateSm::doCandidate(const Ipkit::IpGenPrefix& prefix,
                                                 const Ipkit::IpGenAddr& rp) const {
  const auto set = crpStatus_->crpSetMutable(prefix);
  return set ? set->rpMutable(rp) : nullptr;
}

void RpCandidateSm::doRemoveExtraStatusEntries() {
  KEL_TRACE(trace(), 9, vrfTag() << kDoRemoveExtraStatusEntries);
  for (const auto& [prefix, readOnlySet] : crpStatus_->crpSet()) {
    const auto set = crpStatus_->crpSetMutable(prefix);
    for (const auto& [rp, candidate] : set->rp()) {
      const auto entry = rpConfig_->rpTable(rp);
      if (entry && doServes(*entry, prefix)) continue;
      set->rpDel(rp);
      KEL_TRACE(trace(), 8,
                vrfTag() << "Deleted RP " << rp << " from prefix " << prefix << " in status");
    }
    if (!set->rp().empty()) continue;
    KEL_TRACE(trace(), 8, vrfTag() << "Deleting prefix " << prefix << " from status");
    crpStatus_->crpSetDel(prefix);
  }
}

bool RpCandidateSm::doServes(const RpEntry& entry, const Ipkit::IpGenPrefix& prefix) const {
  if (entry.group().contains(prefix)) return true;
  for (const auto& [name, used] : entry.acl()) {
    const auto rpStaticAcl = rpStaticAcl_.find(name);
    if (rpStaticAcl && rpStaticAcl->grpPrefix().contains(prefix)) return true;
  }
  return false;
}

Kel::PtrConst<RpEntry> RpCandidateSm::doRpEntryOf(const Ipkit::IpGenAddr& address) const {
  if (const auto reactor = rpEntry_.find(address)) {
    if (reactor->notifier()) return reactor->notifier();
  }
  return rpConfig_->rpTable(address);
}

void RpCandidateSm::doRefCountIs(const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& prefix) {
  if (pfxRefCount_.contains(rp)) return;
  pfxRefCountIs(rp)->counterIs(prefix, 0);
  KEL_TRACE(trace(), 8, vrfTag() << "Created refcount object for RP " << rp);
}

Kel::Ptr<RpCandidate> RpCandidateSm::doCandidateIs(const Ipkit::IpGenAddr& rp,
                                                   const Ipkit::IpGenPrefix& prefix, Mode mode) {
  auto set = crpStatus_->crpSetMutable(prefix);
  if (!set) {
    set = crpStatus_->crpSetIs(prefix);
    KEL_TRACE(trace(), 5, vrfTag() << "Created group " << prefix << " CRP set");
  }
  if (auto candidate = set->rpMutable(rp)) return candidate;
  auto candidate = set->rpIs(rp);
  candidate->setupTimeIs(Kel::System::currentTime());
  candidate->pimModeIs(mode);
  return candidate;
}

U32 RpCandidateSm::doRefCountInc(const Ipkit::IpGenAddr& rp, const Ipkit::IpGenPrefix& prefix) {
  const U32 count = pfxRefCountIs(rp)->counterInc(prefix, 1);
  KEL_TRACE(trace(), 8, vrfTag() << "PrefixCounter for prefix " << prefix << " is " << count);
  return count;
}

void RpCandidateSm::doCandidateRelease(const Ipkit::IpGenAddr& rp,
                                       const Ipkit::IpGenPrefix& prefix) {
  const auto counts = pfxRefCountIs(rp);
  const U32 count = counts->counterDec(prefix, 1);
  KEL_TRACE(trace(), 8, vrfTag() << "PrefixCounter for prefix " << prefix << " is " << count);
  // Another source (a second list, or a list and the explicit group) still gives the prefix.
  if (counts->counter(prefix) != 0) return;
  // Only the counter of this prefix goes, although the message speaks of the RP's refcount
  // object: that object stays, even empty, and goes only with the owner.
  counts->counterDel(prefix);
  KEL_TRACE(trace(), 8, vrfTag() << "Deleted refcount object for RP " << rp);
  const auto set = crpStatus_->crpSetMutable(prefix);
  if (!set) return;
  if (set->rp(rp)) {
    set->rpDel(rp);
    KEL_TRACE(trace(), 5, vrfTag() << "Deleted RP " << rp << " from " << prefix << " CRP set.");
  }
  if (!set->rp().empty()) return;
  crpStatus_->crpSetDel(prefix);
  KEL_TRACE(trace(), 5, vrfTag() << "Deleted group " << prefix << " CRP set");
}

Kel::Ptr<RpCandidateSm> rpCandidateSmFactory(const Kel::PtrConst<RpConfig>& rpConfig,
                                             const Kel::PtrConst<Acl::AclTypeConfig>& aclConfig,
                                             const Kel::Ptr<RpCandidateStatus>& crpStatus) {
  return Kel::Ptr<RpCandidateSm>(new RpCandidateSm(rpConfig, aclConfig, crpStatus));
}

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
