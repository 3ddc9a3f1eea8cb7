#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/Assert.h"
#include "rp/PimRpCompute.h"
#include "tests/rp/RpComputeTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using Lines = std::vector<std::string>;
using RpTest::CandidateRecipe;

// The function signatures as the traces print them.
const std::string kFromPrefix =
    "Routing::Pim::RpCandidateInfo "
    "Routing::Pim::RpCompute::doComputeRpFromPrefix(const Ipkit::IpGenPrefix&)";
const std::string kLpm =
    "Kel::PtrConst<Routing::Pim::RpCandidateSet> "
    "Routing::Pim::RpCompute::doLongestPrefixGroupMatch(const Ipkit::IpGenPrefix&)";
const std::string kSelect =
    "Routing::Pim::RpCandidateInfo Routing::Pim::RpCompute::doSelectCrp("
    "Kel::PtrConst<Routing::Pim::CrpSet>&, const Ipkit::IpGenPrefix&)";
const std::string kPriority =
    "Kel::PtrConst<Routing::Pim::RpPrioritySet> "
    "Routing::Pim::RpCompute::doHighestPriorityRpMatch(Kel::PtrConst<Routing::Pim::CrpSet>&)";
const std::string kHashSet =
    "Kel::PtrConst<Routing::Pim::RpHashMaskSet> "
    "Routing::Pim::RpCompute::doHighestHashMaskRpMatch(const Ipkit::IpGenAddr&, "
    "Kel::PtrConst<Routing::Pim::RpPrioritySet>&)";
const std::string kHash =
    "U32 Routing::Pim::RpCompute::doComputeHashMask(Routing::Pim::Mode, const Ipkit::IpGenAddr&, "
    "Routing::Pim::RpHashMaskLen, const Ipkit::IpGenAddr&)";
const std::string kModulo =
    "Kel::PtrConst<Routing::Pim::RpCandidate> Routing::Pim::RpCompute::doComputeRpModulo(const "
    "Ipkit::IpGenAddr&, Kel::PtrConst<Routing::Pim::CrpSet>&) const";
const std::string kHighestIp =
    "Ipkit::IpGenAddr "
    "Routing::Pim::RpCompute::doHighestIpRpMatch(Kel::PtrConst<Routing::Pim::RpHashMaskSet>&)";

using RpTest::referenceHash4;
using RpTest::referenceHash6;

class RpComputeTest : public RpTest::RpComputeFixture {};

TEST_F(RpComputeTest, Factory_NewCompute_HoldsInputsAndNoScratch) {
  EXPECT_EQ(compute_->crp(), status_);
  EXPECT_EQ(compute_->rpConfig(), config_);
  EXPECT_FALSE(compute_->grpTrie());
  EXPECT_FALSE(compute_->bidirRpSet());
  EXPECT_FALSE(compute_->pimsmRpSet());
  expectScratchEmpty();
}

