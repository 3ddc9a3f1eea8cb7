#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "framework/Acl/AclToPrefix.h"
#include "framework/Acl/IpFilter.h"
#include "framework/Acl/IpRuleConfig.h"
#include "framework/Ipkit/AddressFamily.h"
#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Ipkit/IpGenPrefixSet.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/String.h"

namespace {

using AclPrefix::AclToPrefix;
using Interval = AclToPrefix::Interval;
using IntervalSet = AclToPrefix::IntervalSet;

constexpr std::uint32_t kGroupFirst = 0xE0000000u;
constexpr std::uint32_t kGroupLast = 0xEFFFFFFFu;

Ipkit::IpGenPrefix prefix(const char* text) { return Ipkit::IpGenPrefix(Kel::String(text)); }

Acl::IpRuleConfig permit(const char* text) {
  return Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter(prefix(text)));
}
Acl::IpRuleConfig deny(const char* text) {
  return Acl::IpRuleConfig(Acl::AclAction::deny, Acl::IpFilter(prefix(text)));
}
Acl::IpRuleConfig permitAny() {
  return Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter::anyAddress());
}
Acl::IpRuleConfig denyAny() {
  return Acl::IpRuleConfig(Acl::AclAction::deny, Acl::IpFilter::anyAddress());
}

std::vector<Ipkit::IpGenPrefix> asVector(const Ipkit::IpGenPrefixSet& set) {
  return std::vector<Ipkit::IpGenPrefix>(set.begin(), set.end());
}

std::vector<Ipkit::IpGenPrefix> fold(const std::vector<Acl::IpRuleConfig>& rules) {
  AclToPrefix folder;
  for (const auto& rule : rules) folder.handleRule(rule, false);
  Ipkit::IpGenPrefixSet out;
  folder.PermittedPrefixes(out);
  return asVector(out);
}

std::vector<Ipkit::IpGenPrefix> prefixes(std::initializer_list<const char*> texts) {
  std::vector<Ipkit::IpGenPrefix> result;
  for (const char* text : texts) result.push_back(prefix(text));
  std::sort(result.begin(), result.end());
  return result;
}

// A prefix as the closed range of addresses it covers, computed here from its length alone.
struct Range {
  std::uint64_t first;
  std::uint64_t last;
};

Range rangeOf(const Ipkit::IpGenPrefix& p) {
  const std::uint64_t size = std::uint64_t{1} << (32 - p.len());
  const std::uint64_t first = p.address().ip4Addr().value();
  return Range{first, first + size - 1};
}

// The cover as sorted ranges; also checks every prefix is IPv4 and aligned on its own size.
std::vector<Range> coverRanges(const Ipkit::IpGenPrefixSet& set) {
  std::vector<Range> ranges;
  for (const auto& p : set) {
    EXPECT_EQ(p.af(), Ipkit::AddressFamily::ipv4) << p;
    EXPECT_LE(p.len(), 32u) << p;
    const Range range = rangeOf(p);
    EXPECT_EQ(range.first % (range.last - range.first + 1), 0u) << p << " is not aligned";
    ranges.push_back(range);
  }
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.first < b.first; });
  for (std::size_t i = 1; i < ranges.size(); ++i) {
    EXPECT_GT(ranges[i].first, ranges[i - 1].last) << "prefixes overlap";
  }
  return ranges;
}

bool covered(const std::vector<Range>& ranges, std::uint64_t address) {
  auto it = std::upper_bound(ranges.begin(), ranges.end(), address,
                             [](std::uint64_t a, const Range& r) { return a < r.first; });
  if (it == ranges.begin()) return false;
  --it;
  return address <= it->last;
}

// Greedy reference: from the start of what is left, try every length from the shortest and take
// the first prefix that starts exactly there and does not run past the end.
std::size_t greedyMinimalCount(std::uint32_t first, std::uint32_t last) {
  std::size_t count = 0;
  std::uint64_t next = first;
  while (next <= last) {
    for (unsigned len = 0; len <= 32; ++len) {
      const std::uint64_t size = std::uint64_t{1} << (32 - len);
      if (next % size == 0 && next + size - 1 <= last) {
        next += size;
        ++count;
        break;
      }
    }
  }
  return count;
}

