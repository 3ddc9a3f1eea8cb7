#include "tools/RpLoadCount.h"

#include <cstdint>
#include <map>

namespace PimrpTool {
namespace {

using Ipkit::IpGenAddr;

RpLoadRow loadOf(const FinalTables& tables) {
  RpLoadRow row{tables.vrf, tables.af, tables.mode, 0, 0, {}, {}};
  std::map<IpGenAddr, std::uint64_t> counts;
  // Neighbouring groups mostly share their RP: the last one counted is tried first.
  IpGenAddr lastRp;
  std::uint64_t* lastCount = nullptr;
  const auto& entries = tables.groups->rpHash();
  auto entry = entries.begin();
  const auto end = entries.end();
  for (const auto& known : tables.knownGroups->group()) {
    ++row.groups;
    const auto key = Ipkit::IpGenPrefix::hostPrefix(known.first);
    while (entry != end && entry->key() < key) ++entry;
    if (entry == end || !(entry->key() == key) ||
        entry->address().af() == Ipkit::AddressFamily::ipunknown) {
      ++row.noRp;
      continue;
    }
    if (lastCount == nullptr || !(lastRp == entry->address())) {
      lastRp = entry->address();
      lastCount = &counts[lastRp];
    }
    ++*lastCount;
  }
  std::vector<std::uint64_t> loads;
  for (const auto& [rp, groups] : counts) {
    row.rps.push_back({rp, groups, static_cast<double>(groups) / static_cast<double>(row.groups)});
    loads.push_back(groups);
  }
  row.spread = rpLoadSpreadOf(loads);
  return row;
}

}  // namespace

RpHashSummary rpHashSummaryOf(const std::vector<FinalTables>& tables,
                              std::optional<Ipkit::AddressFamily> af) {
  RpHashSummary summary{af, {}};
  for (const FinalTables& view : tables) summary.rows.push_back(loadOf(view));
  return summary;
}

}  // namespace PimrpTool
