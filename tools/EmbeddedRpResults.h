#pragma once
// What the shows answer about embedded RP, as plain values read from the library's embedded-RP
// status (Results.h holds them in its answers).

#include <cstdint>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "rp/PimEmbeddedRpStatus.h"

namespace PimrpTool {

// show rp, for a group of a family with embedded RP on: what its address names and what the
// status does with it, with how many groups use embedded RP and the limit.
struct EmbeddedRpAnswer {
  Routing::Pim::EmbeddedRpAdmission admission;
  std::uint64_t groupsInUse = 0;
  std::uint32_t limit = 0;
};

struct EmbeddedRpRow {
  Ipkit::IpGenAddr rp;
  std::uint32_t groups = 0;
};

// show embedded-rp: the settings in force, how many groups use it and wait over the limit, the
// overflow count, and each RP in use with its number of groups, ascending.
struct EmbeddedRpListing {
  bool enabled = false;
  std::uint32_t limit = 0;
  std::vector<Ipkit::IpGenPrefix> groupRanges;  // empty: all of ff70::/12
  std::uint64_t groupsInUse = 0;
  std::uint64_t waiting = 0;
  std::uint64_t overflowCount = 0;
  std::vector<EmbeddedRpRow> rps;
};

}  // namespace PimrpTool
