// Folding a large access list into group prefixes: the interval-set fold against a plain sorted
// vector of disjoint ranges doing the same first-match fold.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "framework/Acl/AclToPrefix.h"
#include "framework/Acl/IpFilter.h"
#include "framework/Acl/IpRuleConfig.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"

namespace {

constexpr std::uint32_t kGroupFirst = 0xE0000000u;
constexpr std::uint32_t kGroupLast = 0xEFFFFFFFu;
constexpr int kRules = 10000;

// Permit and deny in equal measure, lengths 4..32, nine rules in ten inside 224.0.0.0/4. The list
// is ordered longest prefix first, as hand-written lists put exceptions before the ranges they
// carve from; in random order one early /4 or /5 would decide the whole group space and leave the
// remaining thousands of rules nothing to do.
const std::vector<Acl::IpRuleConfig>& randomRules() {
  static const std::vector<Acl::IpRuleConfig> rules = [] {
    std::mt19937_64 rng(0xac1b0001u);
    std::uniform_int_distribution<std::uint32_t> address;
    std::uniform_int_distribution<unsigned> length(4, 32);
    std::uniform_int_distribution<unsigned> percent(0, 99);
    std::vector<Acl::IpRuleConfig> result;
    result.reserve(kRules);
    for (int i = 0; i < kRules; ++i) {
      const auto action = percent(rng) < 50 ? Acl::AclAction::permit : Acl::AclAction::deny;
      std::uint32_t a = address(rng);
      if (percent(rng) < 90) a = kGroupFirst | (a & 0x0FFFFFFFu);
      const unsigned len = length(rng);
      result.emplace_back(action, Acl::IpFilter(Ipkit::IpGenPrefix(Ipkit::IpGenAddr::ip4(a), len)));
    }
    std::stable_sort(result.begin(), result.end(), [](const auto& a, const auto& b) {
      return a.filter().prefix().len() > b.filter().prefix().len();
    });
    return result;
  }();
  return rules;
}

void BM_AclToPrefix_Fold10000Rules(benchmark::State& state) {
  const auto& rules = randomRules();
  std::size_t prefixes = 0;
  for (auto _ : state) {
    AclPrefix::AclToPrefix folder;
    for (const auto& rule : rules) folder.handleRule(rule, false);
    Ipkit::IpGenPrefixSet out;
    folder.PermittedPrefixes(out);
    prefixes = out.size();
    benchmark::DoNotOptimize(prefixes);
  }
  state.counters["prefixes"] = static_cast<double>(prefixes);
  state.SetItemsProcessed(state.iterations() * kRules);
}
BENCHMARK(BM_AclToPrefix_Fold10000Rules)->Unit(benchmark::kMillisecond);

// The baseline: undecided space as a sorted vector of disjoint closed ranges, split and erased in
// place; permitted pieces collected unsorted, then sorted and joined at the end.
struct Span {
  std::uint32_t first;
  std::uint32_t last;
};

void sortedIntervalsFold(const std::vector<Acl::IpRuleConfig>& rules, Ipkit::IpGenPrefixSet& out) {
  std::vector<Span> undecided{{kGroupFirst, kGroupLast}};
  std::vector<Span> permitted;
  for (const auto& rule : rules) {
    std::uint32_t lo = 0;
    std::uint32_t hi = 0xFFFFFFFFu;
    if (!rule.filter().any()) {
      const auto& p = rule.filter().prefix();
      const std::uint32_t host = p.len() >= 32 ? 0u : (0xFFFFFFFFu >> p.len());
      lo = p.address().ip4Addr().value() & ~host;
      hi = lo | host;
    }
    lo = std::max(lo, kGroupFirst);
    hi = std::min(hi, kGroupLast);
    if (lo > hi) continue;
    auto it = std::lower_bound(undecided.begin(), undecided.end(), lo,
                               [](const Span& s, std::uint32_t v) { return s.last < v; });
    while (it != undecided.end() && it->first <= hi) {
      const Span overlap{std::max(it->first, lo), std::min(it->last, hi)};
      if (rule.action() == Acl::AclAction::permit) permitted.push_back(overlap);
      const Span before{it->first, overlap.first - 1};
      const Span after{overlap.last + 1, it->last};
      const bool keepBefore = it->first < overlap.first;
      const bool keepAfter = overlap.last < it->last;
      it = undecided.erase(it);
      if (keepAfter) it = undecided.insert(it, after);
      if (keepBefore) it = undecided.insert(it, before) + 1;
      if (keepAfter) ++it;
    }
  }
  std::sort(permitted.begin(), permitted.end(),
            [](const Span& a, const Span& b) { return a.first < b.first; });
  std::vector<Span> joined;
  for (const Span& s : permitted) {
    if (!joined.empty() && joined.back().last + 1 == s.first) {
      joined.back().last = s.last;
    } else {
      joined.push_back(s);
    }
  }
  for (const Span& s : joined) AclPrefix::AclToPrefix::ip4RangeToPrefixes(s.first, s.last, out);
}

void BM_Baseline_SortedIntervalsFold10000Rules(benchmark::State& state) {
  const auto& rules = randomRules();
  {
    // Both folds must agree, or the comparison means nothing.
    AclPrefix::AclToPrefix folder;
    for (const auto& rule : rules) folder.handleRule(rule, false);
    Ipkit::IpGenPrefixSet expected;
    folder.PermittedPrefixes(expected);
    Ipkit::IpGenPrefixSet actual;
    sortedIntervalsFold(rules, actual);
    if (actual != expected) {
      state.SkipWithError("baseline and AclToPrefix disagree");
      return;
    }
  }
  std::size_t prefixes = 0;
  for (auto _ : state) {
    Ipkit::IpGenPrefixSet out;
    sortedIntervalsFold(rules, out);
    prefixes = out.size();
    benchmark::DoNotOptimize(prefixes);
  }
  state.counters["prefixes"] = static_cast<double>(prefixes);
  state.SetItemsProcessed(state.iterations() * kRules);
}
BENCHMARK(BM_Baseline_SortedIntervalsFold10000Rules)->Unit(benchmark::kMillisecond);

}  // namespace