// Second reference: walk the binary trie of all prefixes; a node fully inside the range is one
// prefix, a node outside is none, any other node splits in two.
std::size_t trieMinimalCount(std::uint64_t nodeFirst, unsigned hostBits, std::uint64_t first,
                             std::uint64_t last) {
  const std::uint64_t nodeLast = nodeFirst + (std::uint64_t{1} << hostBits) - 1;
  if (nodeLast < first || nodeFirst > last) return 0;
  if (first <= nodeFirst && nodeLast <= last) return 1;
  const std::uint64_t half = std::uint64_t{1} << (hostBits - 1);
  return trieMinimalCount(nodeFirst, hostBits - 1, first, last) +
         trieMinimalCount(nodeFirst + half, hostBits - 1, first, last);
}

TEST(AclToPrefix, Constructed_InitialSetsAndCounterExact) {
  const AclToPrefix folder;
  const auto rightOpen = boost::icl::interval_bounds::right_open();

  ASSERT_EQ(folder.undecided().iterative_size(), 1u);
  const auto undecided = *folder.undecided().begin();
  EXPECT_EQ(undecided.lower(), 0xE0000000u);
  EXPECT_EQ(undecided.upper(), 0xF0000000u);
  EXPECT_EQ(undecided.bounds(), rightOpen);

  EXPECT_TRUE(folder.permitted().empty());

  ASSERT_EQ(folder.groupSpace().iterative_size(), 1u);
  const auto group = *folder.groupSpace().begin();
  EXPECT_EQ(group.lower(), 0xE0000000u);
  EXPECT_EQ(group.upper(), 0xF0000000u);
  EXPECT_EQ(group.bounds(), rightOpen);

  ASSERT_EQ(folder.universe().iterative_size(), 1u);
  const auto all = *folder.universe().begin();
  EXPECT_EQ(all.lower(), 0u);
  EXPECT_EQ(all.upper(), 0xFFFFFFFFu);
  EXPECT_EQ(all.bounds(), boost::icl::interval_bounds::closed());

  EXPECT_EQ(folder.rulesFolded(), 0u);
}

TEST(AclToPrefix, NoRules_NoPrefixes) { EXPECT_TRUE(fold({}).empty()); }

TEST(AclToPrefix, PermitAny_WholeGroupSpace) {
  EXPECT_EQ(fold({permitAny()}), prefixes({"224.0.0.0/4"}));
}

TEST(AclToPrefix, DenyAny_NoPrefixes) { EXPECT_TRUE(fold({denyAny(), permitAny()}).empty()); }

TEST(AclToPrefix, DenyOneOctetThenPermitAny_RestOfGroupSpace) {
  EXPECT_EQ(fold({deny("239.0.0.0/8"), permitAny()}),
            prefixes({"224.0.0.0/5", "232.0.0.0/6", "236.0.0.0/7", "238.0.0.0/8"}));
}

TEST(AclToPrefix, RulesOutsideGroupSpace_ContributeNothing) {
  EXPECT_TRUE(fold({permit("10.0.0.0/8"), permit("240.0.0.0/4"), permit("192.168.1.1/32"),
                    permit("223.255.255.255/32")})
                  .empty());
  EXPECT_EQ(fold({deny("10.0.0.0/8"), deny("240.0.0.0/4"), permitAny()}),
            prefixes({"224.0.0.0/4"}));
  // A rule reaching past the group space contributes only its group part.
  EXPECT_EQ(fold({permit("192.0.0.0/2")}), prefixes({"224.0.0.0/4"}));
  EXPECT_EQ(fold({permit("0.0.0.0/0")}), prefixes({"224.0.0.0/4"}));
}

TEST(AclToPrefix, ShadowedRule_NoEffect) {
  EXPECT_EQ(fold({permit("232.0.0.0/8"), deny("232.1.0.0/16")}), prefixes({"232.0.0.0/8"}));
  EXPECT_EQ(fold({deny("239.0.0.0/8"), permit("239.1.1.0/24"), permitAny()}),
            fold({deny("239.0.0.0/8"), permitAny()}));
  EXPECT_EQ(fold({permitAny(), deny("224.0.0.0/4")}), prefixes({"224.0.0.0/4"}));
}

