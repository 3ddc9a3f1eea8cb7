#include "tools/Session.h"

#include <algorithm>

#include "framework/Acl/AclToPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"
#include "framework/Kel/System.h"

namespace PimrpTool {

using namespace Routing::Pim;

namespace {

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

}  // namespace

// One overload per statement; a statement without one does not compile.
struct SessionApply {
  Session& session;

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
  // values in place when the binding arrives, and a rebinding changes only what differs.
  Result operator()(const RpGroupStatement& s) const {
    const auto entry = familyOf(s.rp.value).staticConfig()->rpTableIs(s.rp.value);
    const auto& group = s.group.value;
    const auto& options = s.options;
    if (options.priority) {
      entry->priorityGrpIs(group, static_cast<RpPriority>(options.priority->value));
    } else {
      entry->priorityGrpDel(group);
    }
    if (options.hashMask) {
      entry->hashMaskGrpIs(group, static_cast<RpHashMaskLen>(options.hashMask->value));
    } else {
      entry->hashMaskGrpDel(group);
    }
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
    if (options.priority) {
      entry->priorityAclIs(s.acl, static_cast<RpPriority>(options.priority->value));
    } else {
      entry->priorityAclDel(s.acl);
    }
    if (options.hashMask) {
      entry->hashMaskAclIs(s.acl, static_cast<RpHashMaskLen>(options.hashMask->value));
    } else {
      entry->hashMaskAclDel(s.acl);
    }
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

  Result operator()(const AclRuleStatement& s) const {
    const auto list = ipv4().aclConfig()->aclIs(s.acl);
    const auto rules = list->currCfgIs();
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
    const auto list = ipv4().aclConfig()->aclMutable(s.acl);
    if (!list || !list->currCfgMutable()) return std::nullopt;
    const auto& rules = list->currCfgMutable();
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

std::optional<ShowResult> Session::apply(const Statement& statement) {
  return std::visit(SessionApply{*this}, statement);
}

}  // namespace PimrpTool
