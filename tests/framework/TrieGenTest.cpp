#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/Ptr.h"
#include "framework/Routing/TrieGen.h"
#include "tests/support/Refusal.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::TrieGen;

IpGenPrefix P(const char* text) { return IpGenPrefix(text); }
IpGenPrefix host(const char* text) { return IpGenPrefix::hostPrefix(IpGenAddr(text)); }

TEST(TrieGenTest, TrieGen_Construct_EmptyWithNameAndFamily) {
  Kel::Ptr<TrieGen> trie(new TrieGen("groups", Ipkit::ipv4()));
  EXPECT_EQ(trie->name(), "groups");
  EXPECT_EQ(trie->af(), Ipkit::ipv4());
  EXPECT_EQ(trie->nodes(), 0u);
  EXPECT_EQ(trie->routes(), 0u);
  EXPECT_EQ(trie->longestMatch(host("239.1.1.1")), IpGenPrefix());
  EXPECT_FALSE(trie->hasRoute(P("0.0.0.0/0")));
  EXPECT_EQ(trie->route(P("0.0.0.0/0")), 0u);
  Kel::Ptr<TrieGen> shared = trie;
  EXPECT_EQ(trie->references(), 2u);
}

TEST(TrieGenTest, TrieGen_UnknownFamily_RangeException) {
  EXPECT_EQ(
      TestSupport::refusalOf<Kel::RangeException>([&] { TrieGen trie("bad", Ipkit::ipunknown()); }),
      "trie 'bad' needs family ipv4 or ipv6, got ipunknown");
}

TEST(TrieGenTest, TrieGen_OtherFamilyWrite_RangeExceptionNamingIt) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("224.0.0.0/4"), 1);
  const auto expectRefused = [](auto operation, const std::string& message) {
    EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { operation(); }), message);
  };
  const std::string v6 = "trie 'groups' holds ipv4 prefixes: refused 'ff00::/8'";
  expectRefused([&] { trie.routeIs(P("ff00::/8"), 2); }, v6);
  expectRefused([&] { trie.routeDel(P("ff00::/8")); }, v6);
  expectRefused([&] { trie.routeIs(IpGenPrefix(), 2); },
                "trie 'groups' holds ipv4 prefixes: refused 'unknown'");
  EXPECT_EQ(trie.routes(), 1u);
  EXPECT_EQ(trie.nodes(), 1u);

  TrieGen trie6("groups6", Ipkit::ipv6());
  expectRefused([&] { trie6.routeIs(P("239.0.0.0/8"), 2); },
                "trie 'groups6' holds ipv6 prefixes: refused '239.0.0.0/8'");
  EXPECT_EQ(trie6.nodes(), 0u);
}

TEST(TrieGenTest, TrieGen_OtherFamilyLookup_NothingContainsIt) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("0.0.0.0/0"), 1);
  EXPECT_TRUE(trie.longestMatch(P("ff00::/8")).isNull());
  EXPECT_TRUE(trie.longestMatch(IpGenPrefix()).isNull());
  EXPECT_EQ(trie.route(P("::/0")), 0u);
  EXPECT_FALSE(trie.hasRoute(P("::/0")));
  EXPECT_EQ(trie.longestMatch(P("239.1.1.1/32")), P("0.0.0.0/0"));
}

TEST(TrieGenTest, TrieGen_LongestMatch_LongestCoveringPrefix) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("224.0.0.0/4"), 1);
  trie.routeIs(P("239.0.0.0/8"), 2);
  trie.routeIs(P("239.1.0.0/16"), 3);
  trie.routeIs(P("239.1.2.3/32"), 4);
  EXPECT_EQ(trie.longestMatch(host("239.1.2.3")), P("239.1.2.3/32"));
  EXPECT_EQ(trie.longestMatch(host("239.1.2.4")), P("239.1.0.0/16"));
  EXPECT_EQ(trie.longestMatch(host("239.2.0.0")), P("239.0.0.0/8"));
  EXPECT_EQ(trie.longestMatch(host("230.0.0.1")), P("224.0.0.0/4"));
  EXPECT_EQ(trie.longestMatch(P("239.1.0.0/24")), P("239.1.0.0/16"));
  EXPECT_EQ(trie.longestMatch(P("239.1.0.0/16")), P("239.1.0.0/16"));
  EXPECT_EQ(trie.longestMatch(P("239.0.0.0/7")), P("224.0.0.0/4"));
  EXPECT_EQ(trie.route(P("239.1.0.0/16")), 3u);
  EXPECT_EQ(trie.routes(), 4u);
  EXPECT_EQ(trie.nodes(), 4u);
}

