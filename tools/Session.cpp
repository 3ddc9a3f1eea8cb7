#include "tools/Session.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "framework/Acl/AclToPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"
#include "framework/Kel/System.h"
#include "rp/PimRpSourceRule.h"
#include "tools/BindingWarnings.h"
#include "tools/FinalTables.h"
#include "tools/GroupScope.h"
#include "tools/RpLoadCount.h"
#include "tools/RunningConfig.h"
#include "tools/StaticBindings.h"

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

ModeAnswer modeAnswer(const FamilyWiring& family, Mode mode, const Ipkit::IpGenAddr& group,
                      const Ipkit::IpGenAddr& join) {
  RpHashComputeRecord record;
  family.compute(mode)->rpHashComputeRecorded(group, join, record);
  return ModeAnswer{record.answer, record.source};
}

// Which per-source entry of a range the final entry is. Equal entries from both sources are told
// apart by the rule itself.
std::optional<TableSource> sourceHeld(const RpHash& finalEntry, const RpHash& staticEntry,
                                      const RpHash& bsrEntry) {
  if (!rpHashPresent(finalEntry)) return std::nullopt;
  const bool isStatic = finalEntry == staticEntry;
  const bool isBsr = finalEntry == bsrEntry;
  if (isStatic && isBsr) {
    return rpStaticWins(staticEntry.override(), true) ? TableSource::staticRp : TableSource::bsr;
  }
  if (isStatic) return TableSource::staticRp;
  if (isBsr) return TableSource::bsr;
  return std::nullopt;
}

MappingMode mappingModeOf(const FamilyWiring& family, const Ipkit::IpGenPrefix& range, Mode mode) {
  const RpHash staticEntry =
      family.table(HashSource::staticRp, HashKind::prefixes, mode)->rpHash(range);
  const RpHash bsrEntry = family.table(HashSource::bsr, HashKind::prefixes, mode)->rpHash(range);
  const RpHash finalEntry =
      family.table(HashSource::final, HashKind::prefixes, mode)->rpHash(range);
  return MappingMode{mode,
                     staticEntry,
                     bsrEntry,
                     finalEntry,
                     sourceHeld(finalEntry, staticEntry, bsrEntry),
                     rpSourceReasonOfEntries(staticEntry, bsrEntry)};
}

void appendCandidates(CandidateSource source, const RpCandidateStatus& status,
                      const Ipkit::IpGenPrefix& range, std::vector<MappingCandidate>& candidates) {
  const auto set = status.crpSet(range);
  if (!set) return;
  for (const auto& [address, candidate] : set->rp()) {
    candidates.push_back({source, infoOf(*candidate)});
  }
}

