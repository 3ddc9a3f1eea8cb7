#pragma once
// PimrpTool::Session: the library wired for both address families, and the statements applied
// to it exactly as a hosting agent would change its inputs.
//
// Configuration statements write the library's input entities (static RP configuration,
// access-list configuration, bootstrap candidate status, RP configuration) and let its reactors
// do the rest; show statements ask the library (rpHashCompute, each source's doComputeRp) and read
// its entities. The session decides nothing about RPs itself.
//
// Invariants:
//  1. A statement goes to the family of its addresses; access lists live in the IPv4 family.
//  2. One RP configuration serves both families.
//  3. Removing what is absent changes nothing and notifies nothing.
//  4. Applied with Commit::inRuns, the rule statements of one access list that follow each other
//     are written into a new version of the list's rules (a fresh Acl::AclSubConfig), which
//     becomes the list's current one when a statement of another kind or list comes, or at
//     commit(): the library refolds the list once per run, as after an operator's configuration
//     session, instead of once per rule. Every other statement, a show included, sees the rules
//     committed.
//  5. The RP hash tables live where the TableHome says. In process memory the reactors run from
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
//  6. Every change that reaches the library is watched for an RP left bound to one range twice
//     (BindingWarnings); what is found waits in warningsTaken().

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "framework/Acl/AclSubConfig.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Kel/Ptr.h"
#include "framework/L3/VrfName.h"
#include "model/Pim/RpConfig.h"
#include "tools/FamilyWiring.h"
#include "tools/Results.h"
#include "tools/SharedTables.h"
#include "tools/Statement.h"

namespace PimrpTool {

// How access-list rule statements reach the list: each one at once, or collected in runs.
enum class Commit { eachStatement, inRuns };

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
  bool endsRun(const Statement& statement) const;

  // The warnings of what was applied or committed since they were last taken (BindingWarnings:
  // an RP bound to one range twice), in the order found.
  std::vector<std::string> warningsTaken();
  // Ends the input of a run that writes shared tables: starts the reactors if no statement has,
  // and settles the clock (unless clock manual), so that the tables left behind are complete.
  // Nothing in any other home.
  void finish();

  const TableHome& tableHome() const { return home_; }

  const Kel::Ptr<Routing::Pim::RpConfig>& rpConfig() const { return shared_.rpConfig; }
  const SharedInputs& shared() const { return shared_; }
  // REQUIRES: af is ipv4 or ipv6.
  FamilyWiring& family(Ipkit::AddressFamily af) {
    return af == Ipkit::AddressFamily::ipv4 ? ipv4_ : ipv6_;
  }
  const L3::VrfName& vrf() const { return vrf_; }
  // Whether a show first settles the clock (clock settle) or only run moves time (clock manual).
  bool clockSettles() const { return clockSettles_; }

 private:
  friend struct SessionApply;

  // The rules the run of `acl` collects, ending the run of another list first and starting one
  // from the list's current rules; null when `create` is false and the list has no rules.
  Kel::Ptr<Acl::AclSubConfig> runRulesOf(const std::string& acl, bool create);

  // Starts both families' reviews, once.
  void reviewsStart();
  // Starts both families' reactors, once; over shared tables the reviews settle first (unless
  // clock manual).
  void reactorsStart();
  void warningsAdd(std::vector<std::string> warnings);

  const TableHome home_;
  // Declared first: the families' reactors hold on to these and go before them.
  SharedInputs shared_;
  L3::VrfName vrf_;
  FamilyWiring ipv4_;
  FamilyWiring ipv6_;
  // Rule identifiers are handed out once each, as the access-list agent's allocator does; 0 is
  // never used for a live rule.
  std::uint64_t nextRuleId_ = 1;
  // The run being collected: the list's name and its next rules; null rules when none.
  std::string runAcl_;
  // Whether a show first settles the clock (clock settle) or only run moves time (clock manual).
  bool clockSettles_ = true;
  Kel::Ptr<Acl::AclSubConfig> runRules_;
  std::vector<std::string> warnings_;
};

}  // namespace PimrpTool
