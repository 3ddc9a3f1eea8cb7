#pragma once
// PimrpTool::rpHashSummaryOf: how many known groups each RP serves, counted from the final
// per-group tables.
//
// Each family's known groups and its final per-group table are walked in step, both ascending:
// a known group counts for the RP its final entry names, or as without an RP when it has no
// entry or one that names no RP. Entries of groups no longer known (a review not yet run, under
// clock manual) count for nobody.

#include <optional>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "tools/FinalTables.h"
#include "tools/RpHashSummary.h"

namespace PimrpTool {

// One row per view of `tables`, in their order; `af` is the family the summary was asked for.
RpHashSummary rpHashSummaryOf(const std::vector<FinalTables>& tables,
                              std::optional<Ipkit::AddressFamily> af);

}  // namespace PimrpTool
