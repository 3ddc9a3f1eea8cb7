// RpCandidateSm::KelRpEntry: what one configured RP gives to the static status, explicitly by
// group prefix and through the access lists it names, and the per-group and per-list values.

#include "framework/Kel/Assert.h"
#include "rp/PimStaticRpCandidateSm.h"

namespace Routing {
namespace Pim {
namespace Static {
namespace {

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kHandleGroupAll[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleGroup()";
const char kHandleGroup[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleGroup(const Ipkit::IpGenPrefix&)";
const char kHandleAclAll[] = "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleAcl()";
const char kHandleAcl[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleAcl(const Kel::String&)";
const char kDoGroupAdd[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::doGroupAdd(const Ipkit::IpGenPrefix&)";
const char kDoGroupRemove[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::doGroupRemove(const "
    "Ipkit::IpGenPrefix&)";
const char kDoAclAdd[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::doAclAdd(const Kel::String&)";
const char kDoAclRemove[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::doAclRemove(const Kel::String&)";
const char kHandleMode[] = "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleMode()";
const char kHandleDel[] = "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleDel()";
const char kHandlePriorityGrp[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handlePriorityGrp(const "
    "Ipkit::IpGenPrefix&)";
const char kHandleHashMaskGrp[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleHashMaskGrp(const "
    "Ipkit::IpGenPrefix&)";
const char kHandleOverrideDynGrp[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleOverrideDynGrp(const "
    "Ipkit::IpGenPrefix&)";
const char kHandlePriorityAcl[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handlePriorityAcl(const Kel::String&)";
const char kHandleHashMaskAcl[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleHashMaskAcl(const Kel::String&)";
const char kHandleOverrideDynAcl[] =
    "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::handleOverrideDynAcl(const "
    "Kel::String&)";

// A value as the status traces show it: flags as True / False, numbers as numbers.
template <class V>
V shown(V value) {
  return value;
}
Kel::String shown(bool value) { return boolToStrep(value); }

// One of the three values an RP configures per group prefix and per access list: where the
// entry keeps it, its "not configured" value, how a candidate takes it, and how it is traced.
template <class V>
struct ValueKind {
  V none;
  const RpEntry::ByPrefix<V>& (RpEntry::*grp)() const;
  const RpEntry::ByAcl<V>& (RpEntry::*acl)() const;
  void (RpCandidate::*write)(const V&);
  const char* setText;
  // Whether a per-list change traces the candidate set it wrote ("... in P CRP set").
  bool aclTraceNamesSet;
};

const ValueKind<RpPriority> kPriority{kRpPriorityNone,       &RpEntry::priorityGrp,
                                      &RpEntry::priorityAcl, &RpCandidate::priorityIs,
                                      "Set priority = ",     true};
const ValueKind<RpHashMaskLen> kHashMask{kRpHashMaskLenNone,    &RpEntry::hashMaskGrp,
                                         &RpEntry::hashMaskAcl, &RpCandidate::hashMaskLenIs,
                                         "Set hashmask = ",     true};
const ValueKind<bool> kOverride{false,
                                &RpEntry::overrideDynGrp,
                                &RpEntry::overrideDynAcl,
                                &RpCandidate::overrideIs,
                                "Setting overrride = ",
                                false};

// The value configured under `key`, or the kind's "not configured" value.
template <class V, class Values, class Key>
V configured(const ValueKind<V>& kind, const Values& values, const Key& key) {
  return values.contains(key) ? values.find(key) : kind.none;
}

// " in P CRP set" when the kind traces it, else nothing.
struct InSet {
  const Ipkit::IpGenPrefix& prefix;
  bool shown;
};
std::ostream& operator<<(std::ostream& out, const InSet& inSet) {
  if (inSet.shown) out << " in " << inSet.prefix << " CRP set";
  return out;
}

}  // namespace

RpCandidateSm::KelRpEntry::KelRpEntry(RpCandidateSm* owner, const Kel::PtrConst<RpEntry>& entry)
    : NestedReactor(owner), rpAddr_(entry->address()), name_(entry->address().valueToStrep()) {
  notifierIs(entry);
}

void RpCandidateSm::KelRpEntry::handleGroup() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << kHandleGroupAll << " " << name());
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
            owner()->vrfTag() << kHandleGroup << " " << name() << " ( " << prefix << " )");
  doFollowKey(prefix, &RpEntry::group, &KelRpEntry::doGroupAdd, &KelRpEntry::doGroupRemove);
}

void RpCandidateSm::KelRpEntry::handleAcl() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << kHandleAclAll << " " << name());
  const auto config = entry();
  if (!config) return;
  for (const auto& [name, present] : config->acl()) doAclAdd(name);
}

void RpCandidateSm::KelRpEntry::handleAcl(const Kel::String& name) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << kHandleAcl << " " << this->name() << " ( " << name << " )");
  doFollowKey(name, &RpEntry::acl, &KelRpEntry::doAclAdd, &KelRpEntry::doAclRemove);
}

template <class Key, class Held>
void RpCandidateSm::KelRpEntry::doFollowKey(const Key& key, const Held& (RpEntry::*held)() const,
                                            void (KelRpEntry::*add)(const Key&),
                                            void (KelRpEntry::*remove)(const Key&)) {
  const auto config = entry();
  if (!config) return;
  // Presence of the key decides; the stored flag is not consulted: a present key is added again.
  if (((*config).*held)().contains(key)) {
    (this->*add)(key);
  } else {
    (this->*remove)(key);
  }
}

void RpCandidateSm::KelRpEntry::doWriteGroupValues(const RpEntry& config, RpCandidate& candidate,
                                                   const Ipkit::IpGenPrefix& prefix) const {
  // A group add writes all three values, the sentinels for what is not configured, even over
  // values a list wrote: the explicit binding is the operator's latest word on this prefix.
  candidate.priorityIs(configured(kPriority, config.priorityGrp(), prefix));
  candidate.hashMaskLenIs(configured(kHashMask, config.hashMaskGrp(), prefix));
  candidate.overrideIs(configured(kOverride, config.overrideDynGrp(), prefix));
}

void RpCandidateSm::KelRpEntry::doGroupAdd(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << kDoGroupAdd << " " << name() << " ( " << prefix << " )");
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
            owner()->vrfTag() << kDoGroupRemove << " " << name() << " ( " << prefix << " )");
  owner()->doCandidateRelease(rpAddr_, prefix);
}

void RpCandidateSm::KelRpEntry::doAclAdd(const Kel::String& name) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << kDoAclAdd << " " << this->name() << " ( " << name << " )");
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
  const RpPriority priority = configured(kPriority, config->priorityAcl(), name);
  const RpHashMaskLen hashMask = configured(kHashMask, config->hashMaskAcl(), name);
  const bool override = configured(kOverride, config->overrideDynAcl(), name);
  for (const auto& [prefix, permitted] : rpStaticAcl->grpPrefix()) {
    owner()->doRefCountIs(rpAddr_, prefix);
    auto candidate = owner()->doCandidateIs(rpAddr_, prefix, config->mode());
    if (priority != kRpPriorityNone) candidate->priorityIs(priority);
    if (hashMask != kRpHashMaskLenNone) candidate->hashMaskLenIs(hashMask);
    candidate->overrideIs(override);
    owner()->doRefCountInc(rpAddr_, prefix);
  }
}

void RpCandidateSm::KelRpEntry::doAclRemove(const Kel::String& name) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << kDoAclRemove << " " << this->name() << " ( " << name << " )");
  const auto rpStaticAcl = owner()->rpStaticAclMutable(name);
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

template <class Kind>
void RpCandidateSm::KelRpEntry::doGrpValue(const Kind& kind, const char* signature,
                                           const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << signature << " " << name() << " ( " << prefix << " )");
  const auto config = entry();
  if (!config) return;
  // Whichever source gave the candidate, the operator's latest word on this prefix's value is
  // written into it, the sentinel included; a prefix this RP has no candidate for is left alone.
  const auto candidate = owner()->doCandidate(prefix, rpAddr_);
  if (!candidate) return;
  const auto value = configured(kind, ((*config).*kind.grp)(), prefix);
  ((*candidate).*kind.write)(value);
  KEL_TRACE(trace(), 5,
            owner()->vrfTag() << kind.setText << shown(value) << " for prefix " << prefix
                              << " and RP " << rpAddr_);
}

template <class Kind>
void RpCandidateSm::KelRpEntry::doAclValue(const Kind& kind, const char* signature,
                                           const Kel::String& name) {
  KEL_TRACE(trace(), 9,
            owner()->vrfTag() << signature << " " << this->name() << " ( " << name << " )");
  const auto config = entry();
  if (!config) return;
  // The list's prefixes are known only while some RP lists it; this RP's candidates of those
  // prefixes take the value whether they came from the list or from a group.
  const auto rpStaticAcl = owner()->rpStaticAcl(name);
  if (!rpStaticAcl) return;
  // Unlike a list add, the sentinel is written: the list's value was removed, and the
  // candidates it gave must stop carrying it.
  const auto value = configured(kind, ((*config).*kind.acl)(), name);
  for (const auto& [prefix, permitted] : rpStaticAcl->grpPrefix()) {
    const auto candidate = owner()->doCandidate(prefix, rpAddr_);
    if (!candidate) continue;
    ((*candidate).*kind.write)(value);
    KEL_TRACE(trace(), 5,
              owner()->vrfTag() << kind.setText << shown(value) << " for acl " << name << " and RP "
                                << rpAddr_ << InSet{prefix, kind.aclTraceNamesSet});
  }
}

// The six value handlers are entry points only: their signatures name them in the traces.
void RpCandidateSm::KelRpEntry::handlePriorityGrp(const Ipkit::IpGenPrefix& prefix) {
  doGrpValue(kPriority, kHandlePriorityGrp, prefix);
}
void RpCandidateSm::KelRpEntry::handleHashMaskGrp(const Ipkit::IpGenPrefix& prefix) {
  doGrpValue(kHashMask, kHandleHashMaskGrp, prefix);
}
void RpCandidateSm::KelRpEntry::handleOverrideDynGrp(const Ipkit::IpGenPrefix& prefix) {
  doGrpValue(kOverride, kHandleOverrideDynGrp, prefix);
}
void RpCandidateSm::KelRpEntry::handlePriorityAcl(const Kel::String& name) {
  doAclValue(kPriority, kHandlePriorityAcl, name);
}
void RpCandidateSm::KelRpEntry::handleHashMaskAcl(const Kel::String& name) {
  doAclValue(kHashMask, kHandleHashMaskAcl, name);
}
void RpCandidateSm::KelRpEntry::handleOverrideDynAcl(const Kel::String& name) {
  doAclValue(kOverride, kHandleOverrideDynAcl, name);
}

void RpCandidateSm::KelRpEntry::handleMode() {
  KEL_TRACE(trace(), 9, owner()->vrfTag() << kHandleMode << " " << name());
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
  KEL_TRACE(trace(), 9, owner()->vrfTag() << kHandleDel << " " << name());
  const auto config = entry();
  KEL_ASSERT(trace(), config);
  for (const auto& [prefix, present] : config->group()) doGroupRemove(prefix);
  for (const auto& [name, present] : config->acl()) doAclRemove(name);
}

}  // namespace Static
}  // namespace Pim
}  // namespace Routing