TEST(TrieGenTest, TrieGen_NothingCovers_EmptyPrefix) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("239.0.0.0/8"), 2);
  trie.routeIs(P("232.0.0.0/8"), 3);
  EXPECT_EQ(trie.longestMatch(host("10.0.0.1")), IpGenPrefix());
  EXPECT_TRUE(trie.longestMatch(host("233.0.0.1")).isNull());
  // A shorter query than every route is covered by none of them.
  EXPECT_EQ(trie.longestMatch(P("224.0.0.0/4")), IpGenPrefix());
  EXPECT_EQ(trie.longestMatch(P("0.0.0.0/0")), IpGenPrefix());
}

TEST(TrieGenTest, TrieGen_DeleteLongerRoute_FallsBackToCoveringPrefix) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("239.0.0.0/8"), 1);
  trie.routeIs(P("239.192.0.0/14"), 2);
  trie.routeIs(P("239.192.0.1/32"), 3);
  EXPECT_EQ(trie.longestMatch(host("239.192.0.1")), P("239.192.0.1/32"));
  trie.routeDel(P("239.192.0.1/32"));
  EXPECT_EQ(trie.longestMatch(host("239.192.0.1")), P("239.192.0.0/14"));
  trie.routeDel(P("239.192.0.0/14"));
  EXPECT_EQ(trie.longestMatch(host("239.192.0.1")), P("239.0.0.0/8"));
  trie.routeDel(P("239.0.0.0/8"));
  EXPECT_EQ(trie.longestMatch(host("239.192.0.1")), IpGenPrefix());
  EXPECT_EQ(trie.nodes(), 0u);
  EXPECT_EQ(trie.routes(), 0u);
}

TEST(TrieGenTest, TrieGen_Replace_KeepsNodeCountAndUpdatesValue) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("239.0.0.0/8"), 1);
  trie.routeIs(P("239.1.0.0/16"), 2);
  trie.routeIs(P("239.128.0.0/16"), 3);
  const std::size_t before = trie.nodes();
  EXPECT_EQ(before, 3u);
  trie.routeIs(P("239.1.0.0/16"), 20);
  trie.routeIs(P("239.1.7.7/16"), 21);  // same network once host bits go
  EXPECT_EQ(trie.nodes(), before);
  EXPECT_EQ(trie.routes(), 3u);
  EXPECT_EQ(trie.route(P("239.1.0.0/16")), 21u);
}

TEST(TrieGenTest, TrieGen_Siblings_BranchNodeAddedAndCollapsed) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("10.0.0.0/16"), 1);
  trie.routeIs(P("10.1.0.0/16"), 2);
  // The two part at 10.0.0.0/15, which holds no route but branches.
  EXPECT_EQ(trie.nodes(), 3u);
  EXPECT_EQ(trie.routes(), 2u);
  EXPECT_FALSE(trie.hasRoute(P("10.0.0.0/15")));
  EXPECT_EQ(trie.longestMatch(P("10.0.0.0/15")), IpGenPrefix());
  // A route on the branching node itself takes the node over.
  trie.routeIs(P("10.0.0.0/15"), 3);
  EXPECT_EQ(trie.nodes(), 3u);
  EXPECT_EQ(trie.longestMatch(host("10.0.255.255")), P("10.0.0.0/16"));
  // Deleting it again leaves the node branching.
  trie.routeDel(P("10.0.0.0/15"));
  EXPECT_EQ(trie.nodes(), 3u);
  EXPECT_EQ(trie.routes(), 2u);
  trie.routeDel(P("10.1.0.0/16"));
  EXPECT_EQ(trie.nodes(), 1u);
  EXPECT_EQ(trie.longestMatch(host("10.0.3.4")), P("10.0.0.0/16"));
  EXPECT_EQ(trie.longestMatch(host("10.1.3.4")), IpGenPrefix());
}

TEST(TrieGenTest, TrieGen_DeleteRouteWithOneChild_SplicesNodeOut) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("239.0.0.0/8"), 1);
  trie.routeIs(P("239.1.0.0/16"), 2);
  trie.routeIs(P("239.1.1.0/24"), 3);
  trie.routeDel(P("239.1.0.0/16"));
  EXPECT_EQ(trie.nodes(), 2u);
  EXPECT_EQ(trie.longestMatch(host("239.1.1.1")), P("239.1.1.0/24"));
  EXPECT_EQ(trie.longestMatch(host("239.1.2.1")), P("239.0.0.0/8"));
}

