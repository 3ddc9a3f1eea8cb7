#pragma once
// How a what-if's report is printed: for people (a summary line over a table of the moves) and
// for programs (one JSON object, {"whatIf":{...}}).

#include <ostream>

#include "tools/JsonValues.h"
#include "tools/WhatIfReport.h"

namespace PimrpTool {

void whatIfPrint(std::ostream& out, const WhatIfReport& report);
Json whatIfJson(const WhatIfReport& report);

}  // namespace PimrpTool
