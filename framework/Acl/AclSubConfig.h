#pragma once
// Acl::AclSubConfig: one version of an access list's rules: rule identifiers by sequence number
// (ruleBySequence, ascending: the order of evaluation) and the rules by identifier (ipRuleById).
//
// Writers enter a rule's body (ipRuleByIdIs) before its sequence entry (ruleBySequenceIs), so that
// a reactor on ruleBySequence always finds the rule it is told of.

#include "framework/Acl/IpRuleConfig.h"
#include "framework/Acl/UniqueId.h"
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
    virtual void onRuleBySequence(U32 sequence) { (void)sequence; }
    virtual void onIpRuleById(const UniqueId& id) { (void)id; }
  };

  const RuleBySequence& ruleBySequence() const { return ruleBySequence_; }
  UniqueId ruleBySequence(U32 sequence) const { return ruleBySequence_.find(sequence); }
  void ruleBySequenceIs(U32 sequence, const UniqueId& id) {
    if (ruleBySequence_.set(sequence, id)) notify(&NotifieeConst::onRuleBySequence, sequence);
  }
  void ruleBySequenceDel(U32 sequence) {
    if (ruleBySequence_.erase(sequence)) notify(&NotifieeConst::onRuleBySequence, sequence);
  }

  const IpRuleById& ipRuleById() const { return ipRuleById_; }
  IpRuleConfig ipRuleById(const UniqueId& id) const { return ipRuleById_.find(id); }
  void ipRuleByIdIs(const UniqueId& id, const IpRuleConfig& rule) {
    if (ipRuleById_.set(id, rule)) notify(&NotifieeConst::onIpRuleById, id);
  }
  void ipRuleByIdDel(const UniqueId& id) {
    if (ipRuleById_.erase(id)) notify(&NotifieeConst::onIpRuleById, id);
  }

 private:
  RuleBySequence ruleBySequence_;
  IpRuleById ipRuleById_;
};

}  // namespace Acl
