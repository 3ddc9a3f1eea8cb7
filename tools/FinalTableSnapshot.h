#pragma once
// PimrpTool::FinalTableSnapshot: a session's final per-group and per-range tables as they stood,
// kept so that a change can be compared against them once it has been made.
//
// Invariants:
//  1. One copy per VRF, family and mode, in the order the tables were given; each copy holds
//     every entry's key and RP (unknown family: the entry names none) in ascending key order,
//     the order the tables iterate in.
//  2. The copies are values: changing the tables afterwards changes nothing here.

#include <string>
#include <vector>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "model/Pim/PimTypes.h"
#include "tools/FinalTables.h"

namespace PimrpTool {

// One entry of a final table, as far as a what-if compares it.
struct FinalEntry {
  Ipkit::IpGenPrefix key;
  Ipkit::IpGenAddr rp;  // unknown family: no RP
};

struct FinalTablesCopy {
  std::string vrf;
  Ipkit::AddressFamily af = Ipkit::AddressFamily::ipv4;
  Routing::Pim::Mode mode = Routing::Pim::modePimSm;
  std::vector<FinalEntry> groups;
  std::vector<FinalEntry> ranges;
};

class FinalTableSnapshot {
 public:
  explicit FinalTableSnapshot(const std::vector<FinalTables>& tables);

  const std::vector<FinalTablesCopy>& copies() const { return copies_; }
  // The copy of one VRF, family and mode; null when none was taken.
  const FinalTablesCopy* copyOf(const std::string& vrf, Ipkit::AddressFamily af,
                                Routing::Pim::Mode mode) const;

 private:
  std::vector<FinalTablesCopy> copies_;
};

}  // namespace PimrpTool
