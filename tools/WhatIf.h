#pragma once
// PimrpTool::whatIfRun: what a change would move, answered before it is made.
//
// Runs a script on a session and settles the clock, copies the final per-group and per-range
// tables of every VRF in use (FinalTableSnapshot), applies a change (a script too) and settles
// again, then prints every move of groups and ranges from one RP to another between the two
// (rpMovesSince), per VRF, family and mode, the number of groups and ranges that changed RP, and
// the allocation and deallocation requests that the change caused, summed over every VRF.
//
// The change starts in the section of the VRF "default", as any script does, whatever section
// the script ended in: its statements before its first `vrf` statement apply to "default". A VRF
// that the change opens is compared against empty tables.
//
// Both scripts apply as a run applies them: a run of rules of one access list reaches the library
// as one change of the list, warnings are reported as FILE:LINE: warning, show statements are
// answered but not printed. The clock is settled after each script whatever its clock statements
// say, so that the tables compared are complete. Nothing is kept: the session is the process's
// own and holds its tables in process memory.

#include <cstdint>
#include <ostream>
#include <string>

#include "tools/Output.h"
#include "tools/Session.h"
#include "tools/Validation.h"

namespace PimrpTool {

// A script read and judged whole (scriptRead), with the judge that read it.
struct CheckedScript {
  std::string name;
  std::string text;
  Validator checked;
};

// Returns kExitOk after printing the report to `output`; or, when the library refused a statement
// or found a table damaged (reported to `diagnostics` as a run reports it), that run's status,
// with nothing printed.
// REQUIRES: nothing was applied to `session`, which keeps its tables in process memory;
// script.checked started as a Validator("", maxGroups); change.checked started as a copy of
// script.checked once it had read the script, back in the section of "default"
// (Validator::sectionDefaultIs).
int whatIfRun(Session& session, CheckedScript script, CheckedScript change, Output& output,
              std::ostream& diagnostics, std::uint64_t maxGroups);

}  // namespace PimrpTool
