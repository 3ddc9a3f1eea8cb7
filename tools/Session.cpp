#include "tools/Session.h"

#include <algorithm>

#include "framework/Acl/AclToPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"
#include "framework/Kel/System.h"

namespace PimrpTool {

using namespace Routing::Pim;

namespace {

// What a static binding gets for an option left out, as routers' configuration gives it: the
// best priority, and the hash mask length that the bootstrap router mechanism advises
// (RFC 5059: 30 for IPv4, 126 for IPv6).
constexpr unsigned kDefaultPriority = 0;
unsigned defaultHashMask(Ipkit::AddressFamily af) {
  return af == Ipkit::AddressFamily::ipv4 ? 30 : 126;
}

RpCandidateInfo infoOf(const RpCandidate& candidate) {
  return RpCandidateInfo(candidate.address(), candidate.priority(), candidate.hashMaskLen(),
                         candidate.override(), candidate.pimMode());
}

void appendSets(const RpCandidateStatus& status, std::vector<CandidateSetRows>& sets) {
  for (const auto& [prefix, set] : status.crpSet()) {
    CandidateSetRows rows{prefix, {}};
    for (const auto& [address, candidate] : set->rp()) rows.rps.push_back(infoOf(*candidate));
    sets.push_back(std::move(rows));
  }
}

bool isRuleStatement(const Statement& statement) {
  return std::holds_alternative<AclRuleStatement>(statement) ||
         std::holds_alternative<NoAclRuleStatement>(statement);
}

}  // namespace

// One overload per statement; a statement without one does not compile.
struct SessionApply {
  Session& session;
  Commit commit;

  using Result = std::optional<ShowResult>;

  FamilyWiring& familyOf(const Ipkit::IpGenAddr& address) const {
    return session.family(address.af());
  }
  FamilyWiring& ipv4() const { return session.ipv4_; }

  Result operator()(const VrfStatement& s) const {
    session.vrf_ = L3::VrfName(s.name);
    session.ipv4_.vrfIs(session.vrf_);
    session.ipv6_.vrfIs(session.vrf_);
    return std::nullopt;
  }

