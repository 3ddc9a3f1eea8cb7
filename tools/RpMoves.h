#pragma once
// PimrpTool::rpMovesSince: what a change moved in a session's final tables, from a snapshot taken
// before it to the tables as they are now.
//
// Each table is compared with its copy by walking both in step, ascending by key: a key on one
// side only moved from or to no RP, a key on both moved when its RP differs. A change over a
// million groups is thus compared in one ordered walk of each side, whatever it moved. The moves
// of one VRF, family and mode are tallied per pair of RPs, the examples being the first groups
// met, so the lowest.
//
// Invariants:
//  1. A key whose RP is the same on both sides (no RP on both included) moves nothing; a change
//     of an entry's other values (priority, hash mask length, override, mode) is no move.
//  2. groupsChanged and rangesChanged are the sums of the moves' groups and ranges.
//  3. Tables of a VRF, family and mode that only one side has are compared against empty ones.
//  4. The allocator counts of the report are left at 0: the caller knows the requests.

#include <vector>

#include "tools/FinalTableSnapshot.h"
#include "tools/FinalTables.h"
#include "tools/WhatIfReport.h"

namespace PimrpTool {

WhatIfReport rpMovesSince(const FinalTableSnapshot& before, const std::vector<FinalTables>& now);

}  // namespace PimrpTool
