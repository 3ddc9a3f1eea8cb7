// RpLocalSm: tracking the candidate RPs of both sources, one implementation told apart by
// CrpSource.

#include "framework/Kel/Trace.h"
#include "rp/PimRpLocalSm.h"

namespace Routing {
namespace Pim {
namespace {

constexpr const char* sourceWord(RpLocalSm::CrpSource source) {
  return source == RpLocalSm::CrpSource::staticRp ? "static" : "BSR";
}

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kStaticSetHandleRpCandidate[] =
    "void Routing::Pim::RpLocalSm::KelStaticCrpSet::handleRpCandidate(const Ipkit::IpGenAddr&)";
const char kBsrSetHandleRpCandidate[] =
    "void Routing::Pim::RpLocalSm::KelBsrCrpSet::handleRpCandidate(const Ipkit::IpGenAddr&)";

// One implementation serves both sources; its entry trace names the reactor of the source.
constexpr const char* setSignature(RpLocalSm::CrpSource source) {
  return source == RpLocalSm::CrpSource::staticRp ? kStaticSetHandleRpCandidate
                                                  : kBsrSetHandleRpCandidate;
}

}  // namespace

template <>
Kel::NestedReactorCollection<RpLocalSm, Ipkit::IpGenPrefix, RpLocalSm::KelStaticCrpSet>&
RpLocalSm::crpSetReactors<RpLocalSm::CrpSource::staticRp>() {
  return staticCrpSet_;
}

template <>
Kel::NestedReactorCollection<RpLocalSm, Ipkit::IpGenPrefix, RpLocalSm::KelBsrCrpSet>&
RpLocalSm::crpSetReactors<RpLocalSm::CrpSource::bsrRp>() {
  return bsrCrpSet_;
}

template <RpLocalSm::CrpSource source>
Kel::PtrConst<RpCandidateStatus> RpLocalSm::crpStatus() const {
  if constexpr (source == CrpSource::staticRp) {
    return staticCrpStatus_ ? staticCrpStatus_->notifier() : nullptr;
  } else {
    return bsrCrpStatus_ ? bsrCrpStatus_->notifier() : nullptr;
  }
}

Kel::PtrConst<RpCandidateStatus> RpLocalSm::staticCrpStatus() const {
  return crpStatus<CrpSource::staticRp>();
}

Kel::PtrConst<RpCandidateStatus> RpLocalSm::bsrCrpStatus() const {
  return crpStatus<CrpSource::bsrRp>();
}

// --- Status reactors -----------------------------------------------------------------------

template <RpLocalSm::CrpSource source>
RpLocalSm::KelCrpStatus<source>::KelCrpStatus(RpLocalSm* owner,
                                              const Kel::PtrConst<RpCandidateStatus>& status)
    : NestedReactor(owner) {
  notifierIs(status);
  onCrpSet();  // one set reactor per set already present
}

template <RpLocalSm::CrpSource source>
void RpLocalSm::KelCrpStatus<source>::onCrpSet(const Ipkit::IpGenPrefix& prefix) {
  auto& reactors = owner()->template crpSetReactors<source>();
  const Kel::PtrConst<RpCandidateSet> set = notifier()->crpSet(prefix);
  const Kel::Ptr<KelCrpSet<source>> present = reactors.find(prefix);
  // A set replaced by another object under the same prefix needs a reactor on the new one.
  if (present && present->notifier() != set) reactors.erase(prefix);
  // Deleting a set reactor counts nothing off: the next pruning pass settles the table.
  if (set) reactors.insertNew(prefix, set);
}

template <RpLocalSm::CrpSource source>
void RpLocalSm::KelCrpStatus<source>::onCrpSet() {
  owner()->template crpSetReactors<source>().resync(notifier()->crpSet());
}

template class RpLocalSm::KelCrpStatus<RpLocalSm::CrpSource::staticRp>;
template class RpLocalSm::KelCrpStatus<RpLocalSm::CrpSource::bsrRp>;

// --- Set reactors --------------------------------------------------------------------------

template <RpLocalSm::CrpSource source>
RpLocalSm::KelCrpSet<source>::KelCrpSet(RpLocalSm* owner, const Kel::PtrConst<RpCandidateSet>& set)
    : NestedReactor(owner), prefix_(set->prefix()) {
  notifierIs(set);
}

template <RpLocalSm::CrpSource source>
void RpLocalSm::KelCrpSet<source>::handleRpCandidate() {
  KEL_TRACE(trace(), 9, "handleRpCandidate");
  if (!owner()->initialized()) return;
  for (const auto& [addr, candidate] : notifier()->rp()) handleRpCandidate(addr);
}

template <RpLocalSm::CrpSource source>
void RpLocalSm::KelCrpSet<source>::handleRpCandidate(const Ipkit::IpGenAddr& addr) {
  KEL_TRACE(trace(), 9, setSignature(source) << " ( " << addr << " )");
  RpLocalSm& sm = *owner();
  const Kel::PtrConst<RpCandidateStatus> status = sm.crpStatus<source>();
  const Kel::PtrConst<RpCandidateSet> set = status ? status->crpSet(prefix_) : nullptr;
  if (set && set->rp(addr)) {
    KEL_TRACE(trace(), 4,
              "New " << sourceWord(source) << " RP " << addr << " added to RP Candidate Status");
    sm.rpInc(addr, 1);
    const Ipkit::IntfId intfId = sm.isLocal(addr);
    if (intfId.isNull()) return;
    // An entry already present keeps its interface; handleInitialized is what replaces it.
    if (!sm.localRpStatus()->localRpSet(addr)) sm.doAddLocalRp(addr, intfId);
    return;
  }
  if (sm.rpDec(addr, 1) != 0) return;  // another set still names it
  sm.rpDel(addr);
  if (sm.doIsEmbeddedRp(addr)) return;  // a group still uses it as its embedded RP
  sm.localRpStatus()->localRpSetDel(addr);
  KEL_TRACE(trace(), 5, "Deleted RP " << addr << " from local RP information table");
}

template class RpLocalSm::KelCrpSet<RpLocalSm::CrpSource::staticRp>;
template class RpLocalSm::KelCrpSet<RpLocalSm::CrpSource::bsrRp>;

// --- Scans ---------------------------------------------------------------------------------

template <RpLocalSm::CrpSource source>
void RpLocalSm::doScanCrpSets() {
  const Kel::PtrConst<RpCandidateStatus> status = crpStatus<source>();
  if (!status) return;
  for (const auto& [prefix, set] : status->crpSet()) {
    if (const auto reactor = crpSetReactors<source>().find(prefix)) reactor->handleRpCandidate();
  }
}

template void RpLocalSm::doScanCrpSets<RpLocalSm::CrpSource::staticRp>();
template void RpLocalSm::doScanCrpSets<RpLocalSm::CrpSource::bsrRp>();

bool RpLocalSm::doIsCandidate(const Ipkit::IpGenAddr& addr) const {
  for (const auto& status : {staticCrpStatus(), bsrCrpStatus()}) {
    if (!status) continue;
    for (const auto& [prefix, set] : status->crpSet()) {
      if (set->rp(addr)) return true;
    }
  }
  return doIsEmbeddedRp(addr);
}

}  // namespace Pim
}  // namespace Routing
