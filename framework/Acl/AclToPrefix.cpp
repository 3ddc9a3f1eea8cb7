#include "framework/Acl/AclToPrefix.h"

#include <algorithm>

#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Exception.h"

namespace AclPrefix {
namespace {

constexpr std::uint32_t kGroupSpaceLower = 0xE0000000u;  // 224.0.0.0
constexpr std::uint32_t kGroupSpaceUpper = 0xF0000000u;  // 240.0.0.0, excluded

// The closed address range a filter matches, or false when it matches nothing.
bool matchedRange(const Acl::IpFilter& filter, const AclToPrefix::IntervalSet& universe,
                  std::uint32_t& first, std::uint32_t& last) {
  if (filter.any()) {
    const auto all = boost::icl::hull(universe);
    first = boost::icl::first(all);
    last = boost::icl::last(all);
    return true;
  }
  const Ipkit::IpGenPrefix& prefix = filter.prefix();
  if (prefix.af() != Ipkit::AddressFamily::ipv4) return false;
  const unsigned len = prefix.len();
  // Shifting a 32-bit value by 32 is undefined, so a /32 gets its empty host mask directly.
  const std::uint32_t hostMask = len >= 32 ? 0u : (0xFFFFFFFFu >> len);
  first = prefix.address().ip4Addr().value() & ~hostMask;
  last = first | hostMask;
  return true;
}

}  // namespace

AclToPrefix::AclToPrefix() {
  undecided_ += Interval::right_open(kGroupSpaceLower, kGroupSpaceUpper);
  groupSpace_ += Interval::right_open(kGroupSpaceLower, kGroupSpaceUpper);
  universe_ += Interval::closed(0u, 0xFFFFFFFFu);
}

void AclToPrefix::handleRule(const Acl::IpRuleConfig& rule, bool reserved) {
  if (reserved) {
    throw Kel::RangeException("AclToPrefix::handleRule reserved flag must be false");
  }
  ++rulesFolded_;
  std::uint32_t first = 0;
  std::uint32_t last = 0;
  if (!matchedRange(rule.filter(), universe_, first, last)) return;

  // Confining to the group space before forming a right-open interval keeps `last + 1` from
  // wrapping when the rule reaches 255.255.255.255: the group space ends well below it.
  const auto group = boost::icl::hull(groupSpace_);
  first = std::max(first, boost::icl::first(group));
  last = std::min(last, boost::icl::last(group));
  if (first > last) return;
  const auto match = Interval::right_open(first, last + 1);

  // Only the still-undecided part of the match is this rule's to decide; earlier rules own the
  // rest. equal_range visits just the undecided intervals the match overlaps (`undecided_ & match`
  // would copy the whole set first), and all of them but the two at the ends leave undecided_ for
  // good, which is what keeps the fold amortised logarithmic per rule.
  if (rule.action() == Acl::AclAction::permit) {
    const auto overlapped = undecided_.equal_range(match);
    for (auto it = overlapped.first; it != overlapped.second; ++it) permitted_ += *it & match;
  }
  undecided_ -= match;
}

void AclToPrefix::PermittedPrefixes(Ipkit::IpGenPrefixSet& out) const {
  // permitted_ keeps adjacent intervals joined, so covering each interval minimally covers the
  // whole set minimally: no prefix can straddle a gap between two intervals.
  for (const auto& interval : permitted_) {
    ip4RangeToPrefixes(interval.lower(), interval.upper() - 1, out);
  }
}

void AclToPrefix::ip4RangeToPrefixes(std::uint32_t first, std::uint32_t last,
                                     Ipkit::IpGenPrefixSet& out) {
  if (first > last) {
    throw Kel::RangeException("AclToPrefix::ip4RangeToPrefixes first > last not allowed");
  }
  // 64-bit cursor and end, so that the whole space (end 2^32) and the top address need no
  // special cases.
  std::uint64_t next = first;
  const std::uint64_t end = std::uint64_t{last} + 1;
  while (next < end) {
    // The biggest block starting at `next` is limited by how `next` is aligned and by how much
    // of the range is left; taking it greedily gives the fewest prefixes.
    const unsigned alignBits = next == 0 ? 32u : static_cast<unsigned>(__builtin_ctzll(next));
    const unsigned fitBits = 63u - static_cast<unsigned>(__builtin_clzll(end - next));
    const unsigned bits = std::min(alignBits, fitBits);
    out.prefixIs(
        Ipkit::IpGenPrefix(Ipkit::IpGenAddr::ip4(static_cast<std::uint32_t>(next)), 32u - bits));
    next += std::uint64_t{1} << bits;
  }
}

void AclToPrefix::listToPrefixes(const Acl::AclSubConfig& list, Ipkit::IpGenPrefixSet& out) {
  AclToPrefix folder;
  for (const auto& [sequence, id] : list.ruleBySequence()) {
    folder.handleRule(list.ipRuleById(id), false);
  }
  folder.PermittedPrefixes(out);
}

}  // namespace AclPrefix
