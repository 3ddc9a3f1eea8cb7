// RpLocalSm: the locality decision, the route shadows and route changes, and the pruning pass.
// Candidate tracking lives in PimRpLocalSmCandidates.cpp.

#include "rp/PimRpLocalSm.h"

#include "framework/Kel/Assert.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"

namespace Routing {
namespace Pim {
namespace {

constexpr const char* kClassName = "Routing::Pim::RpLocalSm";

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kIsLocal[] =
    "const Ipkit::IntfId Routing::Pim::RpLocalSm::isLocal(const Ipkit::IpGenAddr&) const";
const char kHandleInitialized[] = "void Routing::Pim::RpLocalSm::handleInitialized()";
const char kHandleChangedRoute[] =
    "void Routing::Pim::RpLocalSm::handleChangedRoute(const Ipkit::IpGenPrefix&)";
const char kDoRemoveExtraLocalRpSet[] = "void Routing::Pim::RpLocalSm::doRemoveExtraLocalRpSet()";

bool isHostRoute(const Ipkit::IpGenPrefix& prefix) {
  return (prefix.af() == Ipkit::ipv4() && prefix.len() == 32) ||
         (prefix.af() == Ipkit::ipv6() && prefix.len() == 128);
}

}  // namespace

KEL_TRACE_FILE(RpLocalSm::trace, "PimRpCompute")

// The parameters are named apart from the accessors so that the assertion reads them.
RpLocalSm::RpLocalSm(const Kel::PtrConst<RpCandidateStatus>& staticStatus,
                     const Kel::PtrConst<RpCandidateStatus>& bsrStatus,
                     const Kel::Ptr<RpLocalStatus>& localStatus)
    : localRpStatus_(localStatus) {
  KEL_ASSERT(trace(), localRpStatus());
  if (staticStatus) staticCrpStatus_.is(new KelStaticCrpStatus(this, staticStatus));
  if (bsrStatus) bsrCrpStatus_.is(new KelBsrCrpStatus(this, bsrStatus));
  handleInitialized();
}

// --- Shadows -------------------------------------------------------------------------------

template <class Shadow>
RpLocalSm::KelShadow<Shadow>::KelShadow(RpLocalSm* owner, const Kel::PtrConst<Shadow>& shadow)
    : Kel::NestedReactor<RpLocalSm, typename Shadow::NotifieeConst>(owner) {
  this->notifierIs(shadow);
}

template <class Shadow>
void RpLocalSm::KelShadow<Shadow>::onTrie() {
  this->owner()->doTrackTrie(Shadow::af());
}

template class RpLocalSm::KelShadow<Routing::Shadow::Status>;
template class RpLocalSm::KelShadow<Routing6::Shadow::Status>;

RpLocalSm::KelTrie::KelTrie(RpLocalSm* owner, const Kel::PtrConst<Routing::TrieGen>& trie)
    : NestedReactor(owner) {
  notifierIs(trie);
}

void RpLocalSm::KelTrie::onChangedRoute() {
  owner()->handleChangedRoute(notifier() ? notifier()->changedRoute() : Ipkit::IpGenPrefix());
}

Kel::PtrConst<Routing::Shadow::Status> RpLocalSm::uribShadow() const {
  return uribShadow_ ? uribShadow_->notifier() : nullptr;
}

Kel::PtrConst<Routing6::Shadow::Status> RpLocalSm::urib6Shadow() const {
  return urib6Shadow_ ? urib6Shadow_->notifier() : nullptr;
}

Kel::PtrConst<Routing::TrieGen> RpLocalSm::uribTrie() const {
  return uribTrie_ ? uribTrie_->notifier() : nullptr;
}

Kel::PtrConst<Routing::TrieGen> RpLocalSm::urib6Trie() const {
  return urib6Trie_ ? urib6Trie_->notifier() : nullptr;
}

void RpLocalSm::uribShadowIs(const Kel::PtrConst<Routing::Shadow::Status>& shadow) {
  Kel::requireEntity(shadow, kClassName, "uribShadow");
  doShadowIs(uribShadow_, shadow);
}

void RpLocalSm::uribShadowDel() { doShadowIs(uribShadow_, {}); }

void RpLocalSm::urib6ShadowIs(const Kel::PtrConst<Routing6::Shadow::Status>& shadow) {
  Kel::requireEntity(shadow, kClassName, "urib6Shadow");
  doShadowIs(urib6Shadow_, shadow);
}

void RpLocalSm::urib6ShadowDel() { doShadowIs(urib6Shadow_, {}); }

template <class Shadow>
void RpLocalSm::doShadowIs(Kel::NestedReactorPtr<KelShadow<Shadow>>& reactor,
                           const Kel::PtrConst<Shadow>& shadow) {
  if (!shadow) {
    reactor.del();
  } else if (!reactor || reactor->notifier() != shadow) {
    reactor.is(new KelShadow<Shadow>(this, shadow));
  }
  doTrackTrie(Shadow::af());
  handleInitialized();
}

template <class Fn>
auto RpLocalSm::doWithShadow(Ipkit::AddressFamily af, Fn&& fn) const {
  if (af == Ipkit::ipv6()) return fn(urib6Shadow_ ? urib6Shadow_->notifier().ptr() : nullptr);
  if (af != Ipkit::ipv4()) KEL_ASSERT(trace(), 0 && "Unknown Address Family");
  return fn(uribShadow_ ? uribShadow_->notifier().ptr() : nullptr);
}

void RpLocalSm::doTrackTrie(Ipkit::AddressFamily af) {
  Kel::NestedReactorPtr<KelTrie>& reactor = af == Ipkit::ipv6() ? urib6Trie_ : uribTrie_;
  const Kel::PtrConst<Routing::TrieGen> trie = doWithShadow(af, [](const auto* shadow) {
    return shadow ? Kel::PtrConst<Routing::TrieGen>(shadow->trie()) : nullptr;
  });
  if (!trie) {
    reactor.del();
  } else if (!reactor || reactor->notifier() != trie) {
    reactor.is(new KelTrie(this, trie));
  }
}

// --- The decision --------------------------------------------------------------------------

Ipkit::IntfId RpLocalSm::isLocal(const Ipkit::IpGenAddr& addr) const {
  KEL_TRACE(trace(), 9, kIsLocal << addr);
  if (addr.af() != Ipkit::ipv4() && addr.af() != Ipkit::ipv6()) {
    KEL_ASSERT(trace(), 0 && "Unknown Address Family");
  }
  return doWithShadow(addr.af(), [&](const auto* shadow) {
    return shadow ? doIsLocal(*shadow, Ipkit::IpGenPrefix::hostPrefix(addr)) : Ipkit::IntfId();
  });
}

template <class Shadow>
Ipkit::IntfId RpLocalSm::doIsLocal(const Shadow& shadow,
                                   const Ipkit::IpGenPrefix& hostPrefix) const {
  const Ipkit::IpGenPrefix match =
      shadow.trie() ? shadow.trie()->longestMatch(hostPrefix) : Ipkit::IpGenPrefix();
  // The interface comes from the exact host route's FEC, the type from the longest match: with
  // no host route there is no via, even under a covering route of the local type.
  const ShadowFib::FecId fecId = shadow.route(hostPrefix).fecId;
  const auto& fecTable = shadow.fecTable();
  fecTable.attach();
  const bool hasVia = fecTable.fec(fecId).vias > 0;
  // A via that cannot be read (damaged) comes back as the empty record: no via then.
  const auto via = hasVia ? fecTable.via(fecId, 0) : typename Shadow::FecTable::ViaRecord();
  const bool viaFound = hasVia && via.key.fecId == fecId;
  if (!match.isNull() && shadow.route(match).type == kLocalRouteType && viaFound) {
    const Ipkit::IntfId intfId = via.intfId.intfId();
    KEL_TRACE(trace(), 5, hostPrefix << " is local on interface " << intfId);
    return intfId;
  }
  KEL_TRACE(trace(), 5, hostPrefix << " not local " << match.af());
  return Ipkit::IntfId();
}

// --- Route changes and pruning -------------------------------------------------------------

bool RpLocalSm::doHasRoute(const Ipkit::IpGenPrefix& prefix) const {
  return doWithShadow(prefix.af(), [&](const auto* shadow) {
    return shadow && shadow->route(prefix).fecId != ShadowFib::kNoFec;
  });
}

void RpLocalSm::handleInitialized() {
  KEL_TRACE(trace(), 9, kHandleInitialized);
  if (!uribShadow_ && !urib6Shadow_) return;
  if (!localRpStatus_->localRpSet().empty()) doRemoveExtraLocalRpSet();
  initialized_ = true;
  doScanCrpSets<CrpSource::staticRp>();
  doScanCrpSets<CrpSource::bsrRp>();
  doScanEmbeddedRps();
}

void RpLocalSm::handleChangedRoute(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 9, kHandleChangedRoute);
  if (!isHostRoute(prefix)) return;
  const Ipkit::IpGenAddr& addr = prefix.address();
  if (!doHasRoute(prefix)) {
    if (!localRpStatus_->localRpSet(addr)) return;
    localRpStatus_->localRpSetDel(addr);
    KEL_TRACE(trace(), 5, "Deleted RP " << addr << " from local RP information table, No route");
    return;
  }
  const Ipkit::IntfId intfId = isLocal(addr);
  if (!intfId.isNull()) {
    const bool candidate = rp(addr) != 0 || doIsEmbeddedRp(addr);
    if (candidate && !localRpStatus_->localRpSet(addr)) doAddLocalRp(addr, intfId);
    return;
  }
  if (!localRpStatus_->localRpSet(addr)) return;
  localRpStatus_->localRpSetDel(addr);
  KEL_TRACE(trace(), 5, "Deleted RP " << addr << " from local RP information table, Not Local");
}

void RpLocalSm::doRemoveExtraLocalRpSet() {
  KEL_TRACE(trace(), 9, kDoRemoveExtraLocalRpSet);
  // The collection's iteration moves on correctly from a member deleted under it.
  for (const auto& [addr, info] : localRpStatus_->localRpSet()) {
    const Ipkit::IntfId intfId = isLocal(addr);
    if (intfId.isNull()) {
      localRpStatus_->localRpSetDel(addr);
      KEL_TRACE(trace(), 5, "Deleted RP " << addr << " from local information table.");
    } else if (intfId != info->intfId()) {
      // Not rewritten: the candidate scan after the pruning re-adds it with the new interface.
      localRpStatus_->localRpSetDel(addr);
      KEL_TRACE(trace(), 5,
                "Deleted RP " << addr << " from local information table since intfId doesnt match");
    } else if (!doIsCandidate(addr)) {
      localRpStatus_->localRpSetDel(addr);
      KEL_TRACE(trace(), 5,
                "Deleted RP " << addr << " from local information table"
                              << " since not part of any rpset");
    }
  }
}

void RpLocalSm::doAddLocalRp(const Ipkit::IpGenAddr& addr, const Ipkit::IntfId& intfId) {
  // Complete before it is inserted, so that readers of the table never see it without interface.
  const Kel::Ptr<RpLocalInfo> info(new RpLocalInfo(addr));
  info->intfIdIs(intfId);
  localRpStatus_->localRpSetIs(addr, info);
  KEL_TRACE(trace(), 5,
            "Added RP " << addr << " into local RP information table"
                        << " associated with interface " << intfId);
}

Kel::Ptr<RpLocalSm> rpLocalSmFactory(const Kel::PtrConst<RpCandidateStatus>& staticCrpStatus,
                                     const Kel::PtrConst<RpCandidateStatus>& bsrCrpStatus,
                                     const Kel::Ptr<RpLocalStatus>& localRpStatus) {
  return Kel::Ptr<RpLocalSm>(new RpLocalSm(staticCrpStatus, bsrCrpStatus, localRpStatus));
}

}  // namespace Pim
}  // namespace Routing
