#include "pipeline/TableHome.h"

namespace PimrpPipeline {

using Routing::Pim::Mode;
using Routing::Pim::RpHashStatus;

namespace {

// What the VRF adds between the common name and the role: nothing for the default VRF, so that
// its tables keep the names they had before VRFs named tables.
std::string vrfPart(const L3::VrfName& vrf) {
  return vrf == L3::VrfName() ? std::string() : ".vrf." + vrf.string();
}

}  // namespace

std::string sharedTableName(const std::string& name, const L3::VrfName& vrf,
                            Ipkit::AddressFamily af, HashSource source, HashKind kind, Mode mode) {
  return name + vrfPart(vrf) + '.' + tableRole(af, source, kind, mode);
}

std::vector<std::string> sharedTableNames(const std::string& name, const L3::VrfName& vrf) {
  std::vector<std::string> names;
  forEachTableRole([&](Ipkit::AddressFamily af, HashSource source, HashKind kind, Mode mode) {
    names.push_back(sharedTableName(name, vrf, af, source, kind, mode));
  });
  return names;
}

std::size_t longestTableName(const std::string& name, const L3::VrfName& vrf) {
  return name.size() + vrfPart(vrf).size() + kLongestRoleLength;
}

Kel::Ptr<RpHashStatus> rpHashTableIn(const TableHome& home, const L3::VrfName& vrf,
                                     Ipkit::AddressFamily af, HashSource source, HashKind kind,
                                     Mode mode) {
  if (home.kind == TableHome::Kind::process) return Kel::Ptr<RpHashStatus>(new RpHashStatus);
  const auto attachMode = home.kind == TableHome::Kind::sharedWriter
                              ? Mirra::AttachMode::singleWriter
                              : Mirra::AttachMode::reader;
  const std::string table = sharedTableName(home.name, vrf, af, source, kind, mode);
  return Kel::Ptr<RpHashStatus>(
      new RpHashStatus(RpHashStatus::Table::attachShared(table, attachMode, home.options)));
}

std::vector<TableRemoval> sharedTablesUnlink(const std::string& name, const L3::VrfName& vrf) {
  std::vector<TableRemoval> removals;
  for (const std::string& table : sharedTableNames(name, vrf)) {
    Mirra::UnlinkReport report = RpHashStatus::Table::unlinkShared(table);
    if (report.found()) removals.push_back(TableRemoval{table, std::move(report)});
  }
  return removals;
}

}  // namespace PimrpPipeline
