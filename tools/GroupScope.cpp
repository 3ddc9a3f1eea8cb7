#include "tools/GroupScope.h"

#include <utility>

namespace PimrpTool {
namespace {

struct ScopeEntry {
  ScopeRange scope;
  std::vector<Ipkit::IpGenPrefix> prefixes;
};

// ff3x::/32: the source-specific range of every IPv6 scope x.
std::vector<Ipkit::IpGenPrefix> ip6SourceSpecific() {
  std::vector<Ipkit::IpGenPrefix> prefixes;
  const char* digits = "0123456789abcdef";
  for (int scope = 0; scope < 16; ++scope) {
    prefixes.emplace_back(std::string("ff3") + digits[scope] + "::/32");
  }
  return prefixes;
}

ScopeEntry scopeEntry(ScopeKind kind, const char* range, std::vector<Ipkit::IpGenPrefix> prefixes) {
  return ScopeEntry{ScopeRange{kind, range}, std::move(prefixes)};
}

// Entries appended one at a time: GCC 12 at -O3 takes the strings of an initializer list of them
// for uninitialized (-Wmaybe-uninitialized), which the warnings-as-errors build refuses.
const std::vector<ScopeEntry>& scopeTable() {
  static const std::vector<ScopeEntry> table = [] {
    std::vector<ScopeEntry> entries;
    entries.push_back(
        scopeEntry(ScopeKind::linkLocal, "224.0.0.0/24", {Ipkit::IpGenPrefix("224.0.0.0/24")}));
    entries.push_back(
        scopeEntry(ScopeKind::sourceSpecific, "232.0.0.0/8", {Ipkit::IpGenPrefix("232.0.0.0/8")}));
    entries.push_back(
        scopeEntry(ScopeKind::linkLocal, "ff02::/16", {Ipkit::IpGenPrefix("ff02::/16")}));
    entries.push_back(scopeEntry(ScopeKind::sourceSpecific, "ff3x::/32", ip6SourceSpecific()));
    return entries;
  }();
  return table;
}

}  // namespace

std::optional<ScopeRange> groupScope(const Ipkit::IpGenAddr& group) {
  for (const auto& entry : scopeTable()) {
    for (const auto& prefix : entry.prefixes) {
      if (prefix.contains(group)) return entry.scope;
    }
  }
  return std::nullopt;
}

std::vector<ScopeNote> rangeScope(const Ipkit::IpGenPrefix& range) {
  std::vector<ScopeNote> notes;
  for (const auto& entry : scopeTable()) {
    bool within = false, includes = false;
    for (const auto& prefix : entry.prefixes) {
      within = within || prefix.contains(range);
      includes = includes || range.contains(prefix);
    }
    if (within || includes) notes.push_back({entry.scope, within});
  }
  return notes;
}

const char* scopeKindWord(ScopeKind kind) {
  return kind == ScopeKind::linkLocal ? "link-local" : "source-specific";
}

const char* scopeKindMeaning(ScopeKind kind) {
  return kind == ScopeKind::linkLocal ? "they are never routed"
                                      : "routers serve them without an RP";
}

}  // namespace PimrpTool
