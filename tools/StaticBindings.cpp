#include "tools/StaticBindings.h"

namespace PimrpTool {
namespace {

using Routing::Pim::RpHashMaskLen;
using Routing::Pim::RpPriority;

template <class Is, class Del>
void optionWrite(const OptionValue& option, unsigned byDefault, Is is, Del del) {
  switch (option.form) {
    case OptionValue::Form::leftOut:
      is(byDefault);
      return;
    case OptionValue::Form::none:
      del();
      return;
    case OptionValue::Form::number:
      is(static_cast<unsigned>(option.number.value));
      return;
  }
}

}  // namespace

void bindingWrite(Routing::Pim::Static::RpEntry& entry, const RpGroupStatement& binding) {
  const auto& group = binding.group.value;
  const auto& options = binding.options;
  optionWrite(
      options.priority, kDefaultPriority,
      [&](unsigned value) { entry.priorityGrpIs(group, static_cast<RpPriority>(value)); },
      [&] { entry.priorityGrpDel(group); });
  optionWrite(
      options.hashMask, defaultHashMask(group.af()),
      [&](unsigned value) { entry.hashMaskGrpIs(group, static_cast<RpHashMaskLen>(value)); },
      [&] { entry.hashMaskGrpDel(group); });
  if (options.override) {
    entry.overrideDynGrpIs(group, true);
  } else {
    entry.overrideDynGrpDel(group);
  }
  entry.groupIs(group, true);
}

void bindingWrite(Routing::Pim::Static::RpEntry& entry, const RpAclStatement& binding) {
  const auto& acl = binding.acl;
  const auto& options = binding.options;
  optionWrite(
      options.priority, kDefaultPriority,
      [&](unsigned value) { entry.priorityAclIs(acl, static_cast<RpPriority>(value)); },
      [&] { entry.priorityAclDel(acl); });
  optionWrite(
      options.hashMask, defaultHashMask(Ipkit::AddressFamily::ipv4),
      [&](unsigned value) { entry.hashMaskAclIs(acl, static_cast<RpHashMaskLen>(value)); },
      [&] { entry.hashMaskAclDel(acl); });
  if (options.override) {
    entry.overrideDynAclIs(acl, true);
  } else {
    entry.overrideDynAclDel(acl);
  }
  entry.aclIs(acl, true);
}

void ruleWrite(Acl::AclSubConfig& rules, const AclRuleStatement& rule, std::uint64_t& nextRuleId) {
  const auto sequence = static_cast<U32>(rule.sequence.value);
  const Acl::IpRuleConfig body(
      rule.action, rule.prefix ? Acl::IpFilter(rule.prefix->value) : Acl::IpFilter::anyAddress());
  const bool replacing = rules.ruleBySequence().contains(sequence);
  const Acl::UniqueId previous = rules.ruleBySequence(sequence);
  if (replacing && rules.ipRuleById(previous) == body) return;
  // The body goes in before the sequence entry that names it, and the replaced body leaves
  // after, so that a reactor on the sequence never finds a rule missing.
  const Acl::UniqueId id(nextRuleId++);
  rules.ipRuleByIdIs(id, body);
  rules.ruleBySequenceIs(sequence, id);
  if (replacing) rules.ipRuleByIdDel(previous);
}

void ruleRemove(Acl::AclSubConfig& rules, const NoAclRuleStatement& rule) {
  const auto sequence = static_cast<U32>(rule.sequence.value);
  if (!rules.ruleBySequence().contains(sequence)) return;
  const Acl::UniqueId id = rules.ruleBySequence(sequence);
  rules.ruleBySequenceDel(sequence);
  rules.ipRuleByIdDel(id);
}

}  // namespace PimrpTool
