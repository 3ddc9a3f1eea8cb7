#include "rp/PimGrpPrefixTrieBuilderSm.h"

#include "framework/Kel/Assert.h"
#include "framework/Kel/Trace.h"

namespace Routing {
namespace Pim {
namespace {

KEL_TRACE_FILE(trace, "PimCrpGrpTrieBuilderSm")

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kHandleInitialized[] = "void Routing::Pim::GrpPrefixTrieBuilderSm::handleInitialized()";
const char kHandleCRpSet[] =
    "void Routing::Pim::GrpPrefixTrieBuilderSm::handleCRpSet(const Ipkit::IpGenPrefix&)";
const char kHandleCRpSetRebuild[] =
    "void Routing::Pim::GrpPrefixTrieBuilderSm::handleCRpSetRebuild()";
const char kHandleCRpSetAll[] = "void Routing::Pim::GrpPrefixTrieBuilderSm::handleCRpSet()";

}  // namespace

GrpPrefixTrieBuilderSm::KelCrpStatus::KelCrpStatus(GrpPrefixTrieBuilderSm* owner,
                                                   const Kel::PtrConst<RpCandidateStatus>& status)
    : NestedReactor(owner) {
  notifierIs(status);
}

void GrpPrefixTrieBuilderSm::KelCrpStatus::onCrpSet(const Ipkit::IpGenPrefix& prefix) {
  owner()->handleCRpSet(prefix);
}

void GrpPrefixTrieBuilderSm::KelCrpStatus::onCrpSet() { owner()->handleCRpSetRebuild(); }

GrpPrefixTrieBuilderSm::GrpPrefixTrieBuilderSm(const Kel::PtrConst<RpCandidateStatus>& crpStatus,
                                               const Kel::Ptr<RpCompute>& crpCompute)
    : crpCompute_(crpCompute) {
  if (crpStatus) kelCrpStatus_.is(new KelCrpStatus(this, crpStatus));
  handleInitialized();
}

Kel::PtrConst<RpCandidateStatus> GrpPrefixTrieBuilderSm::crpStatus() const {
  return kelCrpStatus_ ? kelCrpStatus_->notifier() : nullptr;
}

void GrpPrefixTrieBuilderSm::crpStatusIs(const Kel::PtrConst<RpCandidateStatus>& status) {
  if (status == crpStatus()) return;
  crpStatusDel();
  if (!status) return;
  kelCrpStatus_.is(new KelCrpStatus(this, status));
  handleCRpSet();
}

void GrpPrefixTrieBuilderSm::crpStatusDel() { kelCrpStatus_.del(); }

void GrpPrefixTrieBuilderSm::handleInitialized() {
  KEL_TRACE(trace(), 8, kHandleInitialized);
  KEL_ASSERT(trace(), crpStatus() && crpCompute());
  initialized_ = true;
  handleCRpSet();
}

bool GrpPrefixTrieBuilderSm::doEnsureTrie(const Ipkit::IpGenPrefix& prefix) {
  if (!trie_) trie_ = crpCompute_->grpTrieIs("crpTrie", prefix.af());
  return trie_->af() == prefix.af();
}

void GrpPrefixTrieBuilderSm::handleCRpSet(const Ipkit::IpGenPrefix& prefix) {
  KEL_TRACE(trace(), 8, kHandleCRpSet << "( " << prefix << " )");
  if (!initialized_) return;
  const auto status = crpStatus();
  if (!status || !doEnsureTrie(prefix)) return;
  if (status->crpSet(prefix)) {
    trie_->routeIs(prefix, 1);
    KEL_TRACE(trace(), 0, "Added " << prefix << " to trie ");
  } else {
    trie_->routeDel(prefix);
    KEL_TRACE(trace(), 0, "Deleted " << prefix << " from trie ");
  }
  trieUpdatesInc(1);
  KEL_TRACE(trace(), 0,
            "Trie built with " << trie_->nodes() << " nodes and " << status->crpSet().size()
                               << " routes");
}

void GrpPrefixTrieBuilderSm::handleCRpSetRebuild() {
  KEL_TRACE(trace(), 8, kHandleCRpSetRebuild);
  if (!initialized_) return;
  crpCompute_->grpTrieDel();
  trie_ = nullptr;
  handleCRpSet();
}

void GrpPrefixTrieBuilderSm::handleCRpSet() {
  KEL_TRACE(trace(), 8, kHandleCRpSetAll);
  if (!initialized_) return;
  const auto status = crpStatus();
  if (!status) return;
  for (const auto& [prefix, set] : status->crpSet()) {
    if (!trie_) {
      doEnsureTrie(prefix);
      KEL_TRACE(trace(), 0,
                "Trie built with " << trie_->nodes() << " nodes "
                                   << " and " << status->crpSet().size() << " routes");
    }
    if (trie_->af() != prefix.af()) continue;
    trie_->routeIs(prefix, 1);
    trieUpdatesInc(1);
    KEL_TRACE(trace(), 0, "Added " << prefix << " to trie ");
  }
}

Kel::Ptr<GrpPrefixTrieBuilderSm> grpPrefixTrieBuilderSmFactory(
    const Kel::PtrConst<RpCandidateStatus>& crpStatus, const Kel::Ptr<RpCompute>& rpCompute) {
  return Kel::Ptr<GrpPrefixTrieBuilderSm>(new GrpPrefixTrieBuilderSm(crpStatus, rpCompute));
}

}  // namespace Pim
}  // namespace Routing
