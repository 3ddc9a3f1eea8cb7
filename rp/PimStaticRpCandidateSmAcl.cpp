// RpCandidateSm::KelRpStaticAclSm and the list objects: carries each prefix that enters or leaves
// a list's permitted set into the static status, for every RP that uses the list, with the
// reference counts deciding when a candidate really goes.

#include "framework/Acl/AclToPrefix.h"
#include "framework/Kel/Assert.h"
#include "rp/PimStaticRpCandidateSm.h"

namespace Routing {
namespace Pim {
namespace Static {
namespace {

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kAclSmHandleInitialize[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpStaticAclSm::handleInitialize()";
const char kAclSmHandlePrefix[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpStaticAclSm::handlePrefix(const "
    "Ipkit::IpGenPrefix&)";
const char kDoBuildRpStaticAcl[] = "void Routing::Pim::Static::RpCandidateSm::doBuildRpStaticAcl()";

}  // namespace

RpCandidateSm::KelRpStaticAclSm::KelRpStaticAclSm(RpCandidateSm* owner,
                                                  const Kel::Ptr<RpStaticAcl>& rpStaticAcl)
    : NestedReactor(owner), rpStaticAcl_(rpStaticAcl), name_(rpStaticAcl->aclName()) {
  notifierIs(rpStaticAcl);
}

void RpCandidateSm::KelRpStaticAclSm::initializeIs(bool initialize) {
  if (initialize_ == initialize) return;
  initialize_ = initialize;
  if (!initialize_) return;
  // Set before filling, so that a notification of the fill that asks again does not fill twice;
  // put back if the fill fails, so that the next request fills again instead of finding the
  // list marked filled with only part of its prefixes.
  try {
    handleInitialize();
  } catch (...) {
    initialize_ = false;
    throw;
  }
}

void RpCandidateSm::KelRpStaticAclSm::handleInitialize() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << kAclSmHandleInitialize << " " << name());
  KEL_TRACE(trace(), 8, owner()->vrfTag() << "Acl name found in static RP config ");
  const auto aclConfig = owner()->aclConfig()->acl(name_);
  if (!aclConfig) return;
  KEL_TRACE(trace(), 8, owner()->vrfTag() << "Acl name found in ACL config");
  const auto subConfig = aclConfig->currCfg();
  if (!subConfig) return;
  Ipkit::IpGenPrefixSet permitted;
  AclPrefix::AclToPrefix::listToPrefixes(*subConfig, permitted);
  for (const auto& prefix : permitted) {
    // Each new entry notifies this reactor, which gives the prefix to the list's RPs.
    rpStaticAcl_->grpPrefixIs(prefix, true);
    KEL_TRACE(trace(), 8,
              owner()->vrfTag() << "Added prefix " << prefix << " to RpStaticAcl object for acl "
                                << name_);
  }
  permitted.prefixDelAll();
}

void RpCandidateSm::KelRpStaticAclSm::handlePrefix(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << kAclSmHandlePrefix << " " << name() << " ( " << prefix << " )");
  if (rpStaticAcl_->grpPrefix().contains(prefix)) {
    KEL_TRACE(trace(), 9, owner()->vrfTag() << "Group added to RpStaticAcl Map ");
    for (const auto& [rp, used] : rpStaticAcl_->rpAddr()) {
      doPrefixEnter(prefix, rp);
    }
    return;
  }
  KEL_TRACE(trace(), 9, owner()->vrfTag() << "Group deleted from the RpStatiAcl Map ");
  for (const auto& [rp, used] : rpStaticAcl_->rpAddr()) {
    KEL_TRACE(
        trace(), 9,
        owner()->vrfTag() << "Removing RpCandidateStatus for prefix" << prefix << " and RP " << rp);
    owner()->doCandidateRelease(rp, prefix);
  }
}

void RpCandidateSm::KelRpStaticAclSm::doPrefixEnter(const Ipkit::IpGenPrefix& prefix,
                                                    const Ipkit::IpGenAddr& rp) {
  // rpAddr holds an RP only between its entry's doAclAdd and doAclRemove, while its reactor lives.
  // Checked before anything is counted, so that a failure leaves no count without its candidate.
  const auto entry = owner()->doRpEntryOf(rp);
  KEL_ASSERT(trace(), entry);
  owner()->doRefCountIs(rp, prefix);
  owner()->doRefCountInc(rp, prefix);
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << "Writing to RpCandidateStatus " << prefix << " for RP " << rp);
  auto candidate = owner()->doCandidateIs(rp, prefix, entry->mode());
  // A prefix that enters later takes the list's values as they are, sentinels included.
  candidate->priorityIs(entry->priorityAcl().contains(name_) ? entry->priorityAcl(name_)
                                                             : kRpPriorityNone);
  candidate->hashMaskLenIs(entry->hashMaskAcl().contains(name_) ? entry->hashMaskAcl(name_)
                                                                : kRpHashMaskLenNone);
  candidate->overrideIs(entry->overrideDynAcl().contains(name_) && entry->overrideDynAcl(name_));
  KEL_TRACE(trace(), 5,
            owner()->vrfTag() << "Added RP " << rp << " into " << prefix << " CRP set.");
}

void RpCandidateSm::doBuildRpStaticAcl() {
  KEL_TRACE(trace(), 9, vrfTag() << kDoBuildRpStaticAcl);
  for (const auto& [address, entry] : rpConfig_->rpTable()) {
    for (const auto& [name, used] : entry->acl()) {
      // rpStaticAclIs traces the creation; an existing object is left as it is.
      rpStaticAclIs(name);
    }
  }
}

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
