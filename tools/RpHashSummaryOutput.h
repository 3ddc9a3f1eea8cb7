#pragma once
// How show rp-hash summary is printed: for people (per VRF, family and mode a line of counts and
// spread over a table of the RPs) and for programs (one JSON object, {"summary":[...]}).

#include <ostream>

#include "tools/JsonValues.h"
#include "tools/RpHashSummary.h"

namespace PimrpTool {

void rpHashSummaryPrint(std::ostream& out, const RpHashSummary& summary);
Json rpHashSummaryJson(const RpHashSummary& summary);

}  // namespace PimrpTool
