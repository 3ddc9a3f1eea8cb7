#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "framework/Kel/Assert.h"
#include "rp/PimGrpPrefixTrieBuilderSm.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using Lines = std::vector<std::string>;

class GrpPrefixTrieBuilderTest : public ::testing::Test {
 protected:
  Kel::Ptr<GrpPrefixTrieBuilderSm> build() {
    return grpPrefixTrieBuilderSmFactory(status_, compute_);
  }
  IpGenPrefix match(const char* group) const {
    return compute_->grpTrie()->longestMatch(IpGenPrefix::hostPrefix(IpGenAddr(group)));
  }

  Kel::Ptr<RpCandidateStatus> status_{new RpCandidateStatus};
  Kel::Ptr<RpCompute> compute_{rpComputeFactory(status_, Kel::Ptr<RpConfig>(new RpConfig))};
};

TEST_F(GrpPrefixTrieBuilderTest, StatusWithPrefixesBeforeBuilder_AllInTrieAfterConstruction) {
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  status_->crpSetIs(IpGenPrefix("232.0.0.0/8"));
  status_->crpSetIs(IpGenPrefix("224.0.0.0/4"));
  auto builder = build();
  EXPECT_TRUE(builder->initialized());
  ASSERT_TRUE(compute_->grpTrie());
  EXPECT_EQ(builder->trie(), compute_->grpTrie());
  EXPECT_EQ(compute_->grpTrie()->name(), "crpTrie");
  EXPECT_EQ(compute_->grpTrie()->routes(), 3u);
  EXPECT_EQ(builder->trieUpdates(), 3u);
  EXPECT_EQ(match("239.1.1.1"), IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(match("225.1.1.1"), IpGenPrefix("224.0.0.0/4"));
}

TEST_F(GrpPrefixTrieBuilderTest, EmptyStatus_NoTrieUntilFirstPrefix) {
  auto builder = build();
  EXPECT_FALSE(builder->trie());
  EXPECT_FALSE(compute_->grpTrie());
  status_->crpSetIs(IpGenPrefix("ff0e::/16"));
  ASSERT_TRUE(compute_->grpTrie());
  EXPECT_EQ(compute_->grpTrie()->af(), Ipkit::ipv6());
}

TEST_F(GrpPrefixTrieBuilderTest, DeletedPrefix_FallsBackToShorterThenToEmpty) {
  status_->crpSetIs(IpGenPrefix("224.0.0.0/4"));
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  auto builder = build();
  EXPECT_EQ(match("239.1.1.1"), IpGenPrefix("239.0.0.0/8"));
  status_->crpSetDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(match("239.1.1.1"), IpGenPrefix("224.0.0.0/4"));
  status_->crpSetDel(IpGenPrefix("224.0.0.0/4"));
  EXPECT_TRUE(match("239.1.1.1").isNull());
  EXPECT_EQ(compute_->grpTrie()->nodes(), 0u);
}

TEST_F(GrpPrefixTrieBuilderTest, WholeStatusChanged_TrieRebuiltFromWhatTheStatusHoldsNow) {
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  auto builder = build();
  builder->crpStatusDel();  // changes made while nobody watched, then announced as a whole
  status_->crpSetDel(IpGenPrefix("239.0.0.0/8"));
  status_->crpSetIs(IpGenPrefix("232.0.0.0/8"));
  builder->crpStatusIs(status_);
  EXPECT_EQ(compute_->grpTrie()->routes(), 2u);  // the full pass only adds
  status_->crpSetNotify();
  ASSERT_TRUE(compute_->grpTrie());
  EXPECT_EQ(builder->trie(), compute_->grpTrie());
  EXPECT_EQ(compute_->grpTrie()->routes(), 1u);
  EXPECT_EQ(match("232.1.1.1"), IpGenPrefix("232.0.0.0/8"));
  EXPECT_TRUE(match("239.1.1.1").isNull());
}

TEST_F(GrpPrefixTrieBuilderTest, ReAddingExistingPrefix_TrieUnchangedButCounted) {
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  auto builder = build();
  const auto nodes = compute_->grpTrie()->nodes();
  EXPECT_EQ(builder->trieUpdates(), 1u);
  builder->handleCRpSet(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 2u);
  EXPECT_EQ(compute_->grpTrie()->nodes(), nodes);
  EXPECT_EQ(compute_->grpTrie()->routes(), 1u);
  status_->crpSetNotify(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 3u);
  EXPECT_EQ(compute_->grpTrie()->routes(), 1u);
}

TEST_F(GrpPrefixTrieBuilderTest, Traces_IncrementalAddAndDelete_ExactLines) {
  auto builder = build();
  TestSupport::TraceCapture capture("PimCrpGrpTrieBuilderSm");
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  status_->crpSetIs(IpGenPrefix("239.1.0.0/16"));
  status_->crpSetDel(IpGenPrefix("239.0.0.0/8"));
  const std::string handler =
      "void Routing::Pim::GrpPrefixTrieBuilderSm::handleCRpSet(const Ipkit::IpGenPrefix&)";
  EXPECT_EQ(capture.lines(), (Lines{
                                 handler + "( 239.0.0.0/8 )",
                                 "Added 239.0.0.0/8 to trie ",
                                 "Trie built with 1 nodes and 1 routes",
                                 handler + "( 239.1.0.0/16 )",
                                 "Added 239.1.0.0/16 to trie ",
                                 "Trie built with 2 nodes and 2 routes",
                                 handler + "( 239.0.0.0/8 )",
                                 "Deleted 239.0.0.0/8 from trie ",
                                 "Trie built with 1 nodes and 1 routes",
                             }));
}

TEST_F(GrpPrefixTrieBuilderTest, Traces_FullRebuild_TwoSpaceVariantOnTrieCreation) {
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  TestSupport::TraceCapture capture("PimCrpGrpTrieBuilderSm");
  auto builder = build();
  EXPECT_EQ(capture.lines(), (Lines{
                                 "void Routing::Pim::GrpPrefixTrieBuilderSm::handleInitialized()",
                                 "void Routing::Pim::GrpPrefixTrieBuilderSm::handleCRpSet()",
                                 "Trie built with 0 nodes  and 1 routes",
                                 "Added 239.0.0.0/8 to trie ",
                             }));
}

TEST_F(GrpPrefixTrieBuilderTest, MissingStatusOrCompute_AssertionText) {
  for (int missing = 0; missing < 2; ++missing) {
    const auto e = TestSupport::thrownBy<Kel::AssertionException>([&] {
      grpPrefixTrieBuilderSmFactory(missing == 0 ? nullptr : status_,
                                    missing == 1 ? nullptr : compute_);
    });
    ASSERT_TRUE(e);
    EXPECT_EQ(e->expression(), "crpStatus() && crpCompute()");
    EXPECT_EQ(e->traceFile(), "PimCrpGrpTrieBuilderSm");
  }
}

TEST_F(GrpPrefixTrieBuilderTest, DroppedBuilder_StopsFollowingStatus) {
  auto builder = build();
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  builder = nullptr;
  status_->crpSetIs(IpGenPrefix("232.0.0.0/8"));
  EXPECT_EQ(compute_->grpTrie()->routes(), 1u);
  EXPECT_EQ(status_->notifiees(), 0u);
}

// Follows the status through random adds and removes in one family; after each step the longest
// match of sampled groups equals a brute-force longest match over the status's prefixes.
void followRandomChanges(RpCandidateStatus& status, RpCompute& compute, bool v6, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<IpGenPrefix> pool;
  for (int i = 0; i < 400; ++i) {
    const unsigned len = v6 ? 8 + rng() % 121 : 4 + rng() % 29;
    std::array<std::uint8_t, 16> bytes{};
    for (auto& b : bytes) b = static_cast<std::uint8_t>(rng());
    bytes[0] = v6 ? 0xff : static_cast<std::uint8_t>(0xe0 | (bytes[0] & 0x0f));
    // Keep many prefixes nested by sharing the leading bytes.
    if (i % 3 == 0 && !pool.empty()) {
      const auto& base = pool[rng() % pool.size()].address().bytes();
      std::copy(base.begin(), base.begin() + 3, bytes.begin());
    }
    const IpGenAddr addr = v6 ? IpGenAddr(Ipkit::Ip6Addr(bytes))
                              : IpGenAddr::ip4((U32{bytes[0]} << 24) | (U32{bytes[1]} << 16) |
                                               (U32{bytes[2]} << 8) | bytes[3]);
    pool.emplace_back(addr, len);
  }
  for (int step = 0; step < 60; ++step) {
    for (int change = 0; change < 20; ++change) {
      const IpGenPrefix& prefix = pool[rng() % pool.size()];
      if (rng() % 3 == 0) {
        status.crpSetDel(prefix);
      } else {
        status.crpSetIs(prefix);
      }
    }
    for (int sample = 0; sample < 50; ++sample) {
      const IpGenPrefix& near = pool[rng() % pool.size()];
      auto bytes = near.address().bytes();
      bytes[(v6 ? 15 : 3)] ^= static_cast<std::uint8_t>(rng());
      const IpGenAddr group = v6 ? IpGenAddr(Ipkit::Ip6Addr(bytes))
                                 : IpGenAddr::ip4((U32{bytes[0]} << 24) | (U32{bytes[1]} << 16) |
                                                  (U32{bytes[2]} << 8) | bytes[3]);
      IpGenPrefix expected;
      for (const auto& [prefix, set] : status.crpSet()) {
        if (prefix.contains(group) && (expected.isNull() || prefix.len() > expected.len())) {
          expected = prefix;
        }
      }
      const IpGenPrefix actual =
          compute.grpTrie() ? compute.grpTrie()->longestMatch(IpGenPrefix::hostPrefix(group))
                            : IpGenPrefix();
      ASSERT_EQ(actual, expected) << "step " << step << " group " << group;
    }
  }
}

TEST_F(GrpPrefixTrieBuilderTest, RandomAddsAndRemovesIp4_LongestMatchEqualsBruteForce) {
  auto builder = build();
  followRandomChanges(*status_, *compute_, false, 11);
}

TEST_F(GrpPrefixTrieBuilderTest, RandomAddsAndRemovesIp6_LongestMatchEqualsBruteForce) {
  auto builder = build();
  followRandomChanges(*status_, *compute_, true, 12);
}

}  // namespace