TEST(AclToPrefix, ResequencedWithSamePermittedSpace_SamePrefixes) {
  const auto original = fold(
      {permit("224.1.0.0/16"), deny("225.0.0.0/8"), deny("226.3.0.0/16"), permit("226.0.0.0/8")});
  EXPECT_EQ(original, prefixes({"224.1.0.0/16", "226.0.0.0/15", "226.2.0.0/16", "226.4.0.0/14",
                                "226.8.0.0/13", "226.16.0.0/12", "226.32.0.0/11", "226.64.0.0/10",
                                "226.128.0.0/9"}));
  // The deny still precedes the permit it carves from; the other rules are disjoint and may move.
  EXPECT_EQ(original, fold({deny("226.3.0.0/16"), permit("224.1.0.0/16"), permit("226.0.0.0/8"),
                            deny("225.0.0.0/8")}));
  EXPECT_EQ(fold({deny("239.0.0.0/8"), permitAny()}),
            fold({permit("238.0.0.0/8"), permit("224.0.0.0/5"), permit("236.0.0.0/7"),
                  permit("232.0.0.0/6")}));
}

TEST(AclToPrefix, AdjacentPermits_JoinIntoOnePrefix) {
  EXPECT_EQ(fold({permit("232.0.0.0/9"), permit("232.128.0.0/9")}), prefixes({"232.0.0.0/8"}));
}

TEST(AclToPrefix, HostRules_SingleAddresses) {
  EXPECT_EQ(fold({permit("239.255.255.255/32"), permit("224.0.0.0/32")}),
            prefixes({"224.0.0.0/32", "239.255.255.255/32"}));
}

TEST(AclToPrefix, Ipv6Rule_MatchesNothing) {
  EXPECT_TRUE(fold({permit("ff0e::/16")}).empty());
  EXPECT_EQ(fold({deny("ff00::/8"), permitAny()}), prefixes({"224.0.0.0/4"}));
}

TEST(AclToPrefix, NullPrefixRule_MatchesNothing) {
  const Acl::IpRuleConfig nullDeny(Acl::AclAction::deny, Acl::IpFilter(Ipkit::IpGenPrefix()));
  EXPECT_EQ(fold({nullDeny, permitAny()}), prefixes({"224.0.0.0/4"}));
}

TEST(AclToPrefix, HandleRule_CountsEveryRule) {
  AclToPrefix folder;
  folder.handleRule(permit("10.0.0.0/8"), false);
  folder.handleRule(permit("ff0e::/16"), false);
  folder.handleRule(permitAny(), false);
  EXPECT_EQ(folder.rulesFolded(), 3u);
}

TEST(AclToPrefix, ReservedFlag_RefusedAndNothingChanges) {
  AclToPrefix folder;
  folder.handleRule(deny("239.0.0.0/8"), false);
  const IntervalSet undecided = folder.undecided();
  const IntervalSet permitted = folder.permitted();
  EXPECT_THROW(folder.handleRule(permitAny(), true), Kel::RangeException);
  EXPECT_EQ(folder.undecided(), undecided);
  EXPECT_EQ(folder.permitted(), permitted);
  EXPECT_EQ(folder.rulesFolded(), 1u);
}

TEST(AclToPrefix, PermittedPrefixes_AddsWithoutClearing) {
  AclToPrefix folder;
  folder.handleRule(permit("232.0.0.0/8"), false);
  Ipkit::IpGenPrefixSet out;
  out.prefixIs(prefix("10.0.0.0/8"));
  folder.PermittedPrefixes(out);
  EXPECT_EQ(asVector(out), prefixes({"10.0.0.0/8", "232.0.0.0/8"}));
}

