#include <set>
#include <vector>

#include "rp/PimRpSourceRule.h"
#include "tools/FinalTables.h"
#include "tools/GroupScope.h"
#include "tools/RpLoadCount.h"
#include "tools/ShowAnswers.h"

namespace PimrpTool {

using namespace Routing::Pim;
using PimrpPipeline::FamilyWiring;
using PimrpPipeline::HashKind;
using PimrpPipeline::HashSource;

namespace {

constexpr Ipkit::AddressFamily kFamilies[] = {Ipkit::AddressFamily::ipv4,
                                              Ipkit::AddressFamily::ipv6};

HashSource hashSourceOf(TableSource source) {
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
    candidates.push_back({source, candidateInfo(*candidate)});
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

ShowResult ShowAnswers::operator()(const ShowRpHashStatement& s) const {
  RpHashListing listing{s.source, s.kind, s.mode, s.af, {}};
  const HashKind kind = s.kind == TableKind::groups ? HashKind::groups : HashKind::prefixes;
  for (const auto af : kFamilies) {
    if (s.af && *s.af != af) continue;
    const auto& table = vrf.family(af).table(hashSourceOf(s.source), kind, s.mode);
    for (const RpHash& entry : table->rpHash()) listing.entries.push_back(entry);
  }
  return listing;
}

ShowResult ShowAnswers::operator()(const ShowReviewStatement&) const {
  ReviewListing listing;
  for (const auto af : kFamilies) {
    for (const TableSource source : {TableSource::staticRp, TableSource::bsr}) {
      for (const Mode mode : {modePimSm, modePimBidir}) {
        const auto& review = vrf.family(af).review(hashSourceOf(source), mode);
        const auto& timer = review->reviewTimer();
        listing.reviews.push_back({af, source, mode, review->changedGroup().size(),
                                   review->groupsProcessed(), review->yieldBeforeFinishingCount(),
                                   review->bookmark(), timer && timer->reviewPending()});
      }
    }
  }
  return listing;
}

ShowResult ShowAnswers::operator()(const ShowRpHashSummaryStatement& s) const {
  return rpHashSummaryOf(finalTablesOf({&vrf}, s.af), s.af);
}

// Every range with its candidates and, per mode, what the final per-range table holds, which
// source's entry that is, and the rule's reason over the two per-source entries.
VrfMapping vrfMapping(const PimrpPipeline::VrfPipeline& vrf,
                      const std::optional<Ipkit::AddressFamily>& af) {
  VrfMapping mapping{vrf.vrf().string(), {}};
  for (const auto family : kFamilies) {
    if (af && *af != family) continue;
    appendMapping(vrf.family(family), mapping.ranges);
  }
  return mapping;
}

}  // namespace PimrpTool
