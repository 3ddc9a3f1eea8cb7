#pragma once
// What `pimrp --what-if` reports: every move of groups and ranges from one RP to another that a
// change makes in the final tables, and the allocator requests the change causes. Plain values:
// RpMoves fills them, an Output prints them.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "model/Pim/PimTypes.h"

namespace PimrpTool {

// The most example groups a move lists: its lowest addresses.
constexpr std::size_t kMoveExamples = 3;

// The groups and ranges of one VRF, family and mode whose final entry named `from` before the
// change and names `to` after it.
struct RpMove {
  std::string vrf;
  Ipkit::AddressFamily af = Ipkit::AddressFamily::ipv4;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  Ipkit::IpGenAddr from;     // unknown family: no RP (no final entry, or one without an address)
  Ipkit::IpGenAddr to;       // unknown family: no RP
  std::uint64_t groups = 0;  // entries of the final per-group table
  std::uint64_t ranges = 0;  // entries of the final per-range table
  // The lowest of the groups, ascending, at most kMoveExamples of them.
  std::vector<Ipkit::IpGenAddr> examples;
};

// Moves ascend by VRF (default first, then by name, as the tool lists VRFs), family (IPv4
// first), mode (sparse first), from, to; no RP sorts before every address. A move has at least
// one group or one range.
struct WhatIfReport {
  std::uint64_t groupsChanged = 0;  // the sum of the moves' groups
  std::uint64_t rangesChanged = 0;  // the sum of the moves' ranges
  std::vector<RpMove> moves;
  // The requests the allocation-request sink received while the change was applied and settled.
  std::uint64_t allocRequests = 0;
  std::uint64_t deallocRequests = 0;
};

}  // namespace PimrpTool
