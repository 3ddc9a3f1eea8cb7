#pragma once
// PimrpTool::GroupScope: the multicast ranges whose groups routers serve without an RP, for notes
// beside the answers: source-specific multicast (232.0.0.0/8, ff3x::/32 for every scope x), whose
// groups a router joins toward the source itself, and link-local control (224.0.0.0/24,
// ff02::/16), whose groups are never routed. The library gives them an RP like any other group;
// these notes inform the operator and change no answer.
//
// Invariants:
//  1. A group lies in at most one scope range.
//  2. A range either lies within a scope range or includes some of its groups; both are noted.

#include <optional>
#include <string>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"

namespace PimrpTool {

enum class ScopeKind { sourceSpecific, linkLocal };

// One scope range, by the name the operator knows it by ("ff3x::/32" stands for sixteen prefixes).
struct ScopeRange {
  ScopeKind kind = ScopeKind::sourceSpecific;
  std::string range;
};

// A scope range that a range lies within (within) or holds groups of (includes).
struct ScopeNote {
  ScopeRange scope;
  bool within = false;
};

// The scope range that holds the group, if any.
std::optional<ScopeRange> groupScope(const Ipkit::IpGenAddr& group);
// The scope ranges the range lies within or includes, in the order of the scope table.
std::vector<ScopeNote> rangeScope(const Ipkit::IpGenPrefix& range);

// "source-specific" or "link-local".
const char* scopeKindWord(ScopeKind kind);
// What the kind means for the groups: "routers serve them without an RP" or "they are never
// routed".
const char* scopeKindMeaning(ScopeKind kind);

}  // namespace PimrpTool
