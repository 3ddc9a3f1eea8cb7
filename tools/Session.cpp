#include "tools/Session.h"

#include <algorithm>
#include <map>
#include <vector>

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

// Which step of the selection left one candidate, told from the candidates the source matched:
// bidirectional candidates beat sparse ones, then (modulo algorithm) the group's index, else the
// lowest priority value, the highest hash, the highest address.
std::string ruleThatDecided(const std::vector<CandidateDetail>& candidates,
                            RpHashAlgorithm algorithm) {
  std::vector<const CandidateDetail*> bidir, sparse;
  for (const auto& candidate : candidates) {
    if (candidate.info.mode() == modePimBidir) bidir.push_back(&candidate);
    if (candidate.info.mode() == modePimSm) sparse.push_back(&candidate);
  }
  const auto& contest = bidir.empty() ? sparse : bidir;
  if (contest.empty()) return "";
  if (contest.size() == 1)
    return !bidir.empty() && !sparse.empty() ? "bidir preferred" : "single candidate";
  if (algorithm == rpHashAlgorithmModulo) return "modulo index";
  RpPriority best = kRpPriorityNone;
  for (const auto* candidate : contest) best = std::min(best, candidate->info.priority());
  std::vector<const CandidateDetail*> top;
  for (const auto* candidate : contest) {
    if (candidate->info.priority() == best) top.push_back(candidate);
  }
  if (top.size() == 1) return "priority";
  std::uint32_t highest = 0;
  std::size_t atHighest = 0;
  for (const auto* candidate : top) {
    const std::uint32_t hash = candidate->hash.value_or(0);
    if (atHighest == 0 || hash > highest) {
      highest = hash;
      atHighest = 1;
    } else if (hash == highest) {
      ++atHighest;
    }
  }
  return atHighest == 1 ? "hash" : "highest address";
}

// The range `compute` matches for the group, its candidates with their hash values, and the rule.
SourceDetail detailOf(RpCompute& compute, const Ipkit::IpGenAddr& group,
                      RpHashAlgorithm algorithm) {
  SourceDetail detail;
  const auto set = compute.doLongestPrefixGroupMatch(Ipkit::IpGenPrefix::hostPrefix(group));
  if (!set) return detail;
  detail.range = set->prefix();
  const unsigned maxMask = group.af() == Ipkit::AddressFamily::ipv4 ? 32 : 128;
  for (const auto& [address, candidate] : set->rp()) {
    CandidateDetail row{infoOf(*candidate), std::nullopt};
    if (candidate->hashMaskLen() <= maxMask && candidate->hashMaskLen() != kRpHashMaskLenNone) {
      row.hash =
          compute.doComputeHashMask(candidate->pimMode(), group, candidate->hashMaskLen(), address);
    }
    detail.candidates.push_back(row);
  }
  std::sort(detail.candidates.begin(), detail.candidates.end(),
            [](const CandidateDetail& a, const CandidateDetail& b) {
              return a.info.address() < b.info.address();
            });
  detail.rule = ruleThatDecided(detail.candidates, algorithm);
  return detail;
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
    session.shared_.rpConfig->rpHashAlgorithmIs(s.algorithm);
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
    if (s.detail) {
      const RpHashAlgorithm algorithm = session.shared_.rpConfig->rpHashAlgorithm();
      answer.staticDetail = compute->staticCompute()
                                ? detailOf(*compute->staticCompute(), s.group.value, algorithm)
                                : SourceDetail{};
      answer.bsrDetail = compute->bsrCompute()
                             ? detailOf(*compute->bsrCompute(), s.group.value, algorithm)
                             : SourceDetail{};
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
  if (commit == Commit::eachStatement || !isRuleStatement(statement)) this->commit();
  if (home_.kind == TableHome::Kind::sharedWriter && startsReviews(statement)) reviewsStart();
  if (home_.kind == TableHome::Kind::sharedWriter && startsMerges(statement)) reactorsStart();
  if (clockSettles_ && isShowStatement(statement)) settle();
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

void Session::settle() {
  while (shared_.clock->runNext()) {
  }
}

void Session::commit() {
  if (!runRules_) return;
  // Taken first, so that a refusal below does not leave a run to commit again.
  const auto rules = std::move(runRules_);
  runRules_ = nullptr;
  ipv4_.aclConfig()->aclIs(runAcl_)->currCfgIs(rules);
}

}  // namespace PimrpTool
