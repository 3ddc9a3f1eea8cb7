#include "pipeline/TableHome.h"

#include <dirent.h>

#include <set>

namespace PimrpPipeline {

using Routing::Pim::Mode;
using Routing::Pim::RpHashStatus;

namespace {

// What the VRF adds between the common name and the role: nothing for the default VRF, so that
// its tables keep the names they had before VRFs named tables.
std::string vrfPart(const L3::VrfName& vrf) {
  return vrf == L3::VrfName() ? std::string() : ".vrf." + vrf.string();
}

// Where Linux keeps POSIX shared-memory objects, one file each.
const char kSharedMemoryDirectory[] = "/dev/shm";

// Whether `rest` is a role, or a role followed by a segment's suffix (".lock", ".g<k>").
bool startsWithRole(const std::string& rest) {
  bool found = false;
  forEachTableRole([&](Ipkit::AddressFamily af, HashSource source, HashKind kind, Mode mode) {
    const std::string role = tableRole(af, source, kind, mode);
    if (rest.compare(0, role.size(), role) != 0) return;
    found = found || rest.size() == role.size() || rest[role.size()] == '.';
  });
  return found;
}

// The VRF that the segment `entry` belongs to under `name`, or "" when it is none of them.
std::string vrfOfSegment(const std::string& name, const std::string& entry) {
  const std::string prefix = name + ".vrf.";
  if (entry.compare(0, prefix.size(), prefix) != 0) return "";
  const std::size_t dot = entry.find('.', prefix.size());
  if (dot == std::string::npos || dot == prefix.size()) return "";
  const std::string vrf = entry.substr(prefix.size(), dot - prefix.size());
  const bool plain = vrf.size() <= L3::VrfName::maxLength &&
                     vrf.find_first_not_of(
                         "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                         "0123456789_-") == std::string::npos;
  if (!plain || !startsWithRole(entry.substr(dot + 1))) return "";
  return vrf;
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

std::vector<L3::VrfName> sharedTableVrfs(const std::string& name) {
  std::set<std::string> vrfs;
  DIR* const directory = opendir(kSharedMemoryDirectory);
  if (directory == nullptr) return {};
  while (const dirent* entry = readdir(directory)) {
    const std::string vrf = vrfOfSegment(name, entry->d_name);
    if (!vrf.empty() && vrf != "default") vrfs.insert(vrf);
  }
  closedir(directory);
  return std::vector<L3::VrfName>(vrfs.begin(), vrfs.end());
}

std::vector<TableRemoval> sharedTablesUnlinkAll(const std::string& name) {
  std::vector<TableRemoval> removals = sharedTablesUnlink(name);
  for (const L3::VrfName& vrf : sharedTableVrfs(name)) {
    for (TableRemoval& removal : sharedTablesUnlink(name, vrf)) {
      removals.push_back(std::move(removal));
    }
  }
  return removals;
}

}  // namespace PimrpPipeline
