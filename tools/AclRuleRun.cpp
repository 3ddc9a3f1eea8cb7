#include "tools/AclRuleRun.h"

#include <utility>

namespace PimrpTool {

bool AclRuleRun::endsRun(const Statement& statement) const {
  if (!rules_) return false;
  if (const auto* rule = std::get_if<AclRuleStatement>(&statement)) return rule->acl != acl_;
  if (const auto* rule = std::get_if<NoAclRuleStatement>(&statement)) return rule->acl != acl_;
  return true;
}

Kel::Ptr<Acl::AclSubConfig> AclRuleRun::rulesOf(const std::string& acl,
                                                const Kel::PtrConst<Acl::AclSubConfig>& current,
                                                bool create) {
  if (rules_) return rules_;
  // Removing a rule from a list without rules changes nothing: no run, no list.
  if (!current && !create) return nullptr;
  rules_ = Kel::Ptr<Acl::AclSubConfig>(new Acl::AclSubConfig);
  acl_ = acl;
  if (current) {
    for (const auto& [sequence, id] : current->ruleBySequence()) {
      rules_->ipRuleByIdIs(id, current->ipRuleById(id));
      rules_->ruleBySequenceIs(sequence, id);
    }
  }
  return rules_;
}

Kel::Ptr<Acl::AclSubConfig> AclRuleRun::rulesTaken() {
  Kel::Ptr<Acl::AclSubConfig> taken = std::move(rules_);
  rules_ = nullptr;
  return taken;
}

}  // namespace PimrpTool
