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

// The allocation and deallocation requests made so far, summed over the VRFs in use.
struct RequestCounts {
  std::uint64_t alloc = 0;
  std::uint64_t dealloc = 0;
};

RequestCounts requestCountsOf(const Session& session) {
  RequestCounts counts;
  for (const VrfPipeline* vrf : session.vrfsInUse()) {
    counts.alloc += vrf->allocRequests()->allocRequestCount();
    counts.dealloc += vrf->allocRequests()->deallocRequestCount();
  }
  return counts;
}

}  // namespace

int whatIfRun(Session& session, CheckedScript script, CheckedScript change, Output& output,
              std::ostream& diagnostics, std::uint64_t maxGroups) {
  AnswersDropped dropped;
  Interpreter interpreter(session, dropped, diagnostics, maxGroups);
  int status = interpreter.applyScript(script.name, script.text, std::move(script.checked));
  if (status != kExitOk) return status;
  session.settle();
  const FinalTableSnapshot before(finalTablesOf(session.vrfsInUse()));
  const RequestCounts requestsBefore = requestCountsOf(session);
  session.sectionDefaultIs();
  status = interpreter.applyScript(change.name, change.text, std::move(change.checked));
  if (status != kExitOk) return status;
  session.settle();
  WhatIfReport report = rpMovesSince(before, finalTablesOf(session.vrfsInUse()));
  const RequestCounts requestsAfter = requestCountsOf(session);
  report.allocRequests = requestsAfter.alloc - requestsBefore.alloc;
  report.deallocRequests = requestsAfter.dealloc - requestsBefore.dealloc;
  output.show(report);
  return kExitOk;
}

}  // namespace PimrpTool
