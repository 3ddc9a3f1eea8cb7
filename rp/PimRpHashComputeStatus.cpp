#include "rp/PimRpHashComputeStatus.h"

#include "framework/Kel/Assert.h"
#include "framework/Kel/Trace.h"

namespace Routing {
namespace Pim {
namespace {

KEL_TRACE_FILE(trace, "PimRpCompute")

// The signatures that open the entry traces, spelled as the messages give them whatever the
// compiler would print.
const char kHandleStaticCompute[] = "void Routing::Pim::RpHashComputeStatus::handleStaticCompute()";
const char kHandleBsrCompute[] = "void Routing::Pim::RpHashComputeStatus::handleBsrCompute()";
// Both public forms of the answer trace this one signature.
const char kRpHashCompute[] =
    "Ipkit::IpGenAddr Routing::Pim::RpHashComputeStatus::rpHashCompute(const Ipkit::IpGenAddr&, "
    "const Ipkit::IpGenAddr&) const";

bool modeServed(Mode served, Mode candidate) {
  return served == modePimNone || served == candidate;
}

bool hasAddress(const Ipkit::IpGenAddr& address) { return address.af() != Ipkit::ipunknown(); }

void recordAnswer(RpHashComputeRecord* record, RpAnswerSource source,
                  const Ipkit::IpGenAddr& answer) {
  if (!record) return;
  record->source = source;
  record->answer = answer;
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
  KEL_TRACE(trace(), 9, kHandleStaticCompute);
  if (!staticRpSet_) return;
  KEL_ASSERT(trace(), rpConfig());
  staticTrieBuilderIs(staticRpSet_, staticComputeIs(staticRpSet_, rpConfig_));
}

void RpHashComputeStatus::handleBsrCompute() {
  KEL_TRACE(trace(), 9, kHandleBsrCompute);
  if (!bsrRpSet_) return;
  KEL_ASSERT(trace(), rpConfig());
  bsrTrieBuilderIs(bsrRpSet_, bsrComputeIs(bsrRpSet_, rpConfig_));
}

inline Ipkit::IpGenAddr RpHashComputeStatus::doRpHashCompute(const Ipkit::IpGenAddr& groupAddr,
                                                             const Ipkit::IpGenAddr& rpFromJoin,
                                                             RpHashComputeRecord* record) const {
  KEL_TRACE(trace(), 9, kRpHashCompute << "( " << groupAddr << " )");
  // A group of unknown family has no table entry and no candidate; only the join can answer.
  if (groupAddr.af() == Ipkit::ipunknown()) return doJoinAnswer(rpFromJoin, record);
  if (rpHashStatus_) {
    // The table hit is the path the agent takes most: one lookup, one test of what it found.
    // A present entry carries its own key; the absence marker's key is null.
    const RpHash entry = rpHashStatus_->rpHash(Ipkit::IpGenPrefix::hostPrefix(groupAddr));
    if (!entry.key().isNull()) {
      KEL_TRACE(trace(), 5, "Found RP " << entry.address() << " in RpHash");
      if (record) record->tableEntry = entry;
      if (!hasAddress(entry.address())) return doJoinAnswer(rpFromJoin, record);
      recordAnswer(record, RpAnswerSource::table, entry.address());
      return entry.address();
    }
  }
  if (embeddedRpStatus_) {
    const Ipkit::IpGenAddr embedded = doEmbeddedAnswer(groupAddr, record);
    if (hasAddress(embedded)) return embedded;
  }
  const Ipkit::IpGenAddr answer = doComputeFromSources(groupAddr, record);
  if (hasAddress(answer)) return answer;
  return doJoinAnswer(rpFromJoin, record);
}

Ipkit::IpGenAddr RpHashComputeStatus::doEmbeddedAnswer(const Ipkit::IpGenAddr& groupAddr,
                                                       RpHashComputeRecord* record) const {
  if (!embeddedRpStatus_->enabled()) return Ipkit::IpGenAddr();
  const EmbeddedRpAdmission admission = embeddedRpStatus_->admission(groupAddr);
  if (!admission.servesGroup()) return Ipkit::IpGenAddr();
  // Embedded RP is a sparse-mode mechanism.
  if (!modeServed(pimMode_, modePimSm)) {
    if (record) record->embeddedSetAsideByMode = true;
    return Ipkit::IpGenAddr();
  }
  const Ipkit::IpGenAddr& rp = admission.embedded.rp();
  KEL_TRACE(trace(), 5, "Embedded RP " << rp << " for group " << groupAddr);
  recordAnswer(record, RpAnswerSource::embedded, rp);
  return rp;
}

Ipkit::IpGenAddr RpHashComputeStatus::rpHashCompute(const Ipkit::IpGenAddr& groupAddr,
                                                    const Ipkit::IpGenAddr& rpFromJoin) const {
  return doRpHashCompute(groupAddr, rpFromJoin, nullptr);
}

Ipkit::IpGenAddr RpHashComputeStatus::rpHashComputeRecorded(const Ipkit::IpGenAddr& groupAddr,
                                                            const Ipkit::IpGenAddr& rpFromJoin,
                                                            RpHashComputeRecord& record) const {
  record = RpHashComputeRecord();
  return doRpHashCompute(groupAddr, rpFromJoin, &record);
}

Ipkit::IpGenAddr RpHashComputeStatus::doComputeFromSources(const Ipkit::IpGenAddr& groupAddr,
                                                           RpHashComputeRecord* record) const {
  const RpCandidateInfo staticInfo =
      staticCompute() ? staticCompute()->doComputeRp(groupAddr) : RpCandidateInfo();
  const RpCandidateInfo bsrInfo =
      bsrRpSet_ && bsrCompute() ? bsrCompute()->doComputeRp(groupAddr) : RpCandidateInfo();
  const bool staticHasRp = hasAddress(staticInfo.address());
  const bool bsrHasRp = hasAddress(bsrInfo.address());
  const bool staticWins = rpStaticWins(staticInfo.override(), bsrHasRp);
  if (record) {
    record->computed = true;
    record->staticResult = staticInfo;
    record->bsrResult = bsrInfo;
    record->reason = rpSourceReason(staticHasRp, staticInfo.override(), bsrHasRp);
  }
  Ipkit::IpGenAddr answer;
  RpAnswerSource source = RpAnswerSource::none;
  if (staticWins && modeServed(pimMode_, staticInfo.mode())) {
    answer = staticInfo.address();
    source = RpAnswerSource::staticRp;
  } else {
    // The rule's winner of another mode is set aside; the bootstrap RP is next in line.
    if (record && staticWins && staticHasRp) record->staticSetAsideByMode = true;
    if (modeServed(pimMode_, bsrInfo.mode())) {
      answer = bsrInfo.address();
      source = RpAnswerSource::bootstrap;
    } else if (record && bsrHasRp) {
      record->bsrSetAsideByMode = true;
    }
  }
  KEL_TRACE(trace(), 5, "Computed RP " << answer);
  if (hasAddress(answer)) recordAnswer(record, source, answer);
  return answer;
}

Ipkit::IpGenAddr RpHashComputeStatus::doJoinAnswer(const Ipkit::IpGenAddr& rpFromJoin,
                                                   RpHashComputeRecord* record) const {
  KEL_TRACE(trace(), 5, "No RP in RpHash or computation. Returning Rp from join value");
  recordAnswer(record, hasAddress(rpFromJoin) ? RpAnswerSource::join : RpAnswerSource::none,
               rpFromJoin);
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
