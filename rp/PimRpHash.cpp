#include "rp/PimRpHash.h"

#include "framework/Kel/Assert.h"
#include "framework/Kel/Trace.h"

namespace Routing {
namespace Pim {
namespace {

const Kel::TraceFile& trace() {
  static const Kel::TraceFile& file = Kel::TraceFile::named("PimRpCompute");
  return file;
}

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

Kel::Ptr<RpCompute> RpHashComputeStatus::staticComputeIs(
    const Kel::PtrConst<RpCandidateStatus>& crp, const Kel::PtrConst<RpConfig>& rpConfig) {
  staticCompute_ = rpComputeFactory(crp, rpConfig);
  return staticCompute_;
}

Kel::Ptr<GrpPrefixTrieBuilderSm> RpHashComputeStatus::staticTrieBuilderIs(
    const Kel::PtrConst<RpCandidateStatus>& crpStatus, const Kel::Ptr<RpCompute>& compute) {
  staticTrieBuilder_ = grpPrefixTrieBuilderSmFactory(crpStatus, compute);
  return staticTrieBuilder_;
}

Kel::Ptr<RpCompute> RpHashComputeStatus::bsrComputeIs(const Kel::PtrConst<RpCandidateStatus>& crp,
                                                      const Kel::PtrConst<RpConfig>& rpConfig) {
  bsrCompute_ = rpComputeFactory(crp, rpConfig);
  return bsrCompute_;
}

Kel::Ptr<GrpPrefixTrieBuilderSm> RpHashComputeStatus::bsrTrieBuilderIs(
    const Kel::PtrConst<RpCandidateStatus>& crpStatus, const Kel::Ptr<RpCompute>& compute) {
  bsrTrieBuilder_ = grpPrefixTrieBuilderSmFactory(crpStatus, compute);
  return bsrTrieBuilder_;
}

Ipkit::IpGenAddr RpHashComputeStatus::rpHashCompute(const Ipkit::IpGenAddr& groupAddr,
                                                    const Ipkit::IpGenAddr& rpFromJoin) const {
  KEL_TRACE(trace(), 9, __PRETTY_FUNCTION__ << "( " << groupAddr << " )");
  Ipkit::IpGenAddr answer;
  // A group of unknown family has no table entry and no candidate; only the join can answer.
  if (groupAddr.af() != Ipkit::ipunknown()) {
    const RpHash entry =
        rpHashStatus_ ? rpHashStatus_->rpHash(Ipkit::IpGenPrefix::hostPrefix(groupAddr)) : RpHash();
    if (entry != RpHash()) {
      answer = entry.address();
      KEL_TRACE(trace(), 5, "Found RP " << answer << " in RpHash");
    } else {
      const RpCandidateInfo staticInfo =
          staticCompute_ ? staticCompute_->doComputeRp(groupAddr) : RpCandidateInfo();
      const RpCandidateInfo bsrInfo =
          bsrRpSet_ && bsrCompute_ ? bsrCompute_->doComputeRp(groupAddr) : RpCandidateInfo();
      const bool bsrHasNone = bsrInfo.address().af() == Ipkit::ipunknown();
      if ((staticInfo.override() || bsrHasNone) && modeServed(pimMode_, staticInfo.mode())) {
        answer = staticInfo.address();
      } else if (modeServed(pimMode_, bsrInfo.mode())) {
        answer = bsrInfo.address();
      }
      KEL_TRACE(trace(), 5, "Computed RP " << answer);
    }
  }
  if (answer.af() != Ipkit::ipunknown()) return answer;
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