TEST(AclToPrefix, ListToPrefixes_FoldsInSequenceOrderAndAdds) {
  Kel::Ptr<Acl::AclSubConfig> list(new Acl::AclSubConfig);
  list->ipRuleByIdIs(Acl::UniqueId(1), permitAny());
  list->ipRuleByIdIs(Acl::UniqueId(2), deny("224.0.0.0/5"));
  // Identifiers out of sequence order: the sequence decides, so the deny comes first.
  list->ruleBySequenceIs(20, Acl::UniqueId(1));
  list->ruleBySequenceIs(10, Acl::UniqueId(2));
  Ipkit::IpGenPrefixSet out;
  out.prefixIs(prefix("239.1.0.0/16"));
  AclToPrefix::listToPrefixes(*list, out);
  EXPECT_EQ(asVector(out), prefixes({"232.0.0.0/5", "239.1.0.0/16"}));
}

TEST(AclToPrefix, ListToPrefixes_UnwrittenRuleDeniesEverything) {
  Kel::Ptr<Acl::AclSubConfig> list(new Acl::AclSubConfig);
  list->ipRuleByIdIs(Acl::UniqueId(2), permitAny());
  list->ruleBySequenceIs(10, Acl::UniqueId(1));
  list->ruleBySequenceIs(20, Acl::UniqueId(2));
  Ipkit::IpGenPrefixSet out;
  AclToPrefix::listToPrefixes(*list, out);
  EXPECT_TRUE(asVector(out).empty());
}

TEST(Ip4RangeToPrefixes, Examples_MinimalCover) {
  const auto cover = [](std::uint32_t first, std::uint32_t last) {
    Ipkit::IpGenPrefixSet out;
    AclToPrefix::ip4RangeToPrefixes(first, last, out);
    return asVector(out);
  };
  EXPECT_EQ(cover(0u, 0xFFFFFFFFu), prefixes({"0.0.0.0/0"}));
  EXPECT_EQ(cover(0u, 0u), prefixes({"0.0.0.0/32"}));
  EXPECT_EQ(cover(0xFFFFFFFFu, 0xFFFFFFFFu), prefixes({"255.255.255.255/32"}));
  EXPECT_EQ(cover(0xE0000005u, 0xE0000005u), prefixes({"224.0.0.5/32"}));
  EXPECT_EQ(cover(0xE0000000u, 0xE00002FFu), prefixes({"224.0.0.0/23", "224.0.2.0/24"}));
  EXPECT_EQ(cover(1u, 0xFFFFFFFEu).size(), 62u);
  EXPECT_EQ(cover(0x80000000u, 0xFFFFFFFFu), prefixes({"128.0.0.0/1"}));
}

TEST(Ip4RangeToPrefixes, FirstAfterLast_Refused) {
  Ipkit::IpGenPrefixSet out;
  EXPECT_THROW(AclToPrefix::ip4RangeToPrefixes(5u, 4u, out), Kel::RangeException);
  EXPECT_TRUE(out.empty());
}

