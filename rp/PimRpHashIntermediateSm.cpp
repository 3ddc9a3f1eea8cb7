// Construction, start-up, the nested reactors and the candidate path of RpHashIntermediateSm.

#include "rp/PimRpHashIntermediateSm.h"

#include <ios>
#include <sstream>
#include <string>

#include "framework/Kel/Assert.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/Trace.h"
#include "framework/Mirra/TolerantRead.h"

namespace Routing {
namespace Pim {
namespace {

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kHandleInitialized[] = "void Routing::Pim::RpHashIntermediateSm::handleInitialized()";
const char kDoProcessCrpSets[] = "void Routing::Pim::RpHashIntermediateSm::doProcessCrpSets()";
const char kCrpSetHandleInitialized[] =
    "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::handleInitialized()";
const char kCrpSetHandleDel[] = "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::handleDel()";
const char kCrpHandleInitialized[] =
    "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::KelCrp::handleInitialized()";
const char kCrpHandlePriority[] =
    "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::KelCrp::handlePriority()";
const char kCrpHandleHashMask[] =
    "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::KelCrp::handleHashMask()";
const char kCrpHandleOverride[] =
    "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::KelCrp::handleOverride()";
const char kCrpHandleMode[] =
    "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::KelCrp::handleMode()";
const char kCrpHandleDel[] =
    "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::KelCrp::handleDel()";
const char kCrpDoUpdateRpHash[] =
    "void Routing::Pim::RpHashIntermediateSm::KelCrpSet::KelCrp::doUpdateRpHash(bool)";

const char kClassName[] = "Routing::Pim::RpHashIntermediateSm";
const char kCrpSetClassName[] = "Routing::Pim::RpHashIntermediateSm::KelCrpSet";

template <class Value>
std::string textOf(const char* label, const Value& value) {
  std::ostringstream text;
  text << label << value;
  return text.str();
}

// Two prefixes of one family overlap when they agree on the leading bits of the shorter one.
bool overlaps(const Ipkit::IpGenPrefix& a, const Ipkit::IpGenPrefix& b) {
  return a.af() == b.af() && (a.contains(b) || b.contains(a));
}

// Calls update(key) for every key of `table` that overlaps `prefix`, in ascending key order.
// With level 8 on, every key is visited, each with its trace. Otherwise only the keys that can
// overlap are: the shorter prefixes that contain `prefix`, looked up one length at a time (they
// sort before it), then the keys inside it, by a walk positioned at `prefix`. Corruption met on
// the way raises Mirra::CorruptionDetectedException.
template <class Update>
void forEachOverlappingKey(const Kel::TraceFile& trace, const RpHashStatus& table,
                           const Ipkit::IpGenPrefix& prefix, Update update) {
  if (trace.enabled(8)) {
    for (const RpHash& entry : table.rpHash()) {
      const Ipkit::IpGenPrefix& key = entry.key();
      const bool overlap = overlaps(key, prefix);
      KEL_TRACE(trace, 8,
                " RP hash key " << key << (overlap ? "overlaps " : "does not overlap ") << prefix);
      if (overlap) update(key);
    }
    return;
  }
  for (unsigned len = 0; len < prefix.len(); ++len) {
    const Ipkit::IpGenPrefix shorter(prefix.address(), len);
    if (table.rpHash(shorter).key() == shorter) update(shorter);
  }
  table.forEachRpHashWithin(prefix, [&](const RpHash& entry) { update(entry.key()); });
}

}  // namespace

KEL_TRACE_FILE(RpHashIntermediateSm::trace, "PimRpHashSm")

// ---- the four reactors on the inputs -----------------------------------------------------------

RpHashIntermediateSm::KelGroupMrt::KelGroupMrt(RpHashIntermediateSm* owner,
                                               const Kel::PtrConst<GroupStatus>& groupMrt)
    : NestedReactor(owner) {
  notifierIs(groupMrt);
}

void RpHashIntermediateSm::KelGroupMrt::onGroup(const Ipkit::IpGenAddr& group) {
  owner()->handleGroup(group);
}

void RpHashIntermediateSm::KelGroupMrt::onGroup() { owner()->handleGroup(); }

RpHashIntermediateSm::KelCrpStatus::KelCrpStatus(RpHashIntermediateSm* owner,
                                                 const Kel::PtrConst<RpCandidateStatus>& crpStatus)
    : NestedReactor(owner) {
  notifierIs(crpStatus);
}

void RpHashIntermediateSm::KelCrpStatus::onCrpSet(const Ipkit::IpGenPrefix& prefix) {
  // Before start-up the full pass of handleInitialized picks every set up.
  if (!owner()->initialized()) return;
  if (const auto set = notifier()->crpSet(prefix)) {
    owner()->crpSetIs(set);
    return;
  }
  owner()->crpSetDel(prefix);
}

RpHashIntermediateSm::KelClock::KelClock(RpHashIntermediateSm* owner,
                                         const Kel::PtrConst<Kel::Clock>& clock)
    : NestedReactor(owner) {
  notifierIs(clock);
}

void RpHashIntermediateSm::KelClock::onTime() {
  if (ownerTearingDown()) return;
  owner()->doReview();
}

RpHashIntermediateSm::KelRpConfig::KelRpConfig(RpHashIntermediateSm* owner,
                                               const Kel::PtrConst<RpConfig>& rpConfig)
    : NestedReactor(owner) {
  notifierIs(rpConfig);
}

void RpHashIntermediateSm::KelRpConfig::onRpHashAlgorithm() { owner()->handleRpHashAlgorithm(); }

// ---- the owner ---------------------------------------------------------------------------------

RpHashIntermediateSm::RpHashIntermediateSm(Ipkit::AddressFamily af,
                                           const Kel::PtrConst<GroupStatus>& groupMrt,
                                           const Kel::PtrConst<RpCandidateStatus>& crpStatus,
                                           const Kel::Ptr<RpHashStatus>& rpHashStatus,
                                           const Kel::Ptr<RpHashStatus>& rpPrefixHashStatus,
                                           const Kel::PtrConst<Kel::Clock>& clock, Mode pimMode,
                                           const Kel::Ptr<PimAttrLogSm>& pimAttrLogSm,
                                           const Kel::PtrConst<RpConfig>& rpConfig)
    : af_(af),
      rpHashStatus_(rpHashStatus),
      rpPrefixHashStatus_(rpPrefixHashStatus),
      pimMode_(pimMode),
      pimAttrLogSm_(pimAttrLogSm) {
  kelGroupMrt_.is(Kel::Ptr<KelGroupMrt>(new KelGroupMrt(this, groupMrt)));
  kelCrpStatus_.is(Kel::Ptr<KelCrpStatus>(new KelCrpStatus(this, crpStatus)));
  kelClock_.is(Kel::Ptr<KelClock>(new KelClock(this, clock)));
  kelRpConfig_.is(Kel::Ptr<KelRpConfig>(new KelRpConfig(this, rpConfig)));
  handleInitialized();
}

Kel::Ptr<RpCompute> RpHashIntermediateSm::crpComputeIs(
    const Kel::PtrConst<RpCandidateStatus>& crpStatus, const Kel::PtrConst<RpConfig>& rpConfig) {
  if (crpStatus && rpConfig) crpCompute_ = rpComputeFactory(crpStatus, rpConfig);
  return crpCompute_;
}

void RpHashIntermediateSm::handleInitialized() {
  KEL_TRACE(trace(), 9, kHandleInitialized);
  if (initialized_) return;
  crpComputeIs(crpStatus(), rpConfig());
  KEL_ASSERT(trace(), groupMrt() && crpStatus() && crpCompute() && rpHashStatus() && rpConfig());
  if (af_ == Ipkit::ipv4()) {
    trie_ = crpCompute_->grpTrieIs("crpTrie4", af_);
  } else if (af_ == Ipkit::ipv6()) {
    trie_ = crpCompute_->grpTrieIs("crpTrie6", af_);
  } else {
    KEL_ASSERT(trace(), 0 && "Unsupported Address Family");
  }
  // A table that survived a previous reactor may hold groups that have left meanwhile.
  if (rpHashStatus_->rpHashs() != 0) doRemoveExtraRpHashGroups();
  initialized_ = true;
  reviewTimerIs(kelClock_.ptr().ptr(), kFillInterval, kMaxCredits, static_cast<float>(minDelay_),
                static_cast<float>(maxDelay_));
  handleCrpSet();
  doKickReviewForAllGroups();
}

void RpHashIntermediateSm::handleCrpSet() {
  for (const auto& [prefix, set] : crpStatus()->crpSet()) crpSetIs(set);
}

Kel::Ptr<RpHashIntermediateSm::KelCrpSet> RpHashIntermediateSm::crpSetIs(
    const Kel::PtrConst<RpCandidateSet>& crpSet) {
  Kel::requireEntity(crpSet, kClassName, "crpSet");
  return crpSet_.insertNew(crpSet->prefix(), crpSet).first;
}

void RpHashIntermediateSm::doProcessCrpSets() {
  KEL_TRACE(trace(), 9, kDoProcessCrpSets);
  for (const auto& [prefix, reactor] : crpSet()) {
    doAddRpHashGuts(prefix, rpPrefixHashStatus_, crpCompute_, pimMode_);
  }
}

Kel::Ptr<RpHashIntermediateSm> rpHashIntermediateSmFactory(
    Ipkit::AddressFamily af, const Kel::PtrConst<GroupStatus>& groupMrt,
    const Kel::PtrConst<RpCandidateStatus>& crpStatus, const Kel::Ptr<RpHashStatus>& rpHashStatus,
    const Kel::Ptr<RpHashStatus>& rpPrefixHashStatus, const Kel::PtrConst<Kel::Clock>& clock,
    Mode pimMode, const Kel::Ptr<PimAttrLogSm>& pimAttrLogSm,
    const Kel::PtrConst<RpConfig>& rpConfig) {
  return Kel::Ptr<RpHashIntermediateSm>(
      new RpHashIntermediateSm(af, groupMrt, crpStatus, rpHashStatus, rpPrefixHashStatus, clock,
                               pimMode, pimAttrLogSm, rpConfig));
}

// ---- KelCrpSet ---------------------------------------------------------------------------------

RpHashIntermediateSm::KelCrpSet::KelCrpSet(RpHashIntermediateSm* owner,
                                           const Kel::PtrConst<RpCandidateSet>& crpSet)
    : NestedReactor(owner), prefix_(crpSet->prefix()) {
  notifierIs(crpSet);
  for (const auto& [address, candidate] : crpSet->rp()) crpIs(candidate);
}

Kel::Ptr<RpHashIntermediateSm::KelCrpSet::KelCrp> RpHashIntermediateSm::KelCrpSet::crpIs(
    const Kel::PtrConst<RpCandidate>& candidate) {
  Kel::requireEntity(candidate, kCrpSetClassName, "crp");
  return crp_.insertNew(candidate->address(), candidate).first;
}

void RpHashIntermediateSm::KelCrpSet::onRp(const Ipkit::IpGenAddr& address) {
  if (const auto candidate = notifier()->rp(address)) {
    crpIs(candidate);
    return;
  }
  crpDel(address);
}

void RpHashIntermediateSm::KelCrpSet::handleInitialized() {
  KEL_TRACE(trace(), 9, kCrpSetHandleInitialized);
  if (initialized_) return;
  owner()->trie()->routeIs(prefix_, true);
  KEL_TRACE(trace(), 8, "Added " << prefix_ << " to trie");
  initialized_ = true;
}

void RpHashIntermediateSm::KelCrpSet::handleDel() {
  KEL_TRACE(trace(), 9, kCrpSetHandleDel);
  for (const auto& [address, reactor] : crp()) reactor->handleDel();
  owner()->rpPrefixHashStatus()->rpHashDel(prefix_);
}

// ---- KelCrp ------------------------------------------------------------------------------------

RpHashIntermediateSm::KelCrpSet::KelCrp::KelCrp(KelCrpSet* crpSet,
                                                const Kel::PtrConst<RpCandidate>& candidate)
    : NestedReactor(crpSet), address_(candidate->address()) {
  notifierIs(candidate);
}

void RpHashIntermediateSm::KelCrpSet::KelCrp::handleInitialized() {
  KEL_TRACE(trace(), 9, kCrpHandleInitialized);
  if (initialized_) return;
  const auto candidate = notifier();
  if (!candidate) return;
  KEL_TRACE(trace(), 8,
            kCrpHandleInitialized << " Prefix=" << owner()->prefix() << ", RP=" << address_
                                  << ", Priority=" << candidate->priority()
                                  << ", HashMaskLen=" << candidate->hashMaskLen()
                                  << ", pimMode=" << candidate->pimMode());
  if (candidate->priority() == kRpPriorityNone || candidate->hashMaskLen() == kRpHashMaskLenNone ||
      candidate->pimMode() == modePimNone) {
    KEL_TRACE(trace(), 8,
              kCrpHandleInitialized << "Not computing RP Hash since needed attributes "
                                    << "are not set yet");
    return;
  }
  doUpdateRpHash(true);
  initialized_ = true;
}

template <class Describe>
void RpHashIntermediateSm::KelCrpSet::KelCrp::doHandleValue(Describe describe) {
  const auto candidate = notifier();
  initialized_ ? doUpdateRpHash(true) : handleInitialized();
  KEL_TRACE(trace(), 5, "Updated RP " << address_ << describe(*candidate));
}

void RpHashIntermediateSm::KelCrpSet::KelCrp::handlePriority() {
  KEL_TRACE(trace(), 9, kCrpHandlePriority);
  doHandleValue([](const RpCandidate& c) { return textOf(" to have priority ", c.priority()); });
}

void RpHashIntermediateSm::KelCrpSet::KelCrp::handleHashMask() {
  KEL_TRACE(trace(), 9, kCrpHandleHashMask);
  doHandleValue(
      [](const RpCandidate& c) { return textOf(" to have hashMaskLen ", c.hashMaskLen()); });
}

void RpHashIntermediateSm::KelCrpSet::KelCrp::handleOverride() {
  KEL_TRACE(trace(), 9, kCrpHandleOverride);
  doHandleValue([](const RpCandidate& c) {
    return textOf(" to have override flag as ", boolToStrep(c.override()));
  });
}

void RpHashIntermediateSm::KelCrpSet::KelCrp::handleMode() {
  KEL_TRACE(trace(), 9, kCrpHandleMode);
  doHandleValue([](const RpCandidate& c) { return textOf(" to have mode ", c.pimMode()); });
}

void RpHashIntermediateSm::KelCrpSet::KelCrp::handleDel() {
  KEL_TRACE(trace(), 9, kCrpHandleDel);
  const Ipkit::IpGenPrefix prefix = owner()->prefix();
  KEL_TRACE(trace(), 5,
            kCrpHandleDel << "Deleting RP " << address_ << " from RP Set with prefix " << prefix);
  RpHashIntermediateSm* sm = owner()->owner();
  const auto set = sm->crpStatus()->crpSet(prefix);
  if (!set || set->rp().empty()) {
    sm->trie()->routeDel(prefix);
    KEL_TRACE(trace(), 8, "Deleted " << prefix << " from trie");
  }
  doUpdateRpHash(false);
}

void RpHashIntermediateSm::KelCrpSet::KelCrp::doUpdateRpHash(bool add) {
  KEL_TRACE(trace(), 9, kCrpDoUpdateRpHash << " ( " << std::boolalpha << add << " )");
  // Copied first: a table write below may run a reactor that deletes this candidate or its set.
  RpHashIntermediateSm* sm = owner()->owner();
  const Ipkit::IpGenPrefix prefix = owner()->prefix();
  const Ipkit::IpGenAddr rp = address_;
  const RpHashAlgorithm algorithm = sm->rpConfig()->rpHashAlgorithm();
  const Kel::Ptr<RpHashStatus> table = sm->rpHashStatus();
  const Kel::Ptr<RpCompute> compute = sm->crpCompute();
  const Mode mode = sm->pimMode();
  // Damage in the per-group table ends the walk there; the per-prefix entry is written anyway.
  Mirra::tolerantRead(*table, [&] {
    forEachOverlappingKey(trace(), *table, prefix, [&](const Ipkit::IpGenPrefix& key) {
      doUpdateRpHashGuts(key, add, table, compute, rp, mode, algorithm);
    });
  });
  doUpdateRpHashGuts(prefix, add, sm->rpPrefixHashStatus(), compute, rp, mode, algorithm);
}

}  // namespace Pim
}  // namespace Routing