TEST_F(RpComputeTest, BidirAndSparseOnSamePrefix_BidirWinsWhateverPriorities) {
  add({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.3", 255, 30, modePimBidir});
  EXPECT_EQ(select("239.1.1.1"),
            RpCandidateInfo(IpGenAddr("10.0.0.3"), 255, 30, false, modePimBidir));
  expectScratchEmpty();
}

TEST_F(RpComputeTest, SparsePriorities0And192_Priority0Wins) {
  add({"239.0.0.0/8", "10.0.0.1", 192, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  EXPECT_EQ(select("239.1.1.1").address(), IpGenAddr("10.0.0.2"));
  add({"239.0.0.0/8", "10.0.0.2", 193, 30, modePimSm});
  EXPECT_EQ(select("239.1.1.1").address(), IpGenAddr("10.0.0.1"));
}

TEST_F(RpComputeTest, TwoBidirEqualPriority_HashZeroHigherAddressWins) {
  add({"239.0.0.0/8", "10.0.0.9", 5, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.10", 5, 30, modePimBidir});
  EXPECT_EQ(
      compute_->doComputeHashMask(modePimBidir, IpGenAddr("239.1.1.1"), 30, IpGenAddr("10.0.0.9")),
      0u);
  EXPECT_EQ(
      compute_->doComputeHashMask(modePimBidir, IpGenAddr("239.1.1.1"), 30, IpGenAddr("10.0.0.10")),
      0u);
  EXPECT_EQ(select("239.1.1.1").address(), IpGenAddr("10.0.0.10"));
  EXPECT_EQ(select("239.200.1.1").address(), IpGenAddr("10.0.0.10"));
}

TEST_F(RpComputeTest, TwoSparseEqualPriorityAndMask_LargerHashWins) {
  add({"239.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 10, 30, modePimSm});
  const U32 group = IpGenAddr("239.1.1.1").ip4Addr().value();
  const U32 first = referenceHash4(group, 30, IpGenAddr("10.0.0.1").ip4Addr().value());
  const U32 second = referenceHash4(group, 30, IpGenAddr("10.0.0.2").ip4Addr().value());
  ASSERT_NE(first, second);
  const IpGenAddr expected(first > second ? "10.0.0.1" : "10.0.0.2");
  EXPECT_EQ(select("239.1.1.1").address(), expected);
}

TEST_F(RpComputeTest, TwoSparseEqualHashValue_HigherAddressWins) {
  // C values that differ only in bit 31 give the same value modulo 2^31.
  add({"239.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  add({"239.0.0.0/8", "138.0.0.1", 10, 30, modePimSm});
  EXPECT_EQ(
      compute_->doComputeHashMask(modePimSm, IpGenAddr("239.1.1.1"), 30, IpGenAddr("10.0.0.1")),
      compute_->doComputeHashMask(modePimSm, IpGenAddr("239.1.1.1"), 30, IpGenAddr("138.0.0.1")));
  TestSupport::TraceCapture capture("PimRpCompute", 5);
  EXPECT_EQ(select("239.1.1.1").address(), IpGenAddr("138.0.0.1"));
  EXPECT_TRUE(capture.wrote("2 in highest hash mask set"));
  EXPECT_TRUE(capture.wrote("Mapping group 239.1.1.1/32 to rp 138.0.0.1"));
}

TEST_F(RpComputeTest, HashMaskLenZero_ValueDependsOnRpAlone) {
  TestSupport::TraceCapture capture("PimRpCompute", 8);
  const IpGenAddr rp("10.0.0.1");
  const U32 value = compute_->doComputeHashMask(modePimSm, IpGenAddr("239.1.1.1"), 0, rp);
  EXPECT_EQ(value, compute_->doComputeHashMask(modePimSm, IpGenAddr("224.0.0.1"), 0, rp));
  EXPECT_EQ(value, referenceHash4(0, 0, rp.ip4Addr().value()));
  EXPECT_EQ(capture.lines()[0], "G=4009820417, M=0, C=167772161 => HashMaskValue= 0");
  EXPECT_EQ(capture.lines()[1],
            "af: ipv4 GM = 0, C = 167772161 => HashMaskValue= " + std::to_string(value));
}

TEST_F(RpComputeTest, Ip4HashValues_MatchIndependentComputation) {
  const char* groups[] = {"239.1.1.1", "224.0.0.0", "239.255.255.255", "232.10.20.30"};
  const char* rps[] = {"10.0.0.1", "192.168.255.254", "1.2.3.4", "255.255.255.255"};
  for (const char* group : groups) {
    for (const char* rp : rps) {
      for (unsigned len : {0u, 1u, 24u, 30u, 32u}) {
        const IpGenAddr g(group), c(rp);
        EXPECT_EQ(compute_->doComputeHashMask(modePimSm, g, len, c),
                  referenceHash4(g.ip4Addr().value(), len, c.ip4Addr().value()))
            << group << " " << rp << " /" << len;
      }
    }
  }
}

TEST_F(RpComputeTest, Ip4HashMaskLenAbove32_CountsAs32) {
  const IpGenAddr group("239.1.1.1"), rp("10.0.0.1");
  EXPECT_EQ(compute_->doComputeHashMask(modePimSm, group, 128, rp),
            compute_->doComputeHashMask(modePimSm, group, 32, rp));
}

TEST_F(RpComputeTest, Ip6HashValues_UseLastGroupWordAndXorOfRpWords) {
  const char* groups[] = {"ff0e::1:2", "ff05::abcd:ef01", "ff3e:1234:5678::ffff:ffff"};
  const char* rps[] = {"2001:db8::1", "fd00:1:2:3:4:5:6:7", "::1"};
  for (const char* group : groups) {
    for (const char* rp : rps) {
      for (unsigned len : {0u, 64u, 96u, 100u, 120u, 126u, 128u}) {
        const IpGenAddr g(group), c(rp);
        EXPECT_EQ(compute_->doComputeHashMask(modePimSm, g, len, c), referenceHash6(g, len, c))
            << group << " " << rp << " /" << len;
      }
    }
  }
}

TEST_F(RpComputeTest, Ip6Hash_GroupsDifferingOnlyAboveLastWord_HashEqual) {
  const IpGenAddr rp("2001:db8::1");
  EXPECT_EQ(compute_->doComputeHashMask(modePimSm, IpGenAddr("ff0e::1:2"), 128, rp),
            compute_->doComputeHashMask(modePimSm, IpGenAddr("ff05:1::1:2"), 128, rp));
}

TEST_F(RpComputeTest, ModuloThreeCandidates_Group239_1_1_1_SelectsThird) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  add({"239.0.0.0/8", "10.0.0.2", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.3", 10, 30, modePimSm});
  EXPECT_EQ(4009820417u % 3, 2u);
  EXPECT_EQ(select("239.1.1.1").address(), IpGenAddr("10.0.0.3"));
  expectScratchEmpty();
}

TEST_F(RpComputeTest, ModuloIp6_UsesLastGroupWord) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  add({"ff00::/8", "2001:db8::1", 10, 126, modePimSm});
  add({"ff00::/8", "2001:db8::2", 10, 126, modePimSm});
  add({"ff00::/8", "2001:db8::3", 10, 126, modePimSm});
  // Last word 0x00000004: 4 mod 3 = 1, the second candidate in address order.
  EXPECT_EQ(select("ff0e::4").address(), IpGenAddr("2001:db8::2"));
  EXPECT_EQ(select("ff0e::5").address(), IpGenAddr("2001:db8::3"));
}

TEST_F(RpComputeTest, SingleCandidate_NoPriorityHashOrModuloEvaluated) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  add({"239.0.0.0/8", "10.0.0.7", 3, 30, modePimSm, true});
  TestSupport::TraceCapture capture("PimRpCompute");
  EXPECT_EQ(select("239.1.1.1"), RpCandidateInfo(IpGenAddr("10.0.0.7"), 3, 30, true, modePimSm));
  EXPECT_FALSE(capture.wrote("doHighestPriorityRpMatch"));
  EXPECT_FALSE(capture.wrote("doComputeHashMask"));
  EXPECT_FALSE(capture.wrote("doComputeRpModulo"));
}

TEST_F(RpComputeTest, EmptyStatus_ReturnsEmptyResult) {
  const RpCandidateInfo result = select("239.1.1.1");
  EXPECT_TRUE(!result);
  EXPECT_EQ(result.address().af(), Ipkit::ipunknown());
  EXPECT_EQ(result.priority(), 256u);
  EXPECT_EQ(result.hashMaskLen(), 128u);
  EXPECT_FALSE(result.override());
  EXPECT_EQ(result.mode(), modePimNone);
}

TEST_F(RpComputeTest, GroupWithoutMatchingPrefix_ReturnsEmptyResult) {
  add({"232.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  EXPECT_EQ(select("239.1.1.1"), RpCandidateInfo());
  EXPECT_EQ(select("ff0e::1"), RpCandidateInfo());
}

TEST_F(RpComputeTest, LongestPrefix_MoreSpecificSetWins) {
  add({"224.0.0.0/4", "10.0.0.1", 0, 30, modePimSm});
  add({"239.1.0.0/16", "10.0.0.2", 200, 30, modePimSm});
  EXPECT_EQ(select("239.1.1.1").address(), IpGenAddr("10.0.0.2"));
  EXPECT_EQ(select("239.2.1.1").address(), IpGenAddr("10.0.0.1"));
}

TEST_F(RpComputeTest, CandidateWithNoMode_IgnoredForSelection) {
  add({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimNone});
  EXPECT_EQ(select("239.1.1.1"), RpCandidateInfo());
  add({"239.0.0.0/8", "10.0.0.2", 100, 30, modePimSm});
  EXPECT_EQ(select("239.1.1.1").address(), IpGenAddr("10.0.0.2"));
}

TEST_F(RpComputeTest, MatchedPrefixWithEmptySet_ReturnsEmptyResult) {
  status_->crpSetIs(IpGenPrefix("239.0.0.0/8"));
  compute_->grpTrieIs("crpTrie", Ipkit::ipv4())->routeIs(IpGenPrefix("239.0.0.0/8"), 1);
  EXPECT_EQ(select("239.1.1.1"), RpCandidateInfo());
}

TEST_F(RpComputeTest, Traces_TwoCandidateSparseSelection_ExactLines) {
  add({"239.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 10, 30, modePimSm});
  const U32 g = 4009820417u;
  const U32 h1 = referenceHash4(g, 30, 167772161u), h2 = referenceHash4(g, 30, 167772162u);
  ASSERT_GT(h1, h2);
  const std::string gm = std::to_string(static_cast<U32>((g & 0xfffffffcu) * 1103515245u));
  TestSupport::TraceCapture capture("PimRpCompute");
  select("239.1.1.1");
  EXPECT_EQ(capture.lines(),
            (Lines{
                kFromPrefix + "( 239.1.1.1/32 )",
                kLpm,
                kLpm + " LPM for 239.1.1.1/32 is prefix 239.0.0.0/8",
                kSelect + "( 239.1.1.1/32 )",
                kPriority,
                kPriority + " 1 RP priority sets created.",
                "Highest priority is 10",
                "2 RP's in RP priority set",
                kHashSet + "( 239.1.1.1 )",
                kHash + "( modePimSm, 239.1.1.1, 30, 10.0.0.1 )",
                "G=4009820417, M=4294967292, C=167772161 => HashMaskValue= 0",
                "af: ipv4 GM = " + gm + ", C = 167772161 => HashMaskValue= " + std::to_string(h1),
                kHash + "( modePimSm, 239.1.1.1, 30, 10.0.0.2 )",
                "G=4009820417, M=4294967292, C=167772162 => HashMaskValue= 0",
                "af: ipv4 GM = " + gm + ", C = 167772162 => HashMaskValue= " + std::to_string(h2),
                kHashSet + " 2 hash mask sets created.",
                "Highest HashMask is " + std::to_string(h1),
                "RP=10.0.0.1, Priority=10, HashMaskLen=30, override=False, mode=modePimSm",
            }));
}

TEST_F(RpComputeTest, Traces_BidirSelection_ExactLines) {
  add({"239.0.0.0/8", "10.0.0.1", 4, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.2", 4, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.3", 0, 30, modePimSm});
  TestSupport::TraceCapture capture("PimRpCompute");
  select("239.1.1.1");
  const std::string gm =
      std::to_string(static_cast<U32>((4009820417u & 0xfffffffcu) * 1103515245u));
  EXPECT_EQ(capture.lines(),
            (Lines{
                kFromPrefix + "( 239.1.1.1/32 )",
                kLpm,
                kLpm + " LPM for 239.1.1.1/32 is prefix 239.0.0.0/8",
                kSelect + "( 239.1.1.1/32 )",
                kPriority,
                kPriority + " 1 RP priority sets created.",
                "Highest priority is 4",
                "2 RP's in RP priority set",
                kHashSet + "( 239.1.1.1 )",
                kHash + "( modePimBidir, 239.1.1.1, 30, 10.0.0.1 )",
                "G=4009820417, M=4294967292, C=167772161 => HashMaskValue= 0",
                "af: ipv4 GM = " + gm + ", C = 167772161 => HashMaskValue= 0",
                kHash + "( modePimBidir, 239.1.1.1, 30, 10.0.0.2 )",
                "G=4009820417, M=4294967292, C=167772162 => HashMaskValue= 0",
                "af: ipv4 GM = " + gm + ", C = 167772162 => HashMaskValue= 0",
                kHashSet + " 1 hash mask sets created.",
                "Highest HashMask is 0",
                "2 in highest hash mask set",
                kHighestIp,
                kHighestIp + "Highest IP is 10.0.0.2",
                "Mapping group 239.1.1.1/32 to rp 10.0.0.2",
                "RP=10.0.0.2, Priority=4, HashMaskLen=30, override=False, mode=modePimBidir",
            }));
}

TEST_F(RpComputeTest, Traces_ModuloSelection_ExactLines) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  add({"239.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.3", 10, 30, modePimSm});
  TestSupport::TraceCapture capture("PimRpCompute");
  select("239.1.1.1");
  EXPECT_EQ(capture.lines(),
            (Lines{
                kFromPrefix + "( 239.1.1.1/32 )",
                kLpm,
                kLpm + " LPM for 239.1.1.1/32 is prefix 239.0.0.0/8",
                kSelect + "( 239.1.1.1/32 )",
                kModulo + "( 239.1.1.1 ) ",
                "doComputeRpModulo group address: 239.1.1.1 (decimal value: 4009820417), num Rps: "
                "3, index(239.1.1.1%3): 2 => RP= 10.0.0.3",
                "RP=10.0.0.3, Priority=10, HashMaskLen=30, override=False, mode=modePimSm",
            }));
}

TEST_F(RpComputeTest, Traces_ModuloIp6_DecimalValueReadsFirstWordAsIp4) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  add({"ff00::/8", "2001:db8::1", 10, 126, modePimSm});
  add({"ff00::/8", "2001:db8::2", 10, 126, modePimSm});
  TestSupport::TraceCapture capture("PimRpCompute", 5);
  select("ff0e::5");
  // ff0e:0000 read as an IPv4 number is 0xff0e0000.
  EXPECT_TRUE(capture.wrote(
      "doComputeRpModulo group address: ff0e::5 (decimal value: 4279107584), num Rps: 2, "
      "index(ff0e::5%2): 1 => RP= 2001:db8::2"));
}

TEST_F(RpComputeTest, Traces_Miss_ExactLines) {
  add({"232.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  TestSupport::TraceCapture capture("PimRpCompute");
  select("239.1.1.1");
  EXPECT_EQ(capture.lines(), (Lines{
                                 kFromPrefix + "( 239.1.1.1/32 )",
                                 kLpm,
                                 kLpm + " LPM for 239.1.1.1/32 returned NULL prefix",
                             }));
}

TEST_F(RpComputeTest, Traces_EmptyCrpSet_NoRpFoundLine) {
  TestSupport::TraceCapture capture("PimRpCompute", 5);
  compute_->doSelectCrp(compute_->bidirRpSetIs(), IpGenPrefix("239.1.1.1/32"));
  EXPECT_EQ(capture.lines(),
            (Lines{"No RP found for group 239.1.1.1/32",
                   "RP=unknown, Priority=256, HashMaskLen=128, override=False, mode=modePimNone"}));
}

TEST_F(RpComputeTest, Assertions_EachTextProvoked) {
  Kel::Ptr<CrpSet> empty(new CrpSet);
  EXPECT_EQ(assertionOf([&] { compute_->doHighestPriorityRpMatch(nullptr); }), "rpSet");
  EXPECT_EQ(assertionOf([&] { compute_->doComputeRpModulo(IpGenAddr("239.1.1.1"), nullptr); }),
            "rpSet");
  EXPECT_EQ(assertionOf([&] { compute_->doComputeRpModulo(IpGenAddr("239.1.1.1"), empty); }),
            "rpSet->rps()");
  Kel::Ptr<RpCandidate> candidate(new RpCandidate(IpGenAddr("10.0.0.1")));
  Kel::Ptr<CrpSet> one(new CrpSet);
  one->rpIs(candidate->address(), candidate);
  EXPECT_EQ(assertionOf([&] { compute_->doComputeRpModulo(IpGenAddr(), one); }),
            "groupAddr.af() != Ipkit::ipunknown()");
  EXPECT_EQ(assertionOf([&] {
              compute_->doComputeHashMask(modePimSm, IpGenAddr(), 30, IpGenAddr("10.0.0.1"));
            }),
            "groupAddr.af() != Ipkit::ipunknown()");
  EXPECT_EQ(assertionOf([&] { compute_->doHighestPriorityRpMatch(empty); }), "rpPrioritySets()");
  EXPECT_EQ(assertionOf([&] {
              compute_->doHighestHashMaskRpMatch(IpGenAddr("239.1.1.1"),
                                                 Kel::Ptr<RpPrioritySet>(new RpPrioritySet(0)));
            }),
            "rpHashMaskSets()");
  EXPECT_EQ(assertionOf([&] {
              compute_->doHighestIpRpMatch(Kel::Ptr<RpHashMaskSet>(new RpHashMaskSet(0)));
            }),
            "rp.af() != Ipkit::ipunknown()");
  EXPECT_EQ(assertionOf([&] {
              compute_->doComputeHashMask(modePimSm, IpGenAddr("ff0e::1"), 129,
                                          IpGenAddr("2001:db8::1"));
            }),
            "len <= 128");
}

TEST_F(RpComputeTest, Assertion_CarriesSignatureAndLine) {
  const auto e = TestSupport::thrownBy<Kel::AssertionException>(
      [&] { compute_->doHighestPriorityRpMatch(nullptr); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->function(), kPriority);
  EXPECT_GT(e->line(), 0);
}

TEST_F(RpComputeTest, AssertionMidSelection_ScratchStillEmptied) {
  Kel::Ptr<CrpSet> two(new CrpSet);
  for (const char* rp : {"10.0.0.1", "10.0.0.2"}) {
    Kel::Ptr<RpCandidate> candidate(new RpCandidate(IpGenAddr(rp)));
    candidate->pimModeIs(modePimSm);
    two->rpIs(candidate->address(), candidate);
  }
  // The priority sets are built before the hash refuses a group of unknown family.
  EXPECT_EQ(assertionOf([&] { compute_->doSelectCrp(two, IpGenPrefix()); }),
            "groupAddr.af() != Ipkit::ipunknown()");
  expectScratchEmpty();
}

TEST_F(RpComputeTest, GrpTrie_CreatedOnceAndDropped) {
  auto trie = compute_->grpTrieIs("crpTrie", Ipkit::ipv4());
  EXPECT_EQ(compute_->grpTrieIs("crpTrie", Ipkit::ipv4()), trie);
  EXPECT_EQ(trie->name(), "crpTrie");
  compute_->grpTrieDel();
  EXPECT_FALSE(compute_->grpTrie());
}

}  // namespace