TEST(TrieGenTest, TrieGen_DeleteAbsent_NoEffect) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeDel(P("239.0.0.0/8"));
  trie.routeIs(P("10.0.0.0/16"), 1);
  trie.routeIs(P("10.1.0.0/16"), 2);
  trie.routeDel(P("10.0.0.0/15"));  // the branching node, which carries no route
  trie.routeDel(P("10.0.0.0/8"));
  trie.routeDel(P("10.0.0.0/24"));
  trie.routeDel(P("11.0.0.0/16"));
  EXPECT_EQ(trie.nodes(), 3u);
  EXPECT_EQ(trie.routes(), 2u);
  EXPECT_EQ(trie.route(P("10.1.0.0/16")), 2u);
}

TEST(TrieGenTest, TrieGen_DefaultAndHostRoutes_BothFamilies) {
  TrieGen trie("groups", Ipkit::ipv4());
  trie.routeIs(P("0.0.0.0/0"), 7);
  trie.routeIs(host("255.255.255.255"), 8);
  trie.routeIs(host("0.0.0.0"), 9);
  EXPECT_EQ(trie.longestMatch(host("1.2.3.4")), P("0.0.0.0/0"));
  EXPECT_EQ(trie.longestMatch(P("0.0.0.0/0")), P("0.0.0.0/0"));
  EXPECT_EQ(trie.longestMatch(host("255.255.255.255")), host("255.255.255.255"));
  EXPECT_EQ(trie.longestMatch(host("0.0.0.0")), host("0.0.0.0"));
  EXPECT_EQ(trie.route(P("0.0.0.0/0")), 7u);

  TrieGen trie6("groups6", Ipkit::ipv6());
  trie6.routeIs(P("::/0"), 1);
  trie6.routeIs(P("ff00::/8"), 2);
  trie6.routeIs(host("ff0e::1"), 3);
  trie6.routeIs(host("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"), 4);
  trie6.routeIs(P("ff0e::/127"), 5);
  EXPECT_EQ(trie6.longestMatch(host("ff0e::1")), host("ff0e::1"));
  EXPECT_EQ(trie6.longestMatch(host("ff0e::")), P("ff0e::/127"));
  EXPECT_EQ(trie6.longestMatch(host("ff0e::2")), P("ff00::/8"));
  EXPECT_EQ(trie6.longestMatch(host("2001:db8::1")), P("::/0"));
  EXPECT_EQ(trie6.longestMatch(host("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff")),
            host("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"));
  EXPECT_EQ(trie6.longestMatch(host("ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe")), P("ff00::/8"));
  EXPECT_EQ(trie6.route(host("ff0e::1")), 3u);
  trie6.routeDel(P("::/0"));
  EXPECT_EQ(trie6.longestMatch(host("2001:db8::1")), IpGenPrefix());
}

// ---- Randomised comparison against a brute-force reference ----

struct Words {
  std::uint64_t hi;
  std::uint64_t lo;
};

Words wordsOf(const IpGenAddr& addr) {
  Words w{0, 0};
  for (int i = 0; i < 8; ++i) w.hi = (w.hi << 8) | addr.bytes()[static_cast<std::size_t>(i)];
  for (int i = 8; i < 16; ++i) w.lo = (w.lo << 8) | addr.bytes()[static_cast<std::size_t>(i)];
  return w;
}

