#pragma once
// Routing::Pim::RpSelectionRecord: how one selection of RpCompute went, written down by the
// selection itself for a caller who asked (RpCompute::doComputeRpRecorded). An explanation read
// from it never re-derives the rule, so it cannot contradict the answer.
//
// Invariants:
//  1. range is the null prefix exactly when no stored range with a candidate set covers the
//     group; every other member then keeps its default.
//  2. candidates holds the candidates the selection compared, those of the deciding mode
//     (bidirectional when the range has any, else sparse), ascending by address; setAside holds
//     every other candidate of the range, ascending by address, each with the reason.
//  3. A candidate's hash is set exactly when the selection computed the RFC 7761 hash for it:
//     sparse candidates of the best priority, when more than one has it and the modulo rule is
//     not configured. Bidirectional candidates are never hashed (their value is 0 by rule).
//  4. step is none exactly when the range has no candidate of a usable mode; result is then the
//     empty RpCandidateInfo.
//  5. moduloValue and moduloIndex are set only when step is moduloIndex.

#include <optional>
#include <string>
#include <vector>

#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Types.h"
#include "model/Pim/PimTypes.h"
#include "model/Pim/RpCandidateInfo.h"

namespace Routing {
namespace Pim {

// The step of the selection that left one candidate.
enum class RpSelectionStep {
  none,             // no candidate of a usable mode
  singleCandidate,  // the deciding mode had one candidate and no sparse one was set aside for it
  bidirPreferred,   // one bidirectional candidate, preferred over the sparse ones
  priority,         // one candidate had the best (lowest) priority value
  hash,             // one candidate had the highest hash
  highestAddress,   // equal priorities and hashes: the highest address
  moduloIndex,      // the modulo rule: candidate (group value mod count) in address order
};

// Why a candidate of the matched range took no part in the comparison.
enum class RpSetAsideReason {
  otherMode,     // a sparse candidate where bidirectional ones compete
  unusableMode,  // neither sparse nor bidirectional
};

struct RpSelectionRecord {
  struct Candidate {
    RpCandidateInfo info;
    std::optional<U32> hash;
  };
  struct SetAside {
    RpCandidateInfo info;
    RpSetAsideReason reason = RpSetAsideReason::otherMode;
  };

  Ipkit::IpGenPrefix range;
  Mode decidingMode = modePimNone;
  std::vector<Candidate> candidates;
  std::vector<SetAside> setAside;
  RpSelectionStep step = RpSelectionStep::none;
  // A hashed candidate carried the not-set hash mask length, with which every bit of the group
  // that the hash reads enters it.
  bool hashMaskNotSet = false;
  U32 moduloValue = 0;
  U32 moduloIndex = 0;
  RpCandidateInfo result;

  // The step in words, with what qualifies it in parentheses: "hash", "highest address (bidir
  // candidates are not hashed)", "modulo index (4009820417 mod 3 = 2)"; "" when step is none.
  std::string rule() const;
};

// "other mode" or "no usable mode".
const char* rpSetAsideReasonWord(RpSetAsideReason reason);

}  // namespace Pim
}  // namespace Routing
