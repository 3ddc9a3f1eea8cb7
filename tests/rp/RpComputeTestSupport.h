#pragma once
// The fixture of the RP selection suites: a candidate status with its compute, candidates added
// as the trie builder would add their ranges, and the RFC 7761 hash computed independently.

#include <gtest/gtest.h>

#include <string>

#include "framework/Ipkit/IpGenAddr.h"
#include "framework/Ipkit/IpGenPrefix.h"
#include "framework/Kel/Assert.h"
#include "rp/PimRpCompute.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/Refusal.h"

namespace RpTest {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::Pim::RpCandidateInfo;
using Routing::Pim::RpCandidateStatus;
using Routing::Pim::RpCompute;
using Routing::Pim::RpConfig;

constexpr U64 kMultiplier = 1103515245ull;

// RFC 7761 Value(G, M, C) for IPv4, computed in 64-bit arithmetic with the reductions written as
// the RFC states them, independently of the library's 32-bit formulation.
inline U32 referenceHash4(U32 group, unsigned maskLen, U32 rp) {
  const U64 mask = maskLen == 0 ? 0 : (0xffffffffull << (32 - maskLen)) & 0xffffffffull;
  const U64 inner = (kMultiplier * (group & mask) + 12345) % (1ull << 32);
  return static_cast<U32>((kMultiplier * ((inner ^ rp) % (1ull << 31)) + 12345) % (1ull << 31));
}

// The IPv6 variant: the group's masked last word stands for G & M, the XOR of the RP's four words
// for C.
inline U32 referenceHash6(const IpGenAddr& group, unsigned maskLen, const IpGenAddr& rp) {
  const auto g = group.ip6Addr();
  const unsigned lastWordBits = maskLen <= 96 ? 0 : maskLen - 96;
  const U64 lastWordMask =
      lastWordBits == 0 ? 0 : (0xffffffffull << (32 - lastWordBits)) & 0xffffffffull;
  const auto r = rp.ip6Addr();
  const U64 c = r.u32(0) ^ r.u32(1) ^ r.u32(2) ^ r.u32(3);
  const U64 inner = (kMultiplier * (g.u32(3) & lastWordMask) + 12345) % (1ull << 32);
  return static_cast<U32>((kMultiplier * ((inner ^ c) % (1ull << 31)) + 12345) % (1ull << 31));
}

class RpComputeFixture : public ::testing::Test {
 protected:
  // Adds the candidate and its prefix to the compute's trie, as the trie builder would.
  void add(const CandidateRecipe& recipe) {
    RpTest::addCandidate(status_, recipe);
    const IpGenPrefix prefix(recipe.prefix);
    compute_->grpTrieIs("crpTrie", prefix.af())->routeIs(prefix, 1);
  }
  RpCandidateInfo select(const char* group) { return compute_->doComputeRp(IpGenAddr(group)); }
  void expectScratchEmpty() const {
    EXPECT_EQ(compute_->rpPrioritySets(), 0u);
    EXPECT_EQ(compute_->rpHashMaskSets(), 0u);
    if (compute_->bidirRpSet()) {
      EXPECT_EQ(compute_->bidirRpSet()->rps(), 0u);
    }
    if (compute_->pimsmRpSet()) {
      EXPECT_EQ(compute_->pimsmRpSet()->rps(), 0u);
    }
  }
  // The assertion text thrown by `call`.
  template <class Call>
  std::string assertionOf(Call&& call) {
    const auto assertion = TestSupport::thrownBy<Kel::AssertionException>(call);
    if (!assertion) return "no assertion";
    EXPECT_EQ(assertion->traceFile(), "PimRpCompute");
    return assertion->expression();
  }

  Kel::Ptr<RpCandidateStatus> status_{new RpCandidateStatus};
  Kel::Ptr<RpConfig> config_{new RpConfig};
  Kel::Ptr<RpCompute> compute_{rpComputeFactory(status_, config_)};
};

}  // namespace RpTest
