#pragma once
// Routing::Pim::RpHashComputeRecord: how one rpHashCompute came to its answer, written down by
// rpHashCompute itself for a caller who asked (RpHashComputeStatus::rpHashComputeRecorded).
//
// Invariants:
//  1. tableEntry is the final table's entry for the group's host prefix when it had one (its
//     address unknown when the entry names no RP), else the default RpHash; computed is set
//     exactly when there was no entry and the two sources were asked.
//  2. When computed: staticResult and bsrResult are the two selections; reason is the rule's
//     (rpSourceReason) over them; staticSetAsideByMode is set when the rule took the static RP but
//     its mode is not the one served; bsrSetAsideByMode when the bootstrap RP was next in line and
//     its mode is not the one served.
//  3. answer is what rpHashCompute returned and source where it came from: the table, the group's
//     embedded RP, a source, the caller's join address as the last resort, or none (no RP and no
//     join address).
//  4. embeddedSetAsideByMode is set when, with no entry, the group's embedded RP would have
//     answered but the mode served is not sparse; the sources were asked then.

#include "framework/Ipkit/IpGenAddr.h"
#include "model/Pim/RpCandidateInfo.h"
#include "model/Pim/RpHash.h"
#include "rp/PimRpSourceRule.h"

namespace Routing {
namespace Pim {

enum class RpAnswerSource { table, staticRp, bootstrap, join, none, embedded };

struct RpHashComputeRecord {
  RpHash tableEntry;
  bool computed = false;
  RpCandidateInfo staticResult;
  RpCandidateInfo bsrResult;
  RpSourceReason reason = RpSourceReason::noRp;
  bool staticSetAsideByMode = false;
  bool bsrSetAsideByMode = false;
  bool embeddedSetAsideByMode = false;
  RpAnswerSource source = RpAnswerSource::none;
  Ipkit::IpGenAddr answer;
};

}  // namespace Pim
}  // namespace Routing