IpGenAddr addrOf(Ipkit::AddressFamily af, Words w) {
  if (af == Ipkit::ipv4()) return IpGenAddr::ip4(static_cast<std::uint32_t>(w.hi >> 32));
  std::array<std::uint8_t, 16> bytes{};
  for (int i = 0; i < 8; ++i) {
    bytes[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(w.hi >> (56 - 8 * i));
    bytes[static_cast<std::size_t>(i + 8)] = static_cast<std::uint8_t>(w.lo >> (56 - 8 * i));
  }
  return IpGenAddr(Ipkit::Ip6Addr(bytes));
}

unsigned bitAt(const Words& w, unsigned pos) {
  return pos < 64 ? (w.hi >> (63 - pos)) & 1u : (w.lo >> (127 - pos)) & 1u;
}

class Reference {
 public:
  explicit Reference(Ipkit::AddressFamily af) : af_(af), bits_(af == Ipkit::ipv4() ? 32 : 128) {}

  std::map<IpGenPrefix, std::uint32_t> routes;

  // Scans every route.
  IpGenPrefix longestMatch(const IpGenPrefix& query) const {
    IpGenPrefix best;
    for (const auto& [prefix, value] : routes) {
      if (prefix.contains(query) && (best.isNull() || prefix.len() > best.len())) best = prefix;
    }
    return best;
  }

  // A compressed trie has one node per route plus one per point where stored prefixes part
  // ways. Sorted order visits prefixes depth first, so every such point is where two
  // neighbours in that order diverge.
  std::size_t nodes() const {
    std::set<IpGenPrefix> branches;
    const IpGenPrefix* previous = nullptr;
    for (const auto& entry : routes) {
      const IpGenPrefix& current = entry.first;
      if (previous && !previous->contains(current)) {
        const Words a = wordsOf(previous->address());
        const Words b = wordsOf(current.address());
        unsigned common = 0;
        while (common < previous->len() && bitAt(a, common) == bitAt(b, common)) ++common;
        const IpGenPrefix branch(previous->address(), common);
        if (!routes.count(branch)) branches.insert(branch);
      }
      previous = &current;
    }
    return routes.size() + branches.size();
  }

  unsigned bits() const { return bits_; }
  Ipkit::AddressFamily af() const { return af_; }

 private:
  Ipkit::AddressFamily af_;
  unsigned bits_;
};

class TrieGenRandomTest : public ::testing::TestWithParam<Ipkit::AddressFamily> {};

TEST_P(TrieGenRandomTest, TrieGen_RandomInsertsAndDeletes_MatchBruteForce) {
  const Ipkit::AddressFamily af = GetParam();
  TrieGen trie("random", af);
  Reference ref(af);
  std::mt19937_64 rng(af == Ipkit::ipv4() ? 20240601u : 20240602u);
  const unsigned bits = ref.bits();

  const auto randomWords = [&] {
    Words w{rng(), rng()};
    if (bits == 32) {
      w.hi &= 0xffffffff00000000ull;
      w.lo = 0;
    }
    return w;
  };
  // A few seeds that many prefixes share leading bits with, so that routes nest and branch
  // at every depth instead of parting near the root.
  std::vector<Words> seeds;
  for (int i = 0; i < 32; ++i) seeds.push_back(randomWords());
  const auto randomLen = [&] {
    const unsigned pick = static_cast<unsigned>(rng() % 10);
    if (pick == 0) return 0u;
    if (pick == 1) return bits;
    return static_cast<unsigned>(rng() % (bits + 1));
  };
  const auto randomPrefix = [&] {
    Words w = randomWords();
    if (rng() % 5 < 3) {
      // Keep a random number of the seed's leading bits, then random bits.
      const Words& seed = seeds[rng() % seeds.size()];
      const unsigned keep = static_cast<unsigned>(rng() % (bits + 1));
      const IpGenPrefix kept(addrOf(af, seed), keep);
      const Words k = wordsOf(kept.address());
      const IpGenPrefix tailMask(addrOf(af, Words{~0ull, ~0ull}), keep);
      const Words m = wordsOf(tailMask.address());
      w = Words{k.hi | (w.hi & ~m.hi), k.lo | (w.lo & ~m.lo)};
      if (bits == 32) w = Words{w.hi & 0xffffffff00000000ull, 0};
    }
    return IpGenPrefix(addrOf(af, w), randomLen());
  };

  const auto check = [&](int batch) {
    ASSERT_EQ(trie.routes(), ref.routes.size()) << "batch " << batch;
    ASSERT_EQ(trie.nodes(), ref.nodes()) << "batch " << batch;
    std::vector<IpGenPrefix> queries;
    for (int i = 0; i < 200; ++i)
      queries.push_back(IpGenPrefix::hostPrefix(addrOf(af, randomWords())));
    for (int i = 0; i < 100; ++i) queries.push_back(randomPrefix());
    queries.push_back(IpGenPrefix(addrOf(af, Words{0, 0}), 0));
    queries.push_back(IpGenPrefix::hostPrefix(addrOf(af, Words{0, 0})));
    queries.push_back(IpGenPrefix::hostPrefix(addrOf(af, Words{~0ull, ~0ull})));
    // Edges of stored routes: the network itself, its last address, and the address past it.
    int edges = 0;
    for (const auto& entry : ref.routes) {
      if (++edges > 150) break;
      const IpGenPrefix& p = entry.first;
      const Words first = wordsOf(p.address());
      const Words mask = wordsOf(IpGenPrefix(addrOf(af, Words{~0ull, ~0ull}), p.len()).address());
      Words last{first.hi | ~mask.hi, first.lo | ~mask.lo};
      if (bits == 32) last = Words{last.hi & 0xffffffff00000000ull, 0};
      Words past = last;
      if (bits == 32) {
        past.hi += 1ull << 32;
      } else if (++past.lo == 0) {
        ++past.hi;
      }
      queries.push_back(IpGenPrefix::hostPrefix(p.address()));
      queries.push_back(IpGenPrefix::hostPrefix(addrOf(af, last)));
      queries.push_back(IpGenPrefix::hostPrefix(addrOf(af, past)));
      queries.push_back(p);
    }
    for (const IpGenPrefix& q : queries) {
      const IpGenPrefix expected = ref.longestMatch(q);
      ASSERT_EQ(trie.longestMatch(q), expected) << "batch " << batch << " query " << q;
      const auto found = ref.routes.find(q);
      ASSERT_EQ(trie.hasRoute(q), found != ref.routes.end()) << q;
      ASSERT_EQ(trie.route(q), found == ref.routes.end() ? 0u : found->second) << q;
    }
  };

  std::uint32_t nextValue = 1;
  std::size_t peakNodes = 0;
  for (int batch = 0; batch < 24; ++batch) {
    // Grow during the first half, shrink during the second, so that the trie passes the sizes
    // at which it builds and drops its stride table in both directions.
    const unsigned insertShare = batch < 12 ? 75 : 25;
    for (int op = 0; op < 700; ++op) {
      if (rng() % 100 < insertShare || ref.routes.empty()) {
        const IpGenPrefix p = randomPrefix();
        trie.routeIs(p, nextValue);
        ref.routes[p] = nextValue;
        ++nextValue;
      } else if (rng() % 8 == 0) {
        const IpGenPrefix p = randomPrefix();  // mostly absent
        trie.routeDel(p);
        ref.routes.erase(p);
      } else {
        auto it = ref.routes.begin();
        std::advance(it, static_cast<long>(rng() % ref.routes.size()));
        trie.routeDel(it->first);
        ref.routes.erase(it);
      }
    }
    peakNodes = std::max(peakNodes, trie.nodes());
    check(batch);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(peakNodes, TrieGen::kStrideOnNodes);
  EXPECT_LT(trie.nodes(), TrieGen::kStrideOffNodes);

  while (!ref.routes.empty()) {
    trie.routeDel(ref.routes.begin()->first);
    ref.routes.erase(ref.routes.begin());
  }
  EXPECT_EQ(trie.routes(), 0u);
  EXPECT_EQ(trie.nodes(), 0u);
  EXPECT_TRUE(trie.longestMatch(IpGenPrefix::hostPrefix(addrOf(af, randomWords()))).isNull());

  // Refilled after emptying, the trie works as new.
  trie.routeIs(IpGenPrefix(addrOf(af, Words{0, 0}), 0), 5);
  EXPECT_EQ(trie.nodes(), 1u);
  EXPECT_EQ(trie.route(IpGenPrefix(addrOf(af, Words{0, 0}), 0)), 5u);
}

TEST(TrieGenTest, TrieGen_LargeTrieShortLeafDeleted_FallsBackToParent) {
  TrieGen trie("large", Ipkit::ipv4());
  std::mt19937 rng(1);
  while (trie.nodes() <= TrieGen::kStrideOnNodes) {
    trie.routeIs(IpGenPrefix::hostPrefix(IpGenAddr::ip4(0x0a000000u | (rng() & 0xffffffu))), 1);
  }
  trie.routeIs(P("20.0.0.0/8"), 2);
  trie.routeIs(P("20.16.0.0/12"), 3);
  EXPECT_EQ(trie.longestMatch(host("20.16.1.1")), P("20.16.0.0/12"));
  trie.routeDel(P("20.16.0.0/12"));
  EXPECT_EQ(trie.longestMatch(host("20.16.1.1")), P("20.0.0.0/8"));
  trie.routeIs(P("20.16.0.0/16"), 4);
  trie.routeIs(P("0.0.0.0/0"), 5);
  EXPECT_EQ(trie.longestMatch(host("20.16.1.1")), P("20.16.0.0/16"));
  EXPECT_EQ(trie.longestMatch(host("20.17.1.1")), P("20.0.0.0/8"));
  EXPECT_EQ(trie.longestMatch(host("30.0.0.1")), P("0.0.0.0/0"));
  trie.routeDel(P("20.0.0.0/8"));
  EXPECT_EQ(trie.longestMatch(host("20.17.1.1")), P("0.0.0.0/0"));
  trie.routeDel(P("0.0.0.0/0"));
  EXPECT_EQ(trie.longestMatch(host("20.17.1.1")), IpGenPrefix());
  EXPECT_EQ(trie.longestMatch(host("20.16.1.1")), P("20.16.0.0/16"));
}

// A large trie whose bulk sits in one corner of the address space, while short prefixes come
// and go elsewhere: every change near the top must reach the lookups of the addresses under it.
TEST_P(TrieGenRandomTest, TrieGen_ShortPrefixChurnOnLargeTrie_MatchBruteForce) {
  const Ipkit::AddressFamily af = GetParam();
  TrieGen trie("churn", af);
  Reference ref(af);
  std::mt19937_64 rng(af == Ipkit::ipv4() ? 7u : 8u);
  const unsigned bits = ref.bits();
  const auto toFamily = [&](Words w) {
    return bits == 32 ? Words{w.hi & 0xffffffff00000000ull, 0} : w;
  };

  // The bulk: long prefixes under 0x0a/8 (10.0.0.0/8, a00::/8).
  const std::uint64_t bulkTop = 0x0aull << 56;
  while (trie.nodes() <= TrieGen::kStrideOnNodes + 500) {
    const Words w = toFamily(Words{bulkTop | (rng() >> 8), rng()});
    const unsigned len = bits - static_cast<unsigned>(rng() % 9);
    const IpGenPrefix p(addrOf(af, w), len);
    trie.routeIs(p, 1);
    ref.routes[p] = 1;
  }

  // The churn: prefixes of length 0..20 under a handful of top bytes, nested in each other.
  const std::uint64_t tops[] = {0x00ull, 0x14ull, 0x15ull, 0xe0ull, 0xefull, 0xffull};
  const auto churnPrefix = [&] {
    const std::uint64_t top = tops[rng() % 6] << 56;
    const Words w = toFamily(Words{top | ((rng() >> 8) & 0x00ff000000000000ull), 0});
    return IpGenPrefix(addrOf(af, w), static_cast<unsigned>(rng() % 21));
  };
  const auto probe = [&] {
    const std::uint64_t top = tops[rng() % 6] << 56;
    const Words w = toFamily(Words{top | ((rng() >> 8) & 0x00ff000000000000ull), 0});
    return IpGenPrefix::hostPrefix(addrOf(af, w));
  };

  std::vector<IpGenPrefix> churned;  // routes the churn added, maybe deleted since
  for (int op = 0; op < 600; ++op) {
    IpGenPrefix p = churnPrefix();
    if (rng() % 2 == 0) {
      trie.routeIs(p, static_cast<std::uint32_t>(op + 2));
      ref.routes[p] = static_cast<std::uint32_t>(op + 2);
      churned.push_back(p);
    } else {
      // Mostly a route that is there, so that leaves, inner routes and their parents all go.
      if (!churned.empty() && rng() % 5 != 0) p = churned[rng() % churned.size()];
      trie.routeDel(p);
      ref.routes.erase(p);
    }
    for (int i = 0; i < 20; ++i) {
      const IpGenPrefix q = i == 0 ? IpGenPrefix::hostPrefix(p.address()) : probe();
      ASSERT_EQ(trie.longestMatch(q), ref.longestMatch(q)) << "op " << op << " query " << q;
      const IpGenPrefix sixteen(q.address(), 16);
      ASSERT_EQ(trie.hasRoute(sixteen), ref.routes.count(sixteen) != 0) << sixteen;
    }
    ASSERT_EQ(trie.nodes(), ref.nodes()) << "op " << op;
  }
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, TrieGenRandomTest,
                         ::testing::Values(Ipkit::ipv4(), Ipkit::ipv6()),
                         [](const ::testing::TestParamInfo<Ipkit::AddressFamily>& info) {
                           return info.param == Ipkit::ipv4() ? std::string("Ipv4")
                                                              : std::string("Ipv6");
                         });

}  // namespace
