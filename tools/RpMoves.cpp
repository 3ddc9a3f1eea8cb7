#include "tools/RpMoves.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace PimrpTool {
namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;

// The moves of one VRF, family and mode, per pair of RPs (from, to), ascending.
class MoveTally {
 public:
  MoveTally(const std::string& vrf, Ipkit::AddressFamily af, Routing::Pim::Mode mode)
      : vrf_(vrf), af_(af), mode_(mode) {}

  // REQUIRES: from differs from to; groups come in ascending order.
  void groupMoved(const IpGenPrefix& key, const IpGenAddr& from, const IpGenAddr& to) {
    RpMove& move = moveOf(from, to);
    ++move.groups;
    if (move.examples.size() < kMoveExamples) move.examples.push_back(key.address());
  }
  // REQUIRES: from differs from to.
  void rangeMoved(const IpGenPrefix&, const IpGenAddr& from, const IpGenAddr& to) {
    ++moveOf(from, to).ranges;
  }

  void movesAppendTo(std::vector<RpMove>& moves) {
    for (auto& [rps, move] : moves_) moves.push_back(std::move(move));
    moves_.clear();
    last_ = nullptr;
  }

 private:
  // Neighbouring groups mostly make the same move: the last one found is tried first.
  RpMove& moveOf(const IpGenAddr& from, const IpGenAddr& to) {
    if (last_ != nullptr && last_->from == from && last_->to == to) return *last_;
    auto [at, created] = moves_.try_emplace({from, to});
    if (created) at->second = RpMove{vrf_, af_, mode_, from, to, 0, 0, {}};
    last_ = &at->second;
    return *last_;
  }

  const std::string vrf_;
  const Ipkit::AddressFamily af_;
  const Routing::Pim::Mode mode_;
  std::map<std::pair<IpGenAddr, IpGenAddr>, RpMove> moves_;
  RpMove* last_ = nullptr;
};

// Calls moved(key, from, to) for every key whose RP differs between `before` and `now` (null: an
// empty table), in ascending key order.
template <class Moved>
void compareInStep(const std::vector<FinalEntry>& before, const Routing::Pim::RpHashStatus* now,
                   Moved moved) {
  auto old = before.begin();
  const auto oldEnd = before.end();
  const IpGenAddr noRp;
  const auto gone = [&](const FinalEntry& entry) {
    if (!(entry.rp == noRp)) moved(entry.key, entry.rp, noRp);
  };
  if (now != nullptr) {
    for (const Routing::Pim::RpHash& entry : now->rpHash()) {
      for (; old != oldEnd && old->key < entry.key(); ++old) gone(*old);
      IpGenAddr from;
      if (old != oldEnd && old->key == entry.key()) from = (old++)->rp;
      if (!(from == entry.address())) moved(entry.key(), from, entry.address());
    }
  }
  for (; old != oldEnd; ++old) gone(*old);
}

// The moves between one VRF, family and mode's copy and its tables now; either may be missing
// (null), and then reads as empty.
void tablesCompared(const FinalTablesCopy* copy, const FinalTables* tables,
                    std::vector<RpMove>& moves) {
  static const std::vector<FinalEntry> kNoEntries;
  MoveTally tally(tables != nullptr ? tables->vrf : copy->vrf,
                  tables != nullptr ? tables->af : copy->af,
                  tables != nullptr ? tables->mode : copy->mode);
  compareInStep(copy != nullptr ? copy->groups : kNoEntries,
                tables != nullptr ? tables->groups.ptr() : nullptr,
                [&](const IpGenPrefix& key, const IpGenAddr& from, const IpGenAddr& to) {
                  tally.groupMoved(key, from, to);
                });
  compareInStep(copy != nullptr ? copy->ranges : kNoEntries,
                tables != nullptr ? tables->ranges.ptr() : nullptr,
                [&](const IpGenPrefix& key, const IpGenAddr& from, const IpGenAddr& to) {
                  tally.rangeMoved(key, from, to);
                });
  tally.movesAppendTo(moves);
}

bool movesInOrder(const RpMove& a, const RpMove& b) {
  if (a.vrf != b.vrf) return vrfListedBefore(a.vrf, b.vrf);
  return std::tie(a.af, a.mode, a.from, a.to) < std::tie(b.af, b.mode, b.from, b.to);
}

}  // namespace

WhatIfReport rpMovesSince(const FinalTableSnapshot& before, const std::vector<FinalTables>& now) {
  WhatIfReport report;
  for (const FinalTables& tables : now) {
    tablesCompared(before.copyOf(tables.vrf, tables.af, tables.mode), &tables, report.moves);
  }
  for (const FinalTablesCopy& copy : before.copies()) {
    const bool gone = std::none_of(now.begin(), now.end(), [&](const FinalTables& tables) {
      return tables.vrf == copy.vrf && tables.af == copy.af && tables.mode == copy.mode;
    });
    if (gone) tablesCompared(&copy, nullptr, report.moves);
  }
  std::sort(report.moves.begin(), report.moves.end(), movesInOrder);
  for (const RpMove& move : report.moves) {
    report.groupsChanged += move.groups;
    report.rangesChanged += move.ranges;
  }
  return report;
}

}  // namespace PimrpTool
