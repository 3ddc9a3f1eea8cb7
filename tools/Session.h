#pragma once
// PimrpTool::Session: the library assembled as an agent assembles it (a VrfPipeline), and the
// statements applied to it exactly as a hosting agent would change its inputs.
//
// Statements that change the VRF's inputs go to its pipeline (InputWriter); shows ask the library
// and read its entities and tables (ShowAnswers, runningConfig); the session itself keeps what the
// tool lends the library (the clock and the attribute log), the clock mode, the runs of access-list
// rules and the order in which the pipeline starts. It decides nothing about RPs itself.
//
// Invariants:
//  1. Applied with Commit::inRuns, the rule statements of one access list that follow each other
//     are written into a new version of the list's rules (AclRuleRun), which becomes the list's
//     current one when a statement of another kind or list comes, or at commit(): the library
//     refolds the list once per run, as after an operator's configuration session, instead of once
//     per rule. Every other statement, a show included, sees the rules committed.
//  2. The RP hash tables live where the TableHome says. In process memory the pipeline runs from
//     construction. Over shared tables that this run writes, the reviews start at the first
//     statement that is not `group` (or at finish()): the leading group statements are the groups
//     the router still knows when it restarts, and the library's start-up passes drop the entries
//     of every other group; the configuration that follows reaches running reviews, as an agent's
//     replayed configuration does. The other reactors (the merges into the final tables, the
//     compute statuses, the group filters) start at the first show or run (or at finish()), once
//     the reviews have settled (unless clock manual): readers of the final tables see each entry
//     change at most once, straight to its new value. Over another run's tables (sharedReader) the
//     reactors never start: only show rp-hash may be applied. On shared tables that this run
//     writes, a statement applied alone (Commit::eachStatement, as standard input applies them)
//     starts the merges with the reviews and is followed by a settle of the clock unless the clock
//     is manual, so that the tables' readers see what the statements so far have made of them.
//  3. Every change that reaches the library is watched for an RP left bound to one range twice
//     (BindingWarnings); what is found waits in warningsTaken().

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "model/Pim/RpConfig.h"
#include "pipeline/FamilyWiring.h"
#include "pipeline/VrfPipeline.h"
#include "tools/AclRuleRun.h"
#include "tools/InputStatements.h"
#include "tools/Results.h"
#include "tools/SharedTables.h"
#include "tools/Statement.h"

namespace PimrpTool {

using PimrpPipeline::FamilyWiring;
using PimrpPipeline::HashKind;
using PimrpPipeline::HashSource;
using PimrpPipeline::VrfPipeline;

class Session {
 public:
  // Throws Kel::RangeException, with the shared-table facility's reason, when the shared tables
  // cannot be attached (a second writer, a reader of tables that do not exist).
  explicit Session(const TableHome& home = TableHome());

  // Applies one statement; a show statement returns its answer.
  // REQUIRES: the statement was accepted by the Validator that judged every statement before it.
  std::optional<ShowResult> apply(const Statement& statement,
                                  Commit commit = Commit::eachStatement);
  // Runs the clock until no wake-up is pending, moving virtual time to each one it delivers.
  void settle();

  // Makes the rules collected by the current run the list's current rules; nothing without a run.
  void commit();
  // Whether applying the statement with Commit::inRuns would first commit the current run: it is
  // not one more rule statement of the run's list.
  bool endsRun(const Statement& statement) const { return run_.endsRun(statement); }

  // The warnings of what was applied or committed since they were last taken (BindingWarnings:
  // an RP bound to one range twice), in the order found.
  std::vector<std::string> warningsTaken();
  // Ends the input of a run that writes shared tables: starts the reactors if no statement has,
  // and settles the clock (unless clock manual), so that the tables left behind are complete.
  // Nothing in any other home.
  void finish();

  const TableHome& tableHome() const { return home_; }

  const Kel::Ptr<Routing::Pim::RpConfig>& rpConfig() const { return pipeline_.rpConfig(); }
  // The clock and the attribute log, which the tool lends the library.
  const VrfPipeline::Host& host() const { return pipeline_.host(); }
  // REQUIRES: af is ipv4 or ipv6.
  FamilyWiring& family(Ipkit::AddressFamily af) { return pipeline_.family(af); }
  const L3::VrfName& vrf() const { return vrf_; }
  // Whether a show first settles the clock (clock settle) or only run moves time (clock manual).
  bool clockSettles() const { return clockSettles_; }

 private:
  friend struct SessionApply;

  // Starts the pipeline, once; over shared tables the reviews settle first (unless clock manual).
  void reactorsStart();
  void warningsAdd(std::vector<std::string> warnings);

  const TableHome home_;
  L3::VrfName vrf_;
  VrfPipeline pipeline_;
  // Whether a show first settles the clock (clock settle) or only run moves time (clock manual).
  bool clockSettles_ = true;
  AclRuleRun run_;
  std::vector<std::string> warnings_;
};

}  // namespace PimrpTool
