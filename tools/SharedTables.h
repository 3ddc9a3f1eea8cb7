#pragma once
// PimrpTool shared tables: how the tool's options name and guard the shared tables of a run, in
// the operator's words. Where the tables live and what they are called is the pipeline's
// (pipeline/TableHome.h): "NAME.<family>.<mode>.<source>.<kind>" for the default VRF.
//
// Invariants:
//  1. A name that sharedNameRefusal() accepts gives table names of the default VRF that the
//     shared-table facility accepts: letters, digits, '.', '_', '-', not starting with '.', short
//     enough for every role.

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "framework/Mirra/CorruptionDetectedException.h"
#include "pipeline/TableHome.h"

namespace PimrpTool {

using PimrpPipeline::sharedTableNames;
using PimrpPipeline::sharedTablesUnlinkAll;
using PimrpPipeline::TableHome;
using PimrpPipeline::TableRemoval;

// The longest common name: the longest role suffix must still fit the facility's limit.
constexpr std::size_t kMaxSharedNameLength =
    PimrpPipeline::kMaxTableNameLength - PimrpPipeline::kLongestRoleLength;

// Why `name` cannot name shared tables, or "" when it can.
std::string sharedNameRefusal(const std::string& name);

// The permissions that `text` (octal, such as 0640) gives the segments of new tables, into *mode;
// or why it gives none a table may have ("" when it does).
std::string tableModeRefusal(const std::string& text, mode_t* mode);
// The user that `text` names (a user name or a number), into *user; or why it names none.
std::string userRefusal(const std::string& text, uid_t* user);

// What pimrp says of a shared table found damaged: "the shared table 'NAME' is damaged: WHAT".
std::string damagedTableMessage(const Mirra::CorruptionDetectedException& damage);

}  // namespace PimrpTool
