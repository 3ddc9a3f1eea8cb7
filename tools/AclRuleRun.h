#pragma once
// PimrpTool::AclRuleRun: the rule statements of one access list that follow each other in a
// script, collected into a new version of the list's rules (a fresh Acl::AclSubConfig) that
// becomes the list's current one in one change, as after an operator's configuration session: the
// library then refolds the list once per run instead of once per rule.
//
// Invariants:
//  1. At most one run at a time, of one list; it starts from the list's current rules, under the
//     identifiers they have.
//  2. Rule identifiers are handed out once each, as the access-list agent's allocator does; 0 is
//     never used for a live rule.

#include <cstdint>
#include <string>

#include "framework/Acl/AclSubConfig.h"
#include "framework/Kel/Ptr.h"
#include "tools/Statement.h"

namespace PimrpTool {

class AclRuleRun {
 public:
  bool collecting() const { return static_cast<bool>(rules_); }
  // The list of the run. REQUIRES: collecting().
  const std::string& acl() const { return acl_; }
  // Whether the statement ends the run: it is not one more rule statement of the run's list.
  bool endsRun(const Statement& statement) const;

  // The rules the run of `acl` collects, starting a run from `current` (the list's current rules,
  // null when it has none); null when `create` is false and there are no rules to edit.
  // REQUIRES: no run of another list.
  Kel::Ptr<Acl::AclSubConfig> rulesOf(const std::string& acl,
                                      const Kel::PtrConst<Acl::AclSubConfig>& current, bool create);
  // Ends the run, handing over the rules it collected.
  Kel::Ptr<Acl::AclSubConfig> rulesTaken();

  // The identifier of the next rule written.
  std::uint64_t& nextRuleId() { return nextRuleId_; }

 private:
  std::string acl_;
  Kel::Ptr<Acl::AclSubConfig> rules_;  // null: no run
  std::uint64_t nextRuleId_ = 1;
};

}  // namespace PimrpTool
