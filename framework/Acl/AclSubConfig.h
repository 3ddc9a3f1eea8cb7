#pragma once
// Acl::AclSubConfig: one version of an access list's rules: rule identifiers by sequence number
// (ruleBySequence, ascending: the order of evaluation) and the rules by identifier (ipRuleById).
//
// Writers enter a rule's body (ipRuleByIdIs) before its sequence entry (ruleBySequenceIs), so that
// a reactor on ruleBySequence always finds the rule it is told of.

#include "framework/Acl/IpRuleConfig.h"
#include "framework/Acl/UniqueId.h"
#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Types.h"

namespace Acl {

class AclSubConfig : public Kel::Entity {
 public:
  using RuleBySequence = Kel::OrderedCollection<U32, UniqueId>;
  using IpRuleById = Kel::HashCollection<UniqueId, IpRuleConfig>;

  class NotifieeConst : public Kel::Notifiee<AclSubConfig> {
   public:
    KEL_ON_KEY(RuleBySequence, U32)
    KEL_ON_KEY(IpRuleById, UniqueId)
  };

  KEL_VALUE_COLLECTION(ruleBySequence, RuleBySequence, RuleBySequence)
  KEL_VALUE_COLLECTION(ipRuleById, IpRuleById, IpRuleById)
};

}  // namespace Acl
