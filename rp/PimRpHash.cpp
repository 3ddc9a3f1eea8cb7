#include "rp/PimRpHash.h"

#include "framework/Kel/Assert.h"
#include "framework/Kel/Trace.h"
#include "rp/PimRpSourceRule.h"

namespace Routing {
namespace Pim {
namespace {

KEL_TRACE_FILE(trace, "PimRpCompute")

bool modeServed(Mode served, Mode candidate) {
  return served == modePimNone || served == candidate;
}

}  // namespace

RpHashComputeStatus::RpHashComputeStatus(const Kel::PtrConst<RpCandidateStatus>& staticRpSet,
                                         const Kel::PtrConst<RpCandidateStatus>& bsrRpSet,
                                         const Kel::PtrConst<RpHashStatus>& rpHashStatus,
                                         Mode pimMode, const Kel::PtrConst<RpConfig>& rpConfig)
    : staticRpSet_(staticRpSet),
      bsrRpSet_(bsrRpSet),
      rpHashStatus_(rpHashStatus),
      pimMode_(pimMode),
      rpConfig_(rpConfig) {
  handleStaticCompute();
  handleBsrCompute();
}

void RpHashComputeStatus::handleStaticCompute() {
  KEL_TRACE(trace(), 9, __PRETTY_FUNCTION__);
  if (!staticRpSet_) return;
  KEL_ASSERT(trace(), rpConfig());
  staticTrieBuilderIs(staticRpSet_, staticComputeIs(staticRpSet_, rpConfig_));
}

void RpHashComputeStatus::handleBsrCompute() {
  KEL_TRACE(trace(), 9, __PRETTY_FUNCTION__);
  if (!bsrRpSet_) return;
  KEL_ASSERT(trace(), rpConfig());
  bsrTrieBuilderIs(bsrRpSet_, bsrComputeIs(bsrRpSet_, rpConfig_));
}

Ipkit::IpGenAddr RpHashComputeStatus::rpHashCompute(const Ipkit::IpGenAddr& groupAddr,
                                                    const Ipkit::IpGenAddr& rpFromJoin) const {
  KEL_TRACE(trace(), 9, __PRETTY_FUNCTION__ << "( " << groupAddr << " )");
  // A group of unknown family has no table entry and no candidate; only the join can answer.
  if (groupAddr.af() == Ipkit::ipunknown()) return doJoinAnswer(rpFromJoin);
  if (rpHashStatus_) {
    // The table hit is the path the agent takes most: one lookup, one test of what it found.
    // A present entry carries its own key; the absence marker's key is null.
    const RpHash entry = rpHashStatus_->rpHash(Ipkit::IpGenPrefix::hostPrefix(groupAddr));
    if (!entry.key().isNull()) {
      KEL_TRACE(trace(), 5, "Found RP " << entry.address() << " in RpHash");
      if (entry.address().af() != Ipkit::ipunknown()) return entry.address();
      return doJoinAnswer(rpFromJoin);
    }
  }
  const RpCandidateInfo staticInfo =
      staticCompute() ? staticCompute()->doComputeRp(groupAddr) : RpCandidateInfo();
  const RpCandidateInfo bsrInfo =
      bsrRpSet_ && bsrCompute() ? bsrCompute()->doComputeRp(groupAddr) : RpCandidateInfo();
  const bool bsrHasRp = bsrInfo.address().af() != Ipkit::ipunknown();
  Ipkit::IpGenAddr answer;
  if (rpStaticWins(staticInfo.override(), bsrHasRp) && modeServed(pimMode_, staticInfo.mode())) {
    answer = staticInfo.address();
  } else if (modeServed(pimMode_, bsrInfo.mode())) {
    answer = bsrInfo.address();
  }
  KEL_TRACE(trace(), 5, "Computed RP " << answer);
  if (answer.af() != Ipkit::ipunknown()) return answer;
  return doJoinAnswer(rpFromJoin);
}

Ipkit::IpGenAddr RpHashComputeStatus::doJoinAnswer(const Ipkit::IpGenAddr& rpFromJoin) const {
  KEL_TRACE(trace(), 5, "No RP in RpHash or computation. Returning Rp from join value");
  return rpFromJoin;
}

Kel::Ptr<RpHashComputeStatus> rpHashComputeStatusFactory(
    const Kel::PtrConst<RpCandidateStatus>& staticRpSet,
    const Kel::PtrConst<RpCandidateStatus>& bsrRpSet,
    const Kel::PtrConst<RpHashStatus>& rpHashStatus, Mode pimMode,
    const Kel::PtrConst<RpConfig>& rpConfig) {
  return Kel::Ptr<RpHashComputeStatus>(
      new RpHashComputeStatus(staticRpSet, bsrRpSet, rpHashStatus, pimMode, rpConfig));
}

}  // namespace Pim
}  // namespace Routing
