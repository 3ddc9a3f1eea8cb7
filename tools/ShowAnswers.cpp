#include "tools/ShowAnswers.h"

#include <algorithm>
#include <map>
#include <vector>

#include "framework/Acl/AclToPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"
#include "tools/GroupScope.h"

namespace PimrpTool {

using namespace Routing::Pim;
using PimrpPipeline::FamilyWiring;

namespace {

void appendSets(const RpCandidateStatus& status, std::vector<CandidateSetRows>& sets) {
  for (const auto& [prefix, set] : status.crpSet()) {
    CandidateSetRows rows{prefix, {}};
    for (const auto& [address, candidate] : set->rp())
      rows.rps.push_back(candidateInfo(*candidate));
    sets.push_back(std::move(rows));
  }
}

ModeAnswer modeAnswer(const FamilyWiring& family, Mode mode, const Ipkit::IpGenAddr& group,
                      const Ipkit::IpGenAddr& join) {
  RpHashComputeRecord record;
  family.compute(mode)->rpHashComputeRecorded(group, join, record);
  return ModeAnswer{record.answer, record.source};
}

}  // namespace

// The answer, each source's selection and, asked for, how they came about; then, without a mode,
// the answers of both modes. The library is asked in that order, so that its traces for the answer
// come first.
ShowResult ShowAnswers::operator()(const ShowRpStatement& s) const {
  const FamilyWiring& family = vrf.family(s.group.value.af());
  const auto& compute = family.compute(s.mode);
  const Ipkit::IpGenAddr& group = s.group.value;
  const Ipkit::IpGenAddr join = s.join ? s.join->value : Ipkit::IpGenAddr();
  RpAnswer answer;
  answer.group = group;
  answer.queryMode = s.mode;
  if (s.join) answer.join = s.join->value;
  if (s.detail) {
    answer.answerDetail.emplace();
    answer.staticDetail.emplace();
    answer.bsrDetail.emplace();
    answer.rp = compute->rpHashComputeRecorded(group, join, *answer.answerDetail);
  } else {
    answer.rp = compute->rpHashCompute(group, join);
  }
  if (const auto& staticCompute = compute->staticCompute()) {
    answer.staticSelection = s.detail
                                 ? staticCompute->doComputeRpRecorded(group, *answer.staticDetail)
                                 : staticCompute->doComputeRp(group);
  }
  if (const auto& bsrCompute = compute->bsrCompute()) {
    answer.bsrSelection = s.detail ? bsrCompute->doComputeRpRecorded(group, *answer.bsrDetail)
                                   : bsrCompute->doComputeRp(group);
  }
  if (s.mode == modePimNone) {
    const auto host = Ipkit::IpGenPrefix::hostPrefix(group);
    answer.byMode = ModeAnswers{modeAnswer(family, modePimSm, group, join),
                                modeAnswer(family, modePimBidir, group, join),
                                family.groupFilter(modePimSm)->permitGroup(host),
                                family.groupFilter(modePimBidir)->permitGroup(host)};
  }
  answer.scope = groupScope(group);
  const auto& embedded = *family.embeddedRp().status();
  if (embedded.enabled()) {
    answer.embedded =
        EmbeddedRpAnswer{embedded.admission(group), embedded.group().size(), embedded.limit()};
  }
  return answer;
}

ShowResult ShowAnswers::operator()(const ShowCandidatesStatement& s) const {
  CandidateListing listing;
  listing.source = s.source;
  for (const auto af : {Ipkit::AddressFamily::ipv4, Ipkit::AddressFamily::ipv6}) {
    const FamilyWiring& family = vrf.family(af);
    const auto& status =
        s.source == CandidateSource::bootstrap ? family.bsrStatus() : family.staticStatus();
    appendSets(*status, listing.sets);
  }
  // Candidate sets are hashed; readers want them in prefix order, IPv4 first.
  std::sort(
      listing.sets.begin(), listing.sets.end(),
      [](const CandidateSetRows& a, const CandidateSetRows& b) { return a.prefix < b.prefix; });
  return listing;
}

// What a static RP bound to the list serves, folded by the library's own list folding.
ShowResult ShowAnswers::operator()(const ShowAclStatement& s) const {
  AclListing listing;
  listing.acl = s.acl;
  const auto list = vrf.family(Ipkit::AddressFamily::ipv4).aclConfig()->acl(s.acl);
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

ShowResult ShowAnswers::operator()(const ShowLocalRpStatement&) const {
  LocalRpListing listing;
  for (const auto af : {Ipkit::AddressFamily::ipv4, Ipkit::AddressFamily::ipv6}) {
    for (const auto& [address, info] : vrf.family(af).localRpStatus()->localRpSet()) {
      listing.rps.push_back({address, info->intfId().name()});
    }
  }
  return listing;
}

ShowResult ShowAnswers::operator()(const ShowGroupFilterStatement& s) const {
  const FamilyWiring& family = vrf.family(s.group.value.af());
  const auto host = Ipkit::IpGenPrefix::hostPrefix(s.group.value);
  return GroupFilterAnswer{s.group.value, family.groupFilter(modePimSm)->permitGroup(host),
                           family.groupFilter(modePimBidir)->permitGroup(host)};
}

// The allocator keeps one reference per request: the record tallied per address gives what it
// holds for each.
ShowResult ShowAnswers::operator()(const ShowAllocRequestsStatement&) const {
  const auto& requests = vrf.allocRequests();
  AllocRequestTally tally{requests->allocRequestCount(), requests->deallocRequestCount(), {}};
  std::map<Ipkit::IpGenAddr, AllocRequestRow> rows;
  for (const auto& request : requests->requests()) {
    AllocRequestRow& row = rows[request.key.addr()];
    row.address = request.key.addr();
    ++(request.kind == BitMapper::Config::RequestKind::alloc ? row.alloc : row.dealloc);
  }
  for (const auto& [address, row] : rows) tally.rps.push_back(row);
  return tally;
}

// The IPv6 family's: only IPv6 groups name their RP.
ShowResult ShowAnswers::operator()(const ShowEmbeddedRpStatement&) const {
  const auto& status = *vrf.family(Ipkit::AddressFamily::ipv6).embeddedRp().status();
  EmbeddedRpListing listing;
  listing.enabled = status.enabled();
  listing.limit = status.limit();
  for (const auto& [range, configured] : status.groupRange()) listing.groupRanges.push_back(range);
  listing.groupsInUse = status.group().size();
  listing.waiting = status.waitingGroup().size();
  listing.overflowCount = status.overflowCount();
  for (const auto& [rp, groups] : status.rp()) listing.rps.push_back({rp, groups});
  return listing;
}

}  // namespace PimrpTool
