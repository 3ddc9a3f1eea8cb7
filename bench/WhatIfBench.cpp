// pimrp --what-if at scale: a million known groups under 1,000 static ranges, the script settled,
// the final tables kept, a change applied and settled, and every move reported; against the same
// two scripts applied and settled alone (the baseline), in the same run.
//
// Workload: 1,000 /22s of 239.0.0.0/12, each with two RPs (10.a.b.1 and 10.a.b.2, priority 0,
// hash mask 30), and `group 239.0.0.0/12`: 1,048,576 known IPv4 groups. Two changes:
//  - narrow: one RP removed; the review recomputes its range's 1,024 groups, half of which move.
//  - wide: the algorithm switched to modulo; every group is recomputed, and about half move.
// Each iteration builds a new session and applies both scripts through the interpreter, as the
// tool does; taking the session apart is left out of the time.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <variant>

#include "tools/Interpreter.h"
#include "tools/Output.h"
#include "tools/Session.h"
#include "tools/WhatIf.h"
#include "tools/WhatIfReport.h"

namespace {

using namespace PimrpTool;

const std::string& millionGroupScript() {
  static const std::string script = [] {
    std::ostringstream text;
    for (int range = 0; range < 1000; ++range) {
      for (int rp = 1; rp <= 2; ++rp) {
        text << "rp-address 10." << range / 256 << '.' << range % 256 << '.' << rp << " group 239."
             << range * 4 / 256 << '.' << range * 4 % 256 << ".0/22\n";
      }
    }
    text << "group 239.0.0.0/12\n";
    return text.str();
  }();
  return script;
}

const char* changeOf(int wide) {
  return wide != 0 ? "rp-hash-algorithm modulo\n" : "no rp-address 10.1.0.2\n";
}

// A script judged whole, as pimrp reads it, starting from `judge`.
CheckedScript checked(const std::string& name, const std::string& text, Validator& judge) {
  std::ostringstream diagnostics;
  const auto read = scriptRead(name, linesOf(text), judge, diagnostics);
  return CheckedScript{name, read ? *read : "", judge};
}

// Keeps what the what-if's report counts; drops every other answer.
class ReportKept : public Output {
 public:
  void show(const ShowResult& result) override {
    if (const auto* report = std::get_if<WhatIfReport>(&result)) {
      groupsChanged = report->groupsChanged;
    }
  }
  std::uint64_t groupsChanged = 0;
};

// One iteration: the script and the change judged as pimrp judges them, and a new session.
struct Iteration {
  explicit Iteration(std::int64_t wide)
      : script(checked("script", millionGroupScript(), judge)),
        change(checked("change", changeOf(static_cast<int>(wide)), judge)) {}

  // Takes the session apart out of the time, as the tool leaves it to the end of the process.
  void end(benchmark::State& state) {
    state.PauseTiming();
    delete session;
    state.ResumeTiming();
  }

  Validator judge;
  CheckedScript script;
  CheckedScript change;
  Session* session = new Session();
  ReportKept output;
  std::ostringstream diagnostics;
};

void BM_WhatIf_MillionGroups(benchmark::State& state) {
  std::uint64_t groupsChanged = 0;
  for (auto _ : state) {
    Iteration run(state.range(0));
    whatIfRun(*run.session, std::move(run.script), std::move(run.change), run.output,
              run.diagnostics, kDefaultMaxGroups);
    groupsChanged = run.output.groupsChanged;
    run.end(state);
  }
  state.counters["groups_changed"] = static_cast<double>(groupsChanged);
}
BENCHMARK(BM_WhatIf_MillionGroups)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kMillisecond);

// The same scripts applied and settled alone: the two settles a what-if needs.
void BM_WhatIfBaseline_MillionGroupsTwoSettles(benchmark::State& state) {
  for (auto _ : state) {
    Iteration run(state.range(0));
    Interpreter interpreter(*run.session, run.output, run.diagnostics);
    interpreter.applyScript(run.script.name, run.script.text, std::move(run.script.checked));
    run.session->settle();
    interpreter.applyScript(run.change.name, run.change.text, std::move(run.change.checked));
    run.session->settle();
    run.end(state);
  }
}
BENCHMARK(BM_WhatIfBaseline_MillionGroupsTwoSettles)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
