#pragma once
// What the fuzz targets leave out so that an input's running time stays bounded by its length:
// known-group statements naming many groups (a /12 names 1,048,576, each reviewed eight times),
// whose cost is measured by bench/tool_scaling.sh instead.

#include <variant>

#include "framework/Ipkit/IpGenPrefix.h"
#include "tools/Statement.h"

namespace PimrpFuzz {

constexpr unsigned kMaxGroupBits = 8;  // at most 256 groups per statement

inline bool namesTooManyGroups(const PimrpTool::Statement& statement) {
  const auto tooWide = [](const Ipkit::IpGenPrefix& range) {
    const unsigned bits = range.af() == Ipkit::AddressFamily::ipv4 ? 32 : 128;
    return bits - range.len() > kMaxGroupBits;
  };
  if (const auto* s = std::get_if<PimrpTool::GroupStatement>(&statement)) {
    return tooWide(s->group.value);
  }
  if (const auto* s = std::get_if<PimrpTool::NoGroupStatement>(&statement)) {
    return tooWide(s->group.value);
  }
  return false;
}

}  // namespace PimrpFuzz
