#pragma once
// AclPrefix::AclToPrefix: turns an IPv4 access list into the multicast group prefixes it permits,
// so that a group-to-RP table can be built from a list that names groups by permit/deny rules.
//
// Rules are folded one at a time in ascending sequence order. The first rule that matches an
// address decides it: a permit adds it to the permitted set, a deny excludes it; an address no
// rule matches is not permitted. All state is interval sets over 32-bit addresses, so a rule
// costs O(log n) amortised in the number of intervals, whatever the size of its prefix.
//
// Invariants:
//  1. undecided_ and permitted_ are disjoint and both lie inside groupSpace_ (224.0.0.0/4).
//  2. Every interval of undecided_ and permitted_ is right-open and ends at or below
//     groupSpace_'s upper bound 0xF0000000, so `upper - 1` never wraps.
//  3. groupSpace_ and universe_ never change after construction; universe_ is the one closed
//     interval, because the top address 0xFFFFFFFF has no right-open upper bound in 32 bits.
//  4. rulesFolded_ counts every rule handleRule accepted, including rules that matched nothing.
//  5. After the last rule, permitted_ holds exactly the group addresses the list permits.

#include <boost/icl/interval_set.hpp>
#include <cstdint>

#include "framework/Acl/AclSubConfig.h"
#include "framework/Acl/IpRuleConfig.h"
#include "framework/Ipkit/IpGenPrefixSet.h"

namespace AclPrefix {

class AclToPrefix {
 public:
  using IntervalSet = boost::icl::interval_set<unsigned int>;
  using Interval = boost::icl::interval<unsigned int>;

  AclToPrefix();

  // Folds the next rule of the list. A rule matches every address when its filter is `any`,
  // otherwise the addresses of its IPv4 prefix; a prefix of another family matches nothing,
  // since group lists here are IPv4 only.
  //
  // `reserved` selects nothing yet: every caller in this system passes false. It is refused
  // rather than silently ignored so that a caller who expects it to mean something (withdrawal,
  // reverse folding) finds out at once instead of getting a quietly wrong permitted set.
  // REQUIRES: rules arrive in ascending sequence order, each exactly once.
  // REQUIRES: !reserved, else Kel::RangeException and no change.
  void handleRule(const Acl::IpRuleConfig& rule, bool reserved);

  // Adds to `out` the fewest aligned prefixes that exactly cover the permitted set; `out` is not
  // cleared first, so a caller can gather several lists into one set.
  void PermittedPrefixes(Ipkit::IpGenPrefixSet& out) const;

  // Adds to `out` the group prefixes `list` permits: a new folding of every sequence entry in
  // ascending order. An entry whose rule is not written folds as the default rule, which denies
  // everything, so a list never permits more than its written rules say.
  static void listToPrefixes(const Acl::AclSubConfig& list, Ipkit::IpGenPrefixSet& out);

  // Adds to `out` the fewest aligned IPv4 prefixes that exactly cover first..last (both included).
  // REQUIRES: first <= last, else Kel::RangeException and `out` unchanged.
  static void ip4RangeToPrefixes(std::uint32_t first, std::uint32_t last,
                                 Ipkit::IpGenPrefixSet& out);

  // The group space no rule has decided yet.
  const IntervalSet& undecided() const { return undecided_; }
  // The group addresses a rule has permitted.
  const IntervalSet& permitted() const { return permitted_; }
  // The multicast space results are confined to.
  const IntervalSet& groupSpace() const { return groupSpace_; }
  // What `any` matches: every IPv4 address.
  const IntervalSet& universe() const { return universe_; }
  std::uint64_t rulesFolded() const { return rulesFolded_; }

 private:
  IntervalSet undecided_;
  IntervalSet permitted_;
  IntervalSet groupSpace_;
  IntervalSet universe_;
  std::uint64_t rulesFolded_ = 0;
};

}  // namespace AclPrefix