  // Each option is written before the binding itself, so that the reactor finds the binding's
  // values in place when the binding arrives, and a rebinding changes only what differs. An
  // option left out takes the protocol's default; `none` leaves the value unconfigured.
  template <class Is, class Del>
  static void writeOption(const OptionValue& option, unsigned byDefault, Is is, Del del) {
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

  Result operator()(const RpGroupStatement& s) const {
    const auto entry = familyOf(s.rp.value).staticConfig()->rpTableIs(s.rp.value);
    const auto& group = s.group.value;
    const auto& options = s.options;
    writeOption(
        options.priority, kDefaultPriority,
        [&](unsigned value) { entry->priorityGrpIs(group, static_cast<RpPriority>(value)); },
        [&] { entry->priorityGrpDel(group); });
    writeOption(
        options.hashMask, defaultHashMask(group.af()),
        [&](unsigned value) { entry->hashMaskGrpIs(group, static_cast<RpHashMaskLen>(value)); },
        [&] { entry->hashMaskGrpDel(group); });
    if (options.override) {
      entry->overrideDynGrpIs(group, true);
    } else {
      entry->overrideDynGrpDel(group);
    }
    entry->groupIs(group, true);
    return std::nullopt;
  }

  Result operator()(const RpAclStatement& s) const {
    const auto entry = ipv4().staticConfig()->rpTableIs(s.rp.value);
    const auto& options = s.options;
    writeOption(
        options.priority, kDefaultPriority,
        [&](unsigned value) { entry->priorityAclIs(s.acl, static_cast<RpPriority>(value)); },
        [&] { entry->priorityAclDel(s.acl); });
    writeOption(
        options.hashMask, defaultHashMask(Ipkit::AddressFamily::ipv4),
        [&](unsigned value) { entry->hashMaskAclIs(s.acl, static_cast<RpHashMaskLen>(value)); },
        [&] { entry->hashMaskAclDel(s.acl); });
    if (options.override) {
      entry->overrideDynAclIs(s.acl, true);
    } else {
      entry->overrideDynAclDel(s.acl);
    }
    entry->aclIs(s.acl, true);
    return std::nullopt;
  }

  Result operator()(const RpModeStatement& s) const {
    familyOf(s.rp.value).staticConfig()->rpTableIs(s.rp.value)->modeIs(s.mode);
    return std::nullopt;
  }

  // The binding goes first, so that the reactor withdraws it before its values disappear.
  Result operator()(const NoRpGroupStatement& s) const {
    const auto entry = familyOf(s.rp.value).staticConfig()->rpTableMutable(s.rp.value);
    if (!entry) return std::nullopt;
    entry->groupDel(s.group.value);
    entry->priorityGrpDel(s.group.value);
    entry->hashMaskGrpDel(s.group.value);
    entry->overrideDynGrpDel(s.group.value);
    return std::nullopt;
  }

  Result operator()(const NoRpAclStatement& s) const {
    const auto entry = ipv4().staticConfig()->rpTableMutable(s.rp.value);
    if (!entry) return std::nullopt;
    entry->aclDel(s.acl);
    entry->priorityAclDel(s.acl);
    entry->hashMaskAclDel(s.acl);
    entry->overrideDynAclDel(s.acl);
    return std::nullopt;
  }

  Result operator()(const NoRpStatement& s) const {
    familyOf(s.rp.value).staticConfig()->rpTableDel(s.rp.value);
    return std::nullopt;
  }

  // The rules a rule statement edits: the run's when collecting, else the list's current ones
  // (created with the list when absent and `create`); null when there are none to edit.
  Kel::Ptr<Acl::AclSubConfig> rulesToEdit(const std::string& acl, bool create) const {
    if (commit == Commit::inRuns) return session.runRulesOf(acl, create);
    if (!create) {
      const auto list = ipv4().aclConfig()->aclMutable(acl);
      return list ? list->currCfgMutable() : nullptr;
    }
    return ipv4().aclConfig()->aclIs(acl)->currCfgIs();
  }

  Result operator()(const AclRuleStatement& s) const {
    const auto rules = rulesToEdit(s.acl, true);
    const auto sequence = static_cast<U32>(s.sequence.value);
    const Acl::IpRuleConfig rule(
        s.action, s.prefix ? Acl::IpFilter(s.prefix->value) : Acl::IpFilter::anyAddress());
    const bool replacing = rules->ruleBySequence().contains(sequence);
    const Acl::UniqueId previous = rules->ruleBySequence(sequence);
    if (replacing && rules->ipRuleById(previous) == rule) return std::nullopt;
    // The body goes in before the sequence entry that names it, and the replaced body leaves
    // after, so that a reactor on the sequence never finds a rule missing.
    const Acl::UniqueId id(session.nextRuleId_++);
    rules->ipRuleByIdIs(id, rule);
    rules->ruleBySequenceIs(sequence, id);
    if (replacing) rules->ipRuleByIdDel(previous);
    return std::nullopt;
  }

  Result operator()(const NoAclRuleStatement& s) const {
    const auto rules = rulesToEdit(s.acl, false);
    if (!rules) return std::nullopt;
    const auto sequence = static_cast<U32>(s.sequence.value);
    if (!rules->ruleBySequence().contains(sequence)) return std::nullopt;
    const Acl::UniqueId id = rules->ruleBySequence(sequence);
    rules->ruleBySequenceDel(sequence);
    rules->ipRuleByIdDel(id);
    return std::nullopt;
  }

  Result operator()(const NoAclStatement& s) const {
    ipv4().aclConfig()->aclDel(s.acl);
    return std::nullopt;
  }

  // Written as the bootstrap machinery writes a learnt candidate: the set on first need, the
  // setup time when the candidate is new, then its values, the mode last since a candidate
  // without a mode is ignored by selection.
  Result operator()(const BsrRpStatement& s) const {
    const auto set = familyOf(s.rp.value).bsrStatus()->crpSetIs(s.group.value);
    const bool created = !set->rp().contains(s.rp.value);
    const auto candidate = set->rpIs(s.rp.value);
    if (created) candidate->setupTimeIs(Kel::System::currentTime());
    candidate->priorityIs(static_cast<RpPriority>(s.priority.value));
    candidate->hashMaskLenIs(static_cast<RpHashMaskLen>(s.hashMask.value));
    candidate->overrideIs(false);
    candidate->pimModeIs(s.mode);
    return std::nullopt;
  }

  Result operator()(const NoBsrRpStatement& s) const {
    const auto& status = familyOf(s.rp.value).bsrStatus();
    const auto set = status->crpSetMutable(s.group.value);
    if (!set) return std::nullopt;
    set->rpDel(s.rp.value);
    if (set->rp().empty()) status->crpSetDel(s.group.value);
    return std::nullopt;
  }

  Result operator()(const RpHashAlgorithmStatement& s) const {
    session.rpConfig_->rpHashAlgorithmIs(s.algorithm);
    return std::nullopt;
  }

  Result operator()(const ShowRpStatement& s) const {
    const auto& compute = familyOf(s.group.value).compute(s.mode);
    RpAnswer answer;
    answer.group = s.group.value;
    answer.queryMode = s.mode;
    if (s.join) answer.join = s.join->value;
    answer.rp = compute->rpHashCompute(s.group.value, s.join ? s.join->value : Ipkit::IpGenAddr());
    if (compute->staticCompute()) {
      answer.staticSelection = compute->staticCompute()->doComputeRp(s.group.value);
    }
    if (compute->bsrCompute()) {
      answer.bsrSelection = compute->bsrCompute()->doComputeRp(s.group.value);
    }
    return answer;
  }

  Result operator()(const ShowCandidatesStatement& s) const {
    CandidateListing listing;
    listing.source = s.source;
    for (const FamilyWiring* family : {&session.ipv4_, &session.ipv6_}) {
      const auto& status =
          s.source == CandidateSource::bootstrap ? family->bsrStatus() : family->staticStatus();
      appendSets(*status, listing.sets);
    }
    // Candidate sets are hashed; readers want them in prefix order, IPv4 first.
    std::sort(
        listing.sets.begin(), listing.sets.end(),
        [](const CandidateSetRows& a, const CandidateSetRows& b) { return a.prefix < b.prefix; });
    return listing;
  }

  // What a static RP bound to the list serves, folded by the library's own list folding.
  Result operator()(const ShowAclStatement& s) const {
    AclListing listing;
    listing.acl = s.acl;
    const auto list = ipv4().aclConfig()->acl(s.acl);
    if (!list) return listing;
    listing.configured = true;
    const auto rules = list->currCfg();
    if (!rules) return listing;
    // Rules about addresses outside the group space only: the folding passes over them.
    const Ipkit::IpGenPrefix groupSpace(Ipkit::IpGenAddr(Ipkit::Ip4Addr(0xe0000000u)), 4);
    for (const auto& [sequence, id] : rules->ruleBySequence()) {
      const Acl::IpRuleConfig rule = rules->ipRuleById(id);
      const auto& filter = rule.filter();
      if (!filter.any() && !groupSpace.contains(filter.prefix()) &&
          !filter.prefix().contains(groupSpace)) {
        listing.ignored.push_back({sequence, rule.action(), filter.prefix()});
      }
    }
    Ipkit::IpGenPrefixSet permitted;
    AclPrefix::AclToPrefix::listToPrefixes(*rules, permitted);
    listing.prefixes.assign(permitted.begin(), permitted.end());
    return listing;
  }
};

Session::Session()
    : rpConfig_(new RpConfig),
      ipv4_(Ipkit::AddressFamily::ipv4, vrf_, rpConfig_),
      ipv6_(Ipkit::AddressFamily::ipv6, vrf_, rpConfig_) {}

std::optional<ShowResult> Session::apply(const Statement& statement, Commit commit) {
  // A run ends at anything but one more rule statement of its list.
  if (commit == Commit::eachStatement || !isRuleStatement(statement)) this->commit();
  return std::visit(SessionApply{*this, commit}, statement);
}

Kel::Ptr<Acl::AclSubConfig> Session::runRulesOf(const std::string& acl, bool create) {
  if (runRules_ && runAcl_ != acl) commit();
  if (runRules_) return runRules_;
  const auto list = ipv4_.aclConfig()->acl(acl);
  const auto current = list ? list->currCfg() : nullptr;
  // Removing a rule from a list without rules changes nothing: no run, no list.
  if (!current && !create) return nullptr;
  // The run starts from the current rules, under the identifiers they have.
  runRules_ = Kel::Ptr<Acl::AclSubConfig>(new Acl::AclSubConfig);
  runAcl_ = acl;
  if (current) {
    for (const auto& [sequence, id] : current->ruleBySequence()) {
      runRules_->ipRuleByIdIs(id, current->ipRuleById(id));
      runRules_->ruleBySequenceIs(sequence, id);
    }
  }
  return runRules_;
}

void Session::commit() {
  if (!runRules_) return;
  // Taken first, so that a refusal below does not leave a run to commit again.
  const auto rules = std::move(runRules_);
  runRules_ = nullptr;
  ipv4_.aclConfig()->aclIs(runAcl_)->currCfgIs(rules);
}

}  // namespace PimrpTool