TEST(Ip4RangeToPrefixes, RandomRanges_AlignedDisjointExactAndMinimal) {
  std::mt19937_64 rng(0x5eed0001u);
  std::uniform_int_distribution<std::uint32_t> anyAddress;
  std::uniform_int_distribution<std::uint32_t> smallSpan(0, 3000);
  std::uniform_int_distribution<unsigned> shape(0, 7);

  struct Case {
    std::uint32_t first;
    std::uint32_t last;
  };
  std::vector<Case> cases = {{0u, 0xFFFFFFFFu}, {0u, 0u},          {0xFFFFFFFFu, 0xFFFFFFFFu},
                             {1u, 0xFFFFFFFFu}, {0u, 0xFFFFFFFEu}, {kGroupFirst, kGroupLast}};
  for (int i = 0; i < 5000; ++i) {
    const std::uint32_t a = anyAddress(rng);
    const std::uint32_t b = anyAddress(rng);
    const std::uint32_t span = smallSpan(rng);
    switch (shape(rng)) {
      case 0:  // single address
        cases.push_back({a, a});
        break;
      case 1:  // touching 0
        cases.push_back({0u, a});
        break;
      case 2:  // touching the top address
        cases.push_back({a, 0xFFFFFFFFu});
        break;
      case 3:  // small, brute-forced address by address below
        cases.push_back({a, a > 0xFFFFFFFFu - span ? 0xFFFFFFFFu : a + span});
        break;
      case 4:  // small at the very bottom or top
        cases.push_back(i % 2 ? Case{0u, span} : Case{0xFFFFFFFFu - span, 0xFFFFFFFFu});
        break;
      default:
        cases.push_back({std::min(a, b), std::max(a, b)});
        break;
    }
  }

  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << std::hex << c.first << ".." << c.last);
    Ipkit::IpGenPrefixSet out;
    AclToPrefix::ip4RangeToPrefixes(c.first, c.last, out);
    const std::vector<Range> ranges = coverRanges(out);
    ASSERT_FALSE(ranges.empty());

    // Sorted, disjoint (checked above) and gap-free from first to last is an exact cover.
    EXPECT_EQ(ranges.front().first, c.first);
    EXPECT_EQ(ranges.back().last, c.last);
    for (std::size_t i = 1; i < ranges.size(); ++i) {
      EXPECT_EQ(ranges[i].first, ranges[i - 1].last + 1);
    }

    EXPECT_EQ(out.size(), greedyMinimalCount(c.first, c.last));
    EXPECT_EQ(out.size(), trieMinimalCount(0, 32, c.first, c.last));

    // Address by address, for every range small enough, including both neighbours.
    const std::uint64_t width = std::uint64_t{c.last} - c.first + 1;
    if (width <= 4096) {
      const std::uint64_t from = c.first == 0 ? 0 : std::uint64_t{c.first} - 1;
      const std::uint64_t to = std::min<std::uint64_t>(std::uint64_t{c.last} + 1, 0xFFFFFFFFu);
      for (std::uint64_t address = from; address <= to; ++address) {
        std::size_t containing = 0;
        for (const Range& r : ranges) containing += (r.first <= address && address <= r.last);
        ASSERT_EQ(containing, (c.first <= address && address <= c.last) ? 1u : 0u) << address;
      }
    }
  }
}

// A rule as the test sees it: what it does and which closed range it matches, if any.
struct ModelRule {
  bool permit;
  bool matchesSomething;
  std::uint64_t first;
  std::uint64_t last;
};

// First match decides; unmatched and non-group addresses are not permitted.
bool referencePermits(const std::vector<ModelRule>& rules, std::uint64_t address) {
  if (address < kGroupFirst || address > kGroupLast) return false;
  for (const ModelRule& rule : rules) {
    if (rule.matchesSomething && rule.first <= address && address <= rule.last) return rule.permit;
  }
  return false;
}

bool referenceUndecided(const std::vector<ModelRule>& rules, std::uint64_t address) {
  if (address < kGroupFirst || address > kGroupLast) return false;
  for (const ModelRule& rule : rules) {
    if (rule.matchesSomething && rule.first <= address && address <= rule.last) return false;
  }
  return true;
}

