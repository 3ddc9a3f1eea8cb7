#include "tools/KnownGroupSpans.h"

#include <algorithm>
#include <iterator>

namespace PimrpTool {

std::pair<KnownGroupSpans::Number, KnownGroupSpans::Number> KnownGroupSpans::boundsOf(
    const Ipkit::IpGenPrefix& range) {
  const Number first = numberOf(range.address());
  const Number size = Number{1} << (addressBits(range.af()) - range.len());
  return {first, first + size - 1};
}

std::uint64_t KnownGroupSpans::heldIn(Number first, Number last) const {
  std::uint64_t held = 0;
  auto span = spans_.upper_bound(first);
  if (span != spans_.begin()) --span;
  for (; span != spans_.end() && span->first <= last; ++span) {
    const Number from = std::max(span->first, first);
    const Number to = std::min(span->second, last);
    if (from <= to) held += static_cast<std::uint64_t>(to - from + 1);
  }
  return held;
}

std::uint64_t KnownGroupSpans::missingIn(const Ipkit::IpGenPrefix& range) const {
  const auto [first, last] = boundsOf(range);
  return static_cast<std::uint64_t>(last - first + 1) - heldIn(first, last);
}

void KnownGroupSpans::add(const Ipkit::IpGenPrefix& range) {
  auto [first, last] = boundsOf(range);
  count_ += static_cast<std::uint64_t>(last - first + 1) - heldIn(first, last);
  // Every span that overlaps or touches [first, last] joins it. Written without `last + 1`,
  // which wraps at the highest IPv6 address, a group like any other.
  const auto joins = [](Number before, Number after) {
    return before >= after || before + 1 == after;
  };
  auto span = spans_.upper_bound(first);
  if (span != spans_.begin() && joins(std::prev(span)->second, first)) --span;
  while (span != spans_.end() && joins(last, span->first)) {
    first = std::min(first, span->first);
    last = std::max(last, span->second);
    span = spans_.erase(span);
  }
  spans_.emplace(first, last);
}

void KnownGroupSpans::remove(const Ipkit::IpGenPrefix& range) {
  const auto [first, last] = boundsOf(range);
  count_ -= heldIn(first, last);
  auto span = spans_.upper_bound(first);
  if (span != spans_.begin()) --span;
  while (span != spans_.end() && span->first <= last) {
    const auto [spanFirst, spanLast] = *span;
    if (spanLast < first) {
      ++span;
      continue;
    }
    span = spans_.erase(span);
    if (spanFirst < first) spans_.emplace(spanFirst, first - 1);
    if (spanLast > last) span = spans_.emplace(last + 1, spanLast).first;
  }
}

}  // namespace PimrpTool