// The family's ranges: those of both candidate statuses and those the final per-range tables
// still hold, ascending.
void appendMapping(const FamilyWiring& family, std::vector<MappingRange>& ranges) {
  std::set<Ipkit::IpGenPrefix> keys;
  for (const auto& status : {family.staticStatus(), family.bsrStatus()}) {
    for (const auto& [prefix, set] : status->crpSet()) keys.insert(prefix);
  }
  for (const Mode mode : {modePimSm, modePimBidir}) {
    for (const RpHash& entry :
         family.table(HashSource::final, HashKind::prefixes, mode)->rpHash()) {
      keys.insert(entry.key());
    }
  }
  for (const auto& prefix : keys) {
    MappingRange range{prefix, {}, {}, rangeScope(prefix)};
    appendCandidates(CandidateSource::staticConfig, *family.staticStatus(), prefix,
                     range.candidates);
    appendCandidates(CandidateSource::bootstrap, *family.bsrStatus(), prefix, range.candidates);
    for (const Mode mode : {modePimSm, modePimBidir}) {
      range.modes.push_back(mappingModeOf(family, prefix, mode));
    }
    ranges.push_back(std::move(range));
  }
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

  Result operator()(const RpGroupStatement& s) const {
    bindingWrite(*familyOf(s.rp.value).staticConfig()->rpTableIs(s.rp.value), s);
    return std::nullopt;
  }

  Result operator()(const RpAclStatement& s) const {
    bindingWrite(*ipv4().staticConfig()->rpTableIs(s.rp.value), s);
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
    ruleWrite(*rulesToEdit(s.acl, true), s, session.nextRuleId_);
    return std::nullopt;
  }

  Result operator()(const NoAclRuleStatement& s) const {
    const auto rules = rulesToEdit(s.acl, false);
    if (rules) ruleRemove(*rules, s);
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
    session.shared_.rpConfig->rpHashAlgorithmIs(s.algorithm);
    return std::nullopt;
  }

  // The answer, each source's selection and, asked for, how they came about; then, without a
  // mode, the answers of both modes. The library is asked in that order, so that its traces for
  // the answer come first.
  Result operator()(const ShowRpStatement& s) const {
    const FamilyWiring& family = session.family(s.group.value.af());
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

  // Every address of the range, in ascending order; a range holds at most 2^20 of them, so the
  // varying bits lie in the last 32-bit word.
  template <class Visit>
  static void forEachAddress(const Ipkit::IpGenPrefix& range, Visit visit) {
    const unsigned bits = range.af() == Ipkit::AddressFamily::ipv4 ? 32 : 128;
    const std::uint64_t count = std::uint64_t{1} << (bits - range.len());
    auto bytes = range.address().bytes();
    const std::size_t last = range.af() == Ipkit::AddressFamily::ipv4 ? 0 : 12;
    const std::uint32_t base = (std::uint32_t{bytes[last]} << 24) |
                               (std::uint32_t{bytes[last + 1]} << 16) |
                               (std::uint32_t{bytes[last + 2]} << 8) | bytes[last + 3];
    for (std::uint64_t index = 0; index < count; ++index) {
      const std::uint32_t word = base + static_cast<std::uint32_t>(index);
      for (std::size_t byte = 0; byte < 4; ++byte) {
        bytes[last + byte] = static_cast<std::uint8_t>(word >> (24 - 8 * byte));
      }
      visit(range.af() == Ipkit::AddressFamily::ipv4 ? Ipkit::IpGenAddr::ip4(word)
                                                     : Ipkit::IpGenAddr(Ipkit::Ip6Addr(bytes)));
    }
  }

  Result operator()(const GroupStatement& s) const {
    const auto& groups = session.family(s.group.value.af()).groups();
    forEachAddress(s.group.value,
                   [&](const Ipkit::IpGenAddr& group) { groups->groupIs(group, true); });
    return std::nullopt;
  }

  Result operator()(const NoGroupStatement& s) const {
    const auto& groups = session.family(s.group.value.af()).groups();
    forEachAddress(s.group.value, [&](const Ipkit::IpGenAddr& group) { groups->groupDel(group); });
    return std::nullopt;
  }

  Result operator()(const RouteStatement& s) const {
    std::vector<Routing::ShadowFib::ViaEntry> vias;
    if (s.via) vias.push_back({s.via->value, Ipkit::IntfId(s.interface)});
    session.family(s.prefix.value.af())
        .routeIs(s.prefix.value, static_cast<std::uint32_t>(s.type.value), vias);
    return std::nullopt;
  }

  Result operator()(const NoRouteStatement& s) const {
    session.family(s.prefix.value.af()).routeDel(s.prefix.value);
    return std::nullopt;
  }

  Result operator()(const ShadowStatement& s) const {
    session.family(s.af).shadowIs(s.attached);
    return std::nullopt;
  }

  Result operator()(const AttrLogStatement& s) const {
    session.shared_.attrLog->attrLogOutCloggedIs(s.clogged);
    return std::nullopt;
  }

  Result operator()(const RunStatement& s) const {
    if (!s.seconds) {
      session.settle();
      return std::nullopt;
    }
    const double seconds = static_cast<double>(s.seconds->value) / 1e6;
    session.shared_.clock->runUntil(Kel::System::currentTime() + seconds);
    return std::nullopt;
  }

  Result operator()(const ClockStatement& s) const {
    session.clockSettles_ = s.settle;
    return std::nullopt;
  }

  static HashSource hashSourceOf(TableSource source) {
    switch (source) {
      case TableSource::staticRp:
        return HashSource::staticRp;
      case TableSource::bsr:
        return HashSource::bsr;
      case TableSource::final:
        break;
    }
    return HashSource::final;
  }

  Result operator()(const ShowRpHashStatement& s) const {
    RpHashListing listing{s.source, s.kind, s.mode, s.af, {}};
    const HashKind kind = s.kind == TableKind::groups ? HashKind::groups : HashKind::prefixes;
    for (const FamilyWiring* family : {&session.ipv4_, &session.ipv6_}) {
      if (s.af && *s.af != family->af()) continue;
      const auto& table = family->table(hashSourceOf(s.source), kind, s.mode);
      for (const RpHash& entry : table->rpHash()) listing.entries.push_back(entry);
    }
    return listing;
  }

  Result operator()(const ShowLocalRpStatement&) const {
    LocalRpListing listing;
    for (const FamilyWiring* family : {&session.ipv4_, &session.ipv6_}) {
      for (const auto& [address, info] : family->localRpStatus()->localRpSet()) {
        listing.rps.push_back({address, info->intfId().name()});
      }
    }
    return listing;
  }

  Result operator()(const ShowGroupFilterStatement& s) const {
    const FamilyWiring& family = session.family(s.group.value.af());
    const auto host = Ipkit::IpGenPrefix::hostPrefix(s.group.value);
    return GroupFilterAnswer{s.group.value, family.groupFilter(modePimSm)->permitGroup(host),
                             family.groupFilter(modePimBidir)->permitGroup(host)};
  }

  // The allocator keeps one reference per request: the record tallied per address gives what it
  // holds for each.
  Result operator()(const ShowAllocRequestsStatement&) const {
    const auto& config = session.shared_.bitMapConfig;
    AllocRequestTally tally{config->allocRequestCount(), config->deallocRequestCount(), {}};
    std::map<Ipkit::IpGenAddr, AllocRequestRow> rows;
    for (const auto& request : config->requests()) {
      AllocRequestRow& row = rows[request.key.addr()];
      row.address = request.key.addr();
      ++(request.kind == BitMapper::Config::RequestKind::alloc ? row.alloc : row.dealloc);
    }
    for (const auto& [address, row] : rows) tally.rps.push_back(row);
    return tally;
  }

  Result operator()(const ShowConfigStatement&) const { return runningConfig(session); }

  Result operator()(const ShowRpHashSummaryStatement& s) const {
    return rpHashSummaryOf(finalTablesOf(session, s.af), s.af);
  }

  Result operator()(const ShowReviewStatement&) const {
    ReviewListing listing;
    for (const FamilyWiring* family : {&session.ipv4_, &session.ipv6_}) {
      for (const TableSource source : {TableSource::staticRp, TableSource::bsr}) {
        for (const Mode mode : {modePimSm, modePimBidir}) {
          const auto& review = family->review(hashSourceOf(source), mode);
          const auto& timer = review->reviewTimer();
          listing.reviews.push_back({family->af(), source, mode, review->changedGroup().size(),
                                     review->groupsProcessed(), review->yieldBeforeFinishingCount(),
                                     review->bookmark(), timer && timer->reviewPending()});
        }
      }
    }
    return listing;
  }

  // Every range with its candidates and, per mode, what the final per-range table holds, which
  // source's entry that is, and the rule's reason over the two per-source entries.
  Result operator()(const ShowRpMappingStatement& s) const {
    VrfMapping vrf{session.vrf_.string(), {}};
    for (const FamilyWiring* family : {&session.ipv4_, &session.ipv6_}) {
      if (s.af && *s.af != family->af()) continue;
      appendMapping(*family, vrf.ranges);
    }
    return RpMapping{s.af, {std::move(vrf)}};
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

namespace {

// The tool runs the library in virtual time from 0: time moves only when the session says so.
SharedInputs sharedInputsFromTimeZero() {
  Kel::System::virtualTimeIs(0);
  return SharedInputs{Kel::Ptr<RpConfig>(new RpConfig), Kel::Ptr<Kel::Clock>(new Kel::Clock),
                      Kel::Ptr<PimAttrLogSm>(new PimAttrLogSm),
                      Kel::Ptr<BitMapper::Config>(new BitMapper::Config)};
}

// Over shared tables left by an earlier run, the known groups come back before the reviews take up
// the per-source tables; the configuration reaches running reviews, as an agent's replayed
// configuration does (a review that starts over candidates already configured computes each
// range's own entry before the range is in its trie). The merges take up the final tables when an
// answer is asked for or time is to move, or at the end of the input.
bool startsReviews(const Statement& statement) {
  return !std::holds_alternative<GroupStatement>(statement);
}
bool startsMerges(const Statement& statement) {
  return isShowStatement(statement) || std::holds_alternative<RunStatement>(statement);
}

FamilyWiring::TableMaker tablesIn(const TableHome& home, Ipkit::AddressFamily af) {
  return [home, af](HashSource source, HashKind kind, Mode mode) {
    return rpHashTableIn(home, af, source, kind, mode);
  };
}

}  // namespace

Session::Session(const TableHome& home)
    : home_(home),
      shared_(sharedInputsFromTimeZero()),
      ipv4_(Ipkit::AddressFamily::ipv4, vrf_, shared_, tablesIn(home, Ipkit::AddressFamily::ipv4)),
      ipv6_(Ipkit::AddressFamily::ipv6, vrf_, shared_, tablesIn(home, Ipkit::AddressFamily::ipv6)) {
  if (home_.kind == TableHome::Kind::process) reactorsStart();
}

void Session::reviewsStart() {
  ipv4_.reviewsStart();
  ipv6_.reviewsStart();
}

void Session::reactorsStart() {
  if (ipv4_.reactorsStarted()) return;
  // Over shared tables the reviews finish redoing the per-source tables first; the merges then
  // fold them into the final tables at once, so that readers of a final table see each entry
  // change at most once, to its new value, and no answer of a configuration half replayed.
  reviewsStart();
  if (home_.kind == TableHome::Kind::sharedWriter && clockSettles_) settle();
  ipv4_.reactorsStart();
  ipv6_.reactorsStart();
}

void Session::finish() {
  if (home_.kind != TableHome::Kind::sharedWriter) return;
  commit();
  reactorsStart();
  if (clockSettles_) settle();
}

std::optional<ShowResult> Session::apply(const Statement& statement, Commit commit) {
  // A run ends at anything but one more rule statement of its list.
  const bool reachesLibrary = commit == Commit::eachStatement || !isRuleStatement(statement);
  if (reachesLibrary) this->commit();
  if (home_.kind == TableHome::Kind::sharedWriter && startsReviews(statement)) reviewsStart();
  // Statements typed one at a time have no end to wait for: the final tables follow them from the
  // first statement that reaches the reviews.
  const bool typedChange = commit == Commit::eachStatement && startsReviews(statement);
  if (home_.kind == TableHome::Kind::sharedWriter && (startsMerges(statement) || typedChange)) {
    reactorsStart();
  }
  if (clockSettles_ && isShowStatement(statement)) settle();
  BindingWarnings watch(ipv4_);
  if (reachesLibrary) watch.before(statement);
  auto answer = std::visit(SessionApply{*this, commit}, statement);
  if (reachesLibrary) warningsAdd(watch.after(statement));
  // Readers of shared tables see them as the statements typed so far leave them, not as they
  // were at the last show.
  if (home_.kind == TableHome::Kind::sharedWriter && commit == Commit::eachStatement &&
      clockSettles_) {
    settle();
  }
  return answer;
}

bool Session::endsRun(const Statement& statement) const {
  if (!runRules_) return false;
  if (const auto* rule = std::get_if<AclRuleStatement>(&statement)) return rule->acl != runAcl_;
  if (const auto* rule = std::get_if<NoAclRuleStatement>(&statement)) return rule->acl != runAcl_;
  return true;
}

std::vector<std::string> Session::warningsTaken() {
  std::vector<std::string> taken;
  taken.swap(warnings_);
  return taken;
}

void Session::warningsAdd(std::vector<std::string> warnings) {
  for (auto& warning : warnings) warnings_.push_back(std::move(warning));
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

void Session::settle() {
  while (shared_.clock->runNext()) {
  }
}

void Session::commit() {
  if (!runRules_) return;
  // Taken first, so that a refusal below does not leave a run to commit again.
  const auto rules = std::move(runRules_);
  runRules_ = nullptr;
  BindingWarnings watch(ipv4_);
  watch.listBefore(runAcl_);
  ipv4_.aclConfig()->aclIs(runAcl_)->currCfgIs(rules);
  warningsAdd(watch.listAfter(runAcl_));
}

}  // namespace PimrpTool
