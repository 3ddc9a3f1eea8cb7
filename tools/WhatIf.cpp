#include "tools/WhatIf.h"

#include <utility>

#include "tools/FinalTableSnapshot.h"
#include "tools/FinalTables.h"
#include "tools/Interpreter.h"
#include "tools/RpMoves.h"

namespace PimrpTool {
namespace {

// The scripts' show statements are answered as in a run, so that both leave the library as a
// run of them would, but only the what-if's report is printed.
class AnswersDropped : public Output {
 public:
  void show(const ShowResult&) override {}
};

}  // namespace

int whatIfRun(Session& session, CheckedScript script, CheckedScript change, Output& output,
              std::ostream& diagnostics, std::uint64_t maxGroups) {
  AnswersDropped dropped;
  Interpreter interpreter(session, dropped, diagnostics, maxGroups);
  int status = interpreter.applyScript(script.name, script.text, std::move(script.checked));
  if (status != kExitOk) return status;
  session.settle();
  const FinalTableSnapshot before(finalTablesOf(session));
  const BitMapper::Config& requests = *session.shared().bitMapConfig;
  const std::uint64_t allocBefore = requests.allocRequestCount();
  const std::uint64_t deallocBefore = requests.deallocRequestCount();
  status = interpreter.applyScript(change.name, change.text, std::move(change.checked));
  if (status != kExitOk) return status;
  session.settle();
  WhatIfReport report = rpMovesSince(before, finalTablesOf(session));
  report.allocRequests = requests.allocRequestCount() - allocBefore;
  report.deallocRequests = requests.deallocRequestCount() - deallocBefore;
  output.show(report);
  return kExitOk;
}

}  // namespace PimrpTool
