#pragma once
// Routing::Pim::RpHashComputeStatus: where the agent asks which RP serves one group.
//
// It answers from the final RP hash table when the group's host prefix has an entry there, and
// otherwise computes the RP from both candidate sources and merges them: a bootstrap RP beats a
// static one unless the static one overrides; a static RP serves whenever bootstrap has none; a
// result of another mode than the one this status serves is never returned. With no answer the
// caller's RP from the join comes back unchanged.
//
// With an embedded-RP status set (embeddedRpStatusIs), a group that has no entry and whose
// address names an RP it may use (EmbeddedRpStatus::admission: in use, or a place free) gets that
// RP before the sources are asked, in sparse mode or any; a status serving another mode sets it
// aside and asks the sources. A known group that uses it finds it in the final sparse table.
//
// Invariants:
//  1. Each present candidate status has its own RpCompute and trie builder, created at
//     construction and kept as long as this status; the builders keep the tries current.
//  2. An absent source (no status) computes the empty result.
//  3. rpHashCompute keeps no state. rpHashComputeRecorded answers and traces exactly as
//     rpHashCompute does, and also writes down how the answer came about.
//  4. Without an embedded-RP status, or with one not enabled, the answers and traces are those of
//     the two sources alone.
// Traces go to the trace file "PimRpCompute".

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Entity.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpConfig.h"
#include "model/Pim/RpHashStatus.h"
#include "rp/PimEmbeddedRpStatus.h"
#include "rp/PimGrpPrefixTrieBuilderSm.h"
#include "rp/PimRpCompute.h"
#include "rp/PimRpHashComputeRecord.h"

namespace Routing {
namespace Pim {

class RpHashComputeStatus : public Kel::Entity {
 public:
  // REQUIRES: rpConfig present whenever a candidate status is (else the assertion "rpConfig()").
  RpHashComputeStatus(const Kel::PtrConst<RpCandidateStatus>& staticRpSet,
                      const Kel::PtrConst<RpCandidateStatus>& bsrRpSet,
                      const Kel::PtrConst<RpHashStatus>& rpHashStatus, Mode pimMode,
                      const Kel::PtrConst<RpConfig>& rpConfig);

  // The RP of groupAddr: from the table, else computed, else rpFromJoin.
  Ipkit::IpGenAddr rpHashCompute(const Ipkit::IpGenAddr& groupAddr,
                                 const Ipkit::IpGenAddr& rpFromJoin) const;
  // rpHashCompute, with how the answer came about written to `record` (reset first).
  Ipkit::IpGenAddr rpHashComputeRecorded(const Ipkit::IpGenAddr& groupAddr,
                                         const Ipkit::IpGenAddr& rpFromJoin,
                                         RpHashComputeRecord& record) const;

  void handleStaticCompute();
  void handleBsrCompute();

  const Kel::PtrConst<RpCandidateStatus>& staticRpSet() const { return staticRpSet_; }
  const Kel::PtrConst<RpCandidateStatus>& bsrRpSet() const { return bsrRpSet_; }
  const Kel::PtrConst<RpHashStatus>& rpHashStatus() const { return rpHashStatus_; }
  Mode pimMode() const { return pimMode_; }
  const Kel::PtrConst<RpConfig>& rpConfig() const { return rpConfig_; }

  // Each source's compute and trie builder: staticCompute(), staticComputeIs(crp, rpConfig)
  // (created when absent, else the one held), staticComputeDel(); the same for
  // staticTrieBuilderIs(crpStatus, compute), bsrCompute and bsrTrieBuilder.
  KEL_OWNED(staticCompute, rpComputeFactory, Kel::Ptr<RpCompute>)
  KEL_OWNED(staticTrieBuilder, grpPrefixTrieBuilderSmFactory, Kel::Ptr<GrpPrefixTrieBuilderSm>)
  KEL_OWNED(bsrCompute, rpComputeFactory, Kel::Ptr<RpCompute>)
  KEL_OWNED(bsrTrieBuilder, grpPrefixTrieBuilderSmFactory, Kel::Ptr<GrpPrefixTrieBuilderSm>)
  // The embedded-RP status asked before the sources: embeddedRpStatus(), embeddedRpStatusIs(s).
  KEL_OWNED_SCALAR(embeddedRpStatus, nullptr, Kel::PtrConst<EmbeddedRpStatus>)

 private:
  // Both public forms; `record` is null unless the caller asked for one. Inlined into each, so
  // that the plain form pays no extra call on its table hit.
  [[gnu::always_inline]] inline Ipkit::IpGenAddr doRpHashCompute(const Ipkit::IpGenAddr& groupAddr,
                                                                 const Ipkit::IpGenAddr& rpFromJoin,
                                                                 RpHashComputeRecord* record) const;
  // The computation from both sources, when the table has no entry for the group.
  Ipkit::IpGenAddr doComputeFromSources(const Ipkit::IpGenAddr& groupAddr,
                                        RpHashComputeRecord* record) const;
  // The group's embedded RP when it may use it and the mode served takes it; else no address.
  Ipkit::IpGenAddr doEmbeddedAnswer(const Ipkit::IpGenAddr& groupAddr,
                                    RpHashComputeRecord* record) const;
  // The caller's own RP, traced as the last resort.
  Ipkit::IpGenAddr doJoinAnswer(const Ipkit::IpGenAddr& rpFromJoin,
                                RpHashComputeRecord* record) const;

  const Kel::PtrConst<RpCandidateStatus> staticRpSet_;
  const Kel::PtrConst<RpCandidateStatus> bsrRpSet_;
  const Kel::PtrConst<RpHashStatus> rpHashStatus_;
  const Mode pimMode_;
  const Kel::PtrConst<RpConfig> rpConfig_;
};

Kel::Ptr<RpHashComputeStatus> rpHashComputeStatusFactory(
    const Kel::PtrConst<RpCandidateStatus>& staticRpSet,
    const Kel::PtrConst<RpCandidateStatus>& bsrRpSet,
    const Kel::PtrConst<RpHashStatus>& rpHashStatus, Mode pimMode,
    const Kel::PtrConst<RpConfig>& rpConfig);

}  // namespace Pim
}  // namespace Routing
