#pragma once
// What `show rp-hash summary` answers: how the known groups of each VRF, family and mode spread
// over the RPs that serve them in the final per-group table. Plain values: RpLoadCount fills
// them, an Output prints them.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "model/Pim/PimTypes.h"

namespace PimrpTool {

// One RP and the known groups whose final entry names it.
struct RpLoad {
  Ipkit::IpGenAddr address;
  std::uint64_t groups = 0;  // at least 1
  double share = 0;          // groups over the row's known groups
};

// How evenly the counts of the RPs of a row spread, over the n RPs listed (each serves at least
// one group; the groups without an RP are no part of it):
//  - maxOverMin: the largest count over the smallest; 1 when n is 0 or 1.
//  - cv: the coefficient of variation, the population standard deviation of the counts (the
//    square root of the mean squared distance from the mean, dividing by n) over their mean; 0
//    when n is 0 or 1.
// Both read "perfectly even" (1 and 0) for one RP and, vacuously, for none.
struct RpLoadSpread {
  double maxOverMin = 1;
  double cv = 0;
};

// The spread of `counts`, as RpLoadSpread defines it. REQUIRES: every count is at least 1.
RpLoadSpread rpLoadSpreadOf(const std::vector<std::uint64_t>& counts);

// One VRF, family and mode: its known groups, those without a final entry that names an RP, and
// each RP's load, ascending by address.
struct RpLoadRow {
  std::string vrf;
  Ipkit::AddressFamily af = Ipkit::AddressFamily::ipv4;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  std::uint64_t groups = 0;
  std::uint64_t noRp = 0;
  std::vector<RpLoad> rps;
  RpLoadSpread spread;
};

// show rp-hash summary: rows by VRF, family (IPv4 first) and mode (sparse first).
struct RpHashSummary {
  std::optional<Ipkit::AddressFamily> af;  // absent: both families
  std::vector<RpLoadRow> rows;
};

}  // namespace PimrpTool
