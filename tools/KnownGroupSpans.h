#pragma once
// PimrpTool::KnownGroupSpans: the known groups of one address family as disjoint spans of
// addresses, so that the statements of a whole script can be judged against the bound on known
// groups before any of them is applied. A span costs one tree node whatever its length: the
// record of a script that names whole ranges stays small.
//
// Invariants:
//  1. Spans are disjoint and never adjacent: two that would touch are one.
//  2. count() is the number of addresses the spans hold.

#include <cstdint>
#include <map>

#include "framework/Ipkit/IpGenPrefix.h"
#include "tools/AddressNumber.h"

namespace PimrpTool {

class KnownGroupSpans {
 public:
  std::uint64_t count() const { return count_; }
  // How many addresses of the range the spans do not hold yet.
  std::uint64_t missingIn(const Ipkit::IpGenPrefix& range) const;
  void add(const Ipkit::IpGenPrefix& range);
  void remove(const Ipkit::IpGenPrefix& range);

 private:
  using Number = AddressNumber;

  // The first and last address of the range, both included. REQUIRES: the range holds at most
  // 2^64 addresses.
  static std::pair<Number, Number> boundsOf(const Ipkit::IpGenPrefix& range);
  // How many addresses of [first, last] the spans hold.
  std::uint64_t heldIn(Number first, Number last) const;

  std::map<Number, Number> spans_;  // first address -> last address
  std::uint64_t count_ = 0;
};

}  // namespace PimrpTool
