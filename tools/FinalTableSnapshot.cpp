#include "tools/FinalTableSnapshot.h"

namespace PimrpTool {
namespace {

std::vector<FinalEntry> entriesOf(const Routing::Pim::RpHashStatus& table) {
  std::vector<FinalEntry> entries;
  entries.reserve(table.rpHashs());
  for (const Routing::Pim::RpHash& entry : table.rpHash()) {
    entries.push_back({entry.key(), entry.address()});
  }
  return entries;
}

}  // namespace

FinalTableSnapshot::FinalTableSnapshot(const std::vector<FinalTables>& tables) {
  copies_.reserve(tables.size());
  for (const FinalTables& table : tables) {
    copies_.push_back(
        {table.vrf, table.af, table.mode, entriesOf(*table.groups), entriesOf(*table.ranges)});
  }
}

const FinalTablesCopy* FinalTableSnapshot::copyOf(const std::string& vrf, Ipkit::AddressFamily af,
                                                  Routing::Pim::Mode mode) const {
  for (const FinalTablesCopy& copy : copies_) {
    if (copy.vrf == vrf && copy.af == af && copy.mode == mode) return &copy;
  }
  return nullptr;
}

}  // namespace PimrpTool
