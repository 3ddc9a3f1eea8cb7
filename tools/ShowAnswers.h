#pragma once
// PimrpTool::ShowAnswers: what the show statements of one VRF answer, read from that VRF's
// pipeline: the library's answers (rpHashCompute, each source's doComputeRp) and its entities and
// tables as they stand. Nothing is decided here. One overload per show that reads one VRF; the
// answers from the library's entities are in ShowAnswers.cpp, those that list or count its tables
// and their reviews in ShowTables.cpp.

#include <optional>

#include "framework/Ipkit/AddressFamily.h"
#include "model/Pim/RpCandidate.h"
#include "model/Pim/RpCandidateInfo.h"
#include "pipeline/VrfPipeline.h"
#include "tools/Results.h"
#include "tools/Statement.h"

namespace PimrpTool {

struct ShowAnswers {
  const PimrpPipeline::VrfPipeline& vrf;

  // ShowAnswers.cpp
  ShowResult operator()(const ShowRpStatement& s) const;
  ShowResult operator()(const ShowCandidatesStatement& s) const;
  ShowResult operator()(const ShowAclStatement& s) const;
  ShowResult operator()(const ShowLocalRpStatement& s) const;
  ShowResult operator()(const ShowGroupFilterStatement& s) const;
  ShowResult operator()(const ShowAllocRequestsStatement& s) const;
  ShowResult operator()(const ShowEmbeddedRpStatement& s) const;
  // ShowTables.cpp
  ShowResult operator()(const ShowRpHashStatement& s) const;
  ShowResult operator()(const ShowReviewStatement& s) const;
  ShowResult operator()(const ShowRpHashSummaryStatement& s) const;
};

// The RP mapping of one VRF (show rp mapping): every range of both candidate sources and of the
// final per-range tables, of `af` or of both families, with its candidates and, per mode, each
// source's per-range entry, the final one, which source's entry that is and the rule's reason.
VrfMapping vrfMapping(const PimrpPipeline::VrfPipeline& vrf,
                      const std::optional<Ipkit::AddressFamily>& af);

// A candidate as the five values selection reads.
inline Routing::Pim::RpCandidateInfo candidateInfo(const Routing::Pim::RpCandidate& candidate) {
  return Routing::Pim::RpCandidateInfo(candidate.address(), candidate.priority(),
                                       candidate.hashMaskLen(), candidate.override(),
                                       candidate.pimMode());
}

}  // namespace PimrpTool