TEST(AclToPrefix, RandomLists_AgreeWithFirstMatchReference) {
  std::mt19937_64 rng(0x5eed0002u);
  std::uniform_int_distribution<std::uint32_t> anyAddress;
  std::uniform_int_distribution<unsigned> percent(0, 99);
  std::uniform_int_distribution<unsigned> length(0, 32);
  std::uniform_int_distribution<unsigned> ruleCount(0, 40);

  for (int list = 0; list < 3000; ++list) {
    SCOPED_TRACE(::testing::Message() << "list " << list);
    std::vector<Acl::IpRuleConfig> rules;
    std::vector<ModelRule> model;
    std::vector<std::uint32_t> anchors;
    const unsigned count = ruleCount(rng);
    for (unsigned i = 0; i < count; ++i) {
      const bool isPermit = percent(rng) < 50;
      const auto action = isPermit ? Acl::AclAction::permit : Acl::AclAction::deny;
      const unsigned kind = percent(rng);
      if (kind < 8) {
        rules.emplace_back(action, Acl::IpFilter::anyAddress());
        model.push_back({isPermit, true, 0, 0xFFFFFFFFu});
        continue;
      }
      if (kind < 12) {
        rules.emplace_back(action, Acl::IpFilter(prefix(i % 2 ? "ff0e::/16" : "::/0")));
        model.push_back({isPermit, false, 0, 0});
        continue;
      }
      // Mostly group addresses, often near an earlier rule's, so prefixes nest and overlap.
      std::uint32_t address;
      const unsigned where = percent(rng);
      if (where < 40 && !anchors.empty()) {
        const std::uint32_t anchor = anchors[anyAddress(rng) % anchors.size()];
        const std::uint64_t noise = anyAddress(rng);
        address = anchor ^ static_cast<std::uint32_t>(noise >> length(rng));
      } else if (where < 85) {
        address = kGroupFirst | (anyAddress(rng) & 0x0FFFFFFFu);
      } else {
        address = anyAddress(rng);
      }
      anchors.push_back(address);
      const unsigned len = length(rng);
      const Ipkit::IpGenPrefix p(Ipkit::IpGenAddr::ip4(address), len);
      rules.emplace_back(action, Acl::IpFilter(p));
      const Range r = rangeOf(p);
      EXPECT_LE(r.first, address);
      EXPECT_GE(r.last, address);
      model.push_back({isPermit, true, r.first, r.last});
    }

    AclToPrefix folder;
    for (const auto& rule : rules) folder.handleRule(rule, false);
    EXPECT_EQ(folder.rulesFolded(), rules.size());
    Ipkit::IpGenPrefixSet out;
    folder.PermittedPrefixes(out);
    const std::vector<Range> cover = coverRanges(out);

    // Structural invariants.
    EXPECT_TRUE((folder.permitted() & folder.undecided()).empty());
    EXPECT_TRUE(boost::icl::contains(folder.groupSpace(), folder.permitted()));
    EXPECT_TRUE(boost::icl::contains(folder.groupSpace(), folder.undecided()));
    for (const IntervalSet* set : {&folder.permitted(), &folder.undecided()}) {
      for (const auto& interval : *set) {
        EXPECT_EQ(interval.bounds(), boost::icl::interval_bounds::right_open());
      }
    }
    // The cover is exactly the permitted set, interval by interval once adjacent prefixes join.
    std::vector<Range> joined;
    for (const Range& r : cover) {
      if (!joined.empty() && joined.back().last + 1 == r.first) {
        joined.back().last = r.last;
      } else {
        joined.push_back(r);
      }
    }
    ASSERT_EQ(joined.size(), folder.permitted().iterative_size());
    std::size_t index = 0;
    std::size_t minimal = 0;
    for (const auto& interval : folder.permitted()) {
      EXPECT_EQ(joined[index].first, interval.lower());
      EXPECT_EQ(joined[index].last, std::uint64_t{interval.upper()} - 1);
      minimal += trieMinimalCount(0, 32, joined[index].first, joined[index].last);
      ++index;
    }
    EXPECT_EQ(out.size(), minimal);

    // Sampled addresses: every rule's edges and their neighbours, the group space's edges, and
    // random addresses, half of them inside the group space.
    std::vector<std::uint64_t> samples = {0,           0xFFFFFFFFu, kGroupFirst - 1,
                                          kGroupFirst, kGroupLast,  kGroupLast + 1};
    for (const ModelRule& rule : model) {
      if (!rule.matchesSomething) continue;
      samples.push_back(rule.first);
      samples.push_back(rule.last);
      if (rule.first > 0) samples.push_back(rule.first - 1);
      if (rule.last < 0xFFFFFFFFu) samples.push_back(rule.last + 1);
    }
    for (int i = 0; i < 64; ++i) {
      const std::uint32_t a = anyAddress(rng);
      samples.push_back(i % 2 ? a : (kGroupFirst | (a & 0x0FFFFFFFu)));
    }
    for (std::uint64_t address : samples) {
      const bool expected = referencePermits(model, address);
      const auto a = static_cast<unsigned int>(address);
      ASSERT_EQ(boost::icl::contains(folder.permitted(), a), expected) << std::hex << address;
      ASSERT_EQ(covered(cover, address), expected) << std::hex << address;
      ASSERT_EQ(boost::icl::contains(folder.undecided(), a), referenceUndecided(model, address))
          << std::hex << address;
    }
  }
}

}  // namespace
