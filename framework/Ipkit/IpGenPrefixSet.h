#pragma once
// Ipkit::IpGenPrefixSet: a set of prefixes held by value, such as the group ranges one RP serves.
//
// Invariants:
//  1. Each prefix is held at most once; iteration is in ascending IpGenPrefix order, so two sets
//     with the same members iterate, print and compare the same.
//  2. The empty prefix is a value like any other: the set does not refuse it, callers that mean
//     "no prefix" should not insert it.

#include <cstddef>
#include <set>

#include "framework/Ipkit/IpGenPrefix.h"

namespace Ipkit {

class IpGenPrefixSet {
 public:
  using const_iterator = std::set<IpGenPrefix>::const_iterator;

  IpGenPrefixSet() = default;

  // True when the prefix was not already a member.
  bool prefixIs(const IpGenPrefix& prefix) { return prefixes_.insert(prefix).second; }
  // True when the prefix was a member.
  bool prefixDel(const IpGenPrefix& prefix) { return prefixes_.erase(prefix) != 0; }
  void prefixDelAll() { prefixes_.clear(); }

  bool prefix(const IpGenPrefix& prefix) const { return prefixes_.count(prefix) != 0; }
  std::size_t size() const { return prefixes_.size(); }
  bool empty() const { return prefixes_.empty(); }

  const_iterator begin() const { return prefixes_.begin(); }
  const_iterator end() const { return prefixes_.end(); }

  bool operator==(const IpGenPrefixSet& other) const { return prefixes_ == other.prefixes_; }
  bool operator!=(const IpGenPrefixSet& other) const { return prefixes_ != other.prefixes_; }

 private:
  std::set<IpGenPrefix> prefixes_;
};

}  // namespace Ipkit
