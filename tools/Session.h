#pragma once
// PimrpTool::Session: the library assembled as an agent assembles it, one VrfPipeline per VRF, and
// the statements applied to it exactly as a hosting agent would change its inputs.
//
// A `vrf NAME` statement opens the section of that VRF, creating its pipeline the first time;
// until the first one the statements stand in the VRF "default". Statements that change a VRF's
// inputs go to the pipeline of their section (InputWriter); shows ask the library and read its
// entities and tables (ShowAnswers, runningConfig), of the VRF the show names (`vrf NAME` at its
// end) or else of its section. The session itself keeps what the tool lends every pipeline (the
// clock and the attribute log), the clock mode, the runs of access-list rules and the order in
// which the pipelines start. It decides nothing about RPs itself.
//
// Invariants:
//  1. The pipeline of "default" exists from construction. It is in use unless the first
//     statement applied opens another VRF, and again once a statement names it; every other VRF
//     is in use from its vrf statement on. vrfsInUse() lists them, "default" first, then by name:
//     what show rp mapping and show config list. A session of one VRF therefore answers as a
//     session without VRFs did.
//  2. Applied with Commit::inRuns, the rule statements of one access list that follow each other
//     are written into a new version of the list's rules (AclRuleRun), which becomes the list's
//     current one when a statement of another kind or list comes, or at commit(): the library
//     refolds the list once per run, as after an operator's configuration session, instead of once
//     per rule. Every other statement, a show and a vrf statement included, sees the rules
//     committed; a run therefore never spans two VRFs.
//  3. The RP hash tables live where the TableHome says, each VRF's under its own names. In
//     process memory a pipeline runs from its creation. Over shared tables that this run writes,
//     a VRF's reviews start at the first statement of its sections that is neither `group` nor
//     `vrf` (or at finish()): the leading group statements of a section are the groups the router
//     still knows when it restarts, and the library's start-up passes drop the entries of every
//     other group; the configuration that follows reaches running reviews, as an agent's replayed
//     configuration does. The other reactors (the merges into the final tables, the compute
//     statuses, the group filters) of every VRF in use start at the first show or run (or at
//     finish()), once the reviews have settled (unless clock manual): readers of the final tables
//     see each entry change at most once, straight to its new value. Over another run's tables
//     (sharedReader) the reactors never start: only show rp-hash may be applied, and a VRF's
//     tables are attached when a show first names it. On shared tables that this run writes, a
//     statement applied alone (Commit::eachStatement, as standard input applies them) starts the
//     merges of its VRF with the reviews and is followed by a settle of the clock unless the clock
//     is manual, so that the tables' readers see what the statements so far have made of them.
//  4. Every change that reaches the library is watched for an RP left bound to one range twice
//     (BindingWarnings); what is found waits in warningsTaken().

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
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

// A VRF's shared tables that cannot be attached: another writer has them, they belong to another
// user, or (for a reader) they do not exist. The message names the tables, the VRF and the reason.
class TablesUnavailable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Session {
 public:
  // Throws Kel::RangeException, with the shared-table facility's reason, when the shared tables
  // of the default VRF cannot be attached (a second writer, a reader of tables that do not exist).
  explicit Session(const TableHome& home = TableHome());

  // Applies one statement; a show statement returns its answer. Throws TablesUnavailable when the
  // statement needs the shared tables of a VRF that cannot be attached, and changes nothing then.
  // REQUIRES: the statement was accepted by the Validator that judged every statement before it.
  std::optional<ShowResult> apply(const Statement& statement,
                                  Commit commit = Commit::eachStatement);
  // Attaches the shared tables of each VRF named, ahead of the statements that open them, so that
  // a script whose tables cannot all be attached applies nothing. Throws TablesUnavailable.
  void vrfTablesAttach(const std::set<std::string>& vrfs);
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
  // Ends the input of a run that writes shared tables: starts the reactors of every VRF in use
  // if no statement has, and settles the clock (unless clock manual), so that the tables left
  // behind are complete. Nothing in any other home.
  void finish();

  const TableHome& tableHome() const { return home_; }
  // The clock and the attribute log, which the tool lends every VRF's pipeline.
  const VrfPipeline::Host& host() const { return host_; }
  // Whether a show first settles the clock (clock settle) or only run moves time (clock manual).
  bool clockSettles() const { return clockSettles_; }

  // The VRF of the section that the next statement stands in, and its pipeline.
  const L3::VrfName& vrf() const { return current_->vrf(); }
  VrfPipeline& pipeline() { return *current_; }
  // The next statement stands in the section of the VRF "default", as the first statement of a
  // script does, so that a script applied after another starts there too. Puts nothing in use:
  // the statement applied there does (invariant 1).
  void sectionDefaultIs();
  // The VRFs in use (invariant 1), "default" first, then in name order.
  std::vector<const VrfPipeline*> vrfsInUse() const;

  // Of the VRF of the current section.
  const Kel::Ptr<Routing::Pim::RpConfig>& rpConfig() const { return current_->rpConfig(); }
  // REQUIRES: af is ipv4 or ipv6.
  FamilyWiring& family(Ipkit::AddressFamily af) { return current_->family(af); }

 private:
  friend struct SessionApply;

  // A new pipeline for `vrf` over this session's tables; in process memory, started.
  std::unique_ptr<VrfPipeline> pipelineNew(const L3::VrfName& vrf) const;
  // The pipeline of `vrf`, created (its tables attached) when the session has none yet.
  // Throws TablesUnavailable when its shared tables cannot be attached.
  VrfPipeline& pipelineFor(const std::string& vrf);
  // The pipeline the statement reads or writes: the one a vrf statement opens or a show names,
  // else the current section's.
  VrfPipeline& pipelineOf(const Statement& statement);
  // Starts each of the pipelines not yet started; over shared tables their reviews settle first
  // (unless clock manual).
  void reactorsStart(const std::vector<VrfPipeline*>& pipelines);
  std::vector<VrfPipeline*> pipelinesInUse();
  void warningsAdd(std::vector<std::string> warnings);

  const TableHome home_;
  const VrfPipeline::Host host_;
  std::map<L3::VrfName, std::unique_ptr<VrfPipeline>> pipelines_;
  VrfPipeline* current_ = nullptr;
  std::set<L3::VrfName> inUse_;
  bool applied_ = false;  // whether a statement has been applied
  // Whether a show first settles the clock (clock settle) or only run moves time (clock manual).
  bool clockSettles_ = true;
  AclRuleRun run_;
  std::vector<std::string> warnings_;
};

}  // namespace PimrpTool
