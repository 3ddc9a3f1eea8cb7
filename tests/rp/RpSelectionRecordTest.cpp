#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "rp/PimRpCompute.h"
#include "rp/PimRpSelectionRecord.h"
#include "tests/rp/RpComputeTestSupport.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using RpTest::referenceHash4;
using RpTest::referenceHash6;

using Hashes = std::vector<std::optional<U32>>;

class RpSelectionRecordTest : public RpTest::RpComputeFixture {
 protected:
  RpSelectionRecord recordOf(const char* group) {
    RpSelectionRecord record;
    const RpCandidateInfo result = compute_->doComputeRpRecorded(IpGenAddr(group), record);
    EXPECT_EQ(result, record.result);
    EXPECT_EQ(result, compute_->doComputeRp(IpGenAddr(group)));
    expectScratchEmpty();
    return record;
  }
  static std::vector<std::string> addresses(const std::vector<RpSelectionRecord::Candidate>& rows) {
    std::vector<std::string> out;
    for (const auto& row : rows) out.push_back(row.info.address().valueToStrep());
    return out;
  }
  static Hashes hashes(const RpSelectionRecord& record) {
    Hashes out;
    for (const auto& row : record.candidates) out.push_back(row.hash);
    return out;
  }
  // "address reason" for each set-aside candidate.
  static std::vector<std::string> setAside(const RpSelectionRecord& record) {
    std::vector<std::string> out;
    for (const auto& row : record.setAside) {
      out.push_back(row.info.address().valueToStrep() + " " + rpSetAsideReasonWord(row.reason));
    }
    return out;
  }
  static U32 hash4(const char* group, unsigned len, const char* rp) {
    return referenceHash4(IpGenAddr(group).ip4Addr().value(), len, IpGenAddr(rp).ip4Addr().value());
  }
};

using Strings = std::vector<std::string>;

TEST_F(RpSelectionRecordTest, NoRangeCoversTheGroup_NullRangeAndNoStep) {
  add({"232.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_TRUE(record.range.isNull());
  EXPECT_TRUE(record.candidates.empty());
  EXPECT_TRUE(record.setAside.empty());
  EXPECT_EQ(record.step, RpSelectionStep::none);
  EXPECT_EQ(record.rule(), "");
  EXPECT_EQ(record.result, RpCandidateInfo());
}

TEST_F(RpSelectionRecordTest, SingleCandidate_NoHashComputed) {
  add({"239.0.0.0/8", "10.0.0.7", 3, 30, modePimSm, true});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(record.range, IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(record.decidingMode, modePimSm);
  EXPECT_EQ(addresses(record.candidates), (Strings{"10.0.0.7"}));
  EXPECT_EQ(record.candidates[0].info,
            RpCandidateInfo(IpGenAddr("10.0.0.7"), 3, 30, true, modePimSm));
  EXPECT_EQ(hashes(record), (Hashes{std::nullopt}));
  EXPECT_EQ(record.step, RpSelectionStep::singleCandidate);
  EXPECT_EQ(record.rule(), "single candidate");
}

TEST_F(RpSelectionRecordTest, OneBidirAmongSparse_BidirPreferredAndSparseSetAside) {
  add({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.9", 0, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.5", 255, 30, modePimBidir});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(record.decidingMode, modePimBidir);
  EXPECT_EQ(addresses(record.candidates), (Strings{"10.0.0.5"}));
  EXPECT_EQ(hashes(record), (Hashes{std::nullopt}));
  EXPECT_EQ(setAside(record), (Strings{"10.0.0.1 other mode", "10.0.0.9 other mode"}));
  EXPECT_EQ(record.setAside[0].info,
            RpCandidateInfo(IpGenAddr("10.0.0.1"), 0, 30, false, modePimSm));
  EXPECT_EQ(record.rule(), "bidir preferred");
  EXPECT_EQ(record.result.address(), IpGenAddr("10.0.0.5"));
}

TEST_F(RpSelectionRecordTest, BidirPairOfEqualPriority_HighestAddressWithoutHashes) {
  add({"239.0.0.0/8", "10.0.0.9", 5, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.10", 5, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.3", 0, 30, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(addresses(record.candidates), (Strings{"10.0.0.9", "10.0.0.10"}));
  EXPECT_EQ(hashes(record), (Hashes{std::nullopt, std::nullopt}));
  EXPECT_EQ(setAside(record), (Strings{"10.0.0.3 other mode"}));
  EXPECT_EQ(record.step, RpSelectionStep::highestAddress);
  EXPECT_EQ(record.rule(), "highest address (bidir candidates are not hashed)");
  EXPECT_EQ(record.result.address(), IpGenAddr("10.0.0.10"));
}

TEST_F(RpSelectionRecordTest, BidirPairOfDifferentPriorities_PriorityDecides) {
  add({"239.0.0.0/8", "10.0.0.9", 5, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.10", 6, 30, modePimBidir});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(record.rule(), "priority");
  EXPECT_EQ(hashes(record), (Hashes{std::nullopt, std::nullopt}));
  EXPECT_EQ(record.result.address(), IpGenAddr("10.0.0.9"));
}

TEST_F(RpSelectionRecordTest, LowestPriorityValueAlone_PriorityDecidesNothingHashed) {
  add({"239.0.0.0/8", "10.0.0.1", 192, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(addresses(record.candidates), (Strings{"10.0.0.1", "10.0.0.2"}));
  EXPECT_EQ(hashes(record), (Hashes{std::nullopt, std::nullopt}));
  EXPECT_EQ(record.step, RpSelectionStep::priority);
  EXPECT_EQ(record.rule(), "priority");
  EXPECT_EQ(record.result.address(), IpGenAddr("10.0.0.2"));
}

TEST_F(RpSelectionRecordTest, HashDecides_OnlyTheBestPriorityIsHashed) {
  add({"239.0.0.0/8", "10.1.0.1", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.1.0.2", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.1.0.3", 20, 30, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(hash4("239.1.1.1", 30, "10.1.0.1"), 363606289u);
  EXPECT_EQ(hash4("239.1.1.1", 30, "10.1.0.2"), 1526668376u);
  EXPECT_EQ(hashes(record), (Hashes{363606289u, 1526668376u, std::nullopt}));
  EXPECT_EQ(record.step, RpSelectionStep::hash);
  EXPECT_EQ(record.rule(), "hash");
  EXPECT_FALSE(record.hashMaskNotSet);
  EXPECT_EQ(record.result.address(), IpGenAddr("10.1.0.2"));
}

TEST_F(RpSelectionRecordTest, EqualHashes_HighestAddressWithBothHashes) {
  // C values that differ only in bit 31 give the same value modulo 2^31.
  add({"239.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  add({"239.0.0.0/8", "138.0.0.1", 10, 30, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  const U32 hash = hash4("239.1.1.1", 30, "10.0.0.1");
  EXPECT_EQ(hash, hash4("239.1.1.1", 30, "138.0.0.1"));
  EXPECT_EQ(hashes(record), (Hashes{hash, hash}));
  EXPECT_EQ(record.step, RpSelectionStep::highestAddress);
  EXPECT_EQ(record.rule(), "highest address (equal hashes)");
  EXPECT_EQ(record.result.address(), IpGenAddr("138.0.0.1"));
}

// With the hash mask not set (128) an IPv4 group is hashed whole: for 239.1.1.5 that picks the
// lower of the two addresses, which "highest address" would not name.
TEST_F(RpSelectionRecordTest, Ip4HashMaskNotSet_WholeGroupHashedAndHashDecides) {
  add({"239.0.0.0/8", "10.0.0.1", 0, kRpHashMaskLenNone, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 0, kRpHashMaskLenNone, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.5");
  const U32 first = hash4("239.1.1.5", 32, "10.0.0.1");
  const U32 second = hash4("239.1.1.5", 32, "10.0.0.2");
  ASSERT_GT(first, second);
  EXPECT_EQ(hashes(record), (Hashes{first, second}));
  EXPECT_TRUE(record.hashMaskNotSet);
  EXPECT_EQ(record.rule(), "hash (hash mask not set: the whole group is hashed)");
  EXPECT_EQ(record.result.address(), IpGenAddr("10.0.0.1"));
}

TEST_F(RpSelectionRecordTest, Ip6HashMask128_LastWordHashedWholeAndHashDecides) {
  add({"ff00::/8", "2001:db8::1", 0, kRpHashMaskLenNone, modePimSm});
  add({"ff00::/8", "2001:db8::2", 0, kRpHashMaskLenNone, modePimSm});
  const RpSelectionRecord record = recordOf("ff0e::1:5");
  const U32 first = referenceHash6(IpGenAddr("ff0e::1:5"), 128, IpGenAddr("2001:db8::1"));
  const U32 second = referenceHash6(IpGenAddr("ff0e::1:5"), 128, IpGenAddr("2001:db8::2"));
  ASSERT_NE(first, second);
  EXPECT_EQ(hashes(record), (Hashes{first, second}));
  EXPECT_EQ(record.rule(),
            "hash (hash mask 128 or not set: the group's whole last 32-bit word is hashed)");
  EXPECT_EQ(record.result.address(), IpGenAddr(first > second ? "2001:db8::1" : "2001:db8::2"));
}

TEST_F(RpSelectionRecordTest, HashMaskNotSetOnOneOfEqualHashes_BothQualifiersNamed) {
  // 10.0.0.1 and 138.0.0.1 hash alike for any mask: their C differ only in bit 31.
  add({"239.0.0.0/8", "10.0.0.1", 10, kRpHashMaskLenNone, modePimSm});
  add({"239.0.0.0/8", "138.0.0.1", 10, 32, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(record.rule(),
            "highest address (equal hashes; hash mask not set: the whole group is hashed)");
}

TEST_F(RpSelectionRecordTest, Modulo_IndexAndValueAndNoHash) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  add({"239.0.0.0/8", "10.0.0.2", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.3", 10, 30, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(hashes(record), (Hashes{std::nullopt, std::nullopt, std::nullopt}));
  EXPECT_EQ(record.step, RpSelectionStep::moduloIndex);
  EXPECT_EQ(record.moduloValue, 4009820417u);
  EXPECT_EQ(record.moduloIndex, 2u);
  EXPECT_EQ(record.rule(), "modulo index (4009820417 mod 3 = 2)");
  EXPECT_EQ(record.result.address(), IpGenAddr("10.0.0.3"));
}

TEST_F(RpSelectionRecordTest, ModuloAfterBidirPreference_CountsTheBidirCandidatesOnly) {
  config_->rpHashAlgorithmIs(rpHashAlgorithmModulo);
  add({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.3", 0, 30, modePimBidir});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(addresses(record.candidates), (Strings{"10.0.0.2", "10.0.0.3"}));
  EXPECT_EQ(setAside(record), (Strings{"10.0.0.1 other mode"}));
  EXPECT_EQ(record.rule(), "modulo index (4009820417 mod 2 = 1)");
  EXPECT_EQ(record.result.address(), IpGenAddr("10.0.0.3"));
}

TEST_F(RpSelectionRecordTest, CandidateWithoutMode_SetAsideAsUnusable) {
  add({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimNone});
  RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(record.range, IpGenPrefix("239.0.0.0/8"));
  EXPECT_TRUE(record.candidates.empty());
  EXPECT_EQ(setAside(record), (Strings{"10.0.0.1 no usable mode"}));
  EXPECT_EQ(record.step, RpSelectionStep::none);
  EXPECT_EQ(record.rule(), "");
  add({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.0", 0, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.3", 0, 30, modePimNone});
  record = recordOf("239.1.1.1");
  EXPECT_EQ(setAside(record),
            (Strings{"10.0.0.1 no usable mode", "10.0.0.2 other mode", "10.0.0.3 no usable mode"}));
  EXPECT_EQ(record.rule(), "bidir preferred");
}

TEST_F(RpSelectionRecordTest, OneSparseBesideUnusable_SingleCandidate) {
  add({"239.0.0.0/8", "10.0.0.1", 0, 30, modePimNone});
  add({"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  const RpSelectionRecord record = recordOf("239.1.1.1");
  EXPECT_EQ(record.rule(), "single candidate");
  EXPECT_EQ(setAside(record), (Strings{"10.0.0.1 no usable mode"}));
}

TEST_F(RpSelectionRecordTest, Recording_TracesExactlyAsWithout) {
  add({"239.0.0.0/8", "10.0.0.1", 4, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.2", 4, 30, modePimBidir});
  add({"239.0.0.0/8", "10.0.0.3", 0, kRpHashMaskLenNone, modePimSm});
  add({"239.0.0.0/8", "10.0.0.4", 0, 30, modePimSm});
  add({"239.2.0.0/16", "10.0.0.5", 0, kRpHashMaskLenNone, modePimSm});
  add({"239.2.0.0/16", "10.0.0.6", 0, 30, modePimSm});
  for (const RpHashAlgorithm algorithm : {rpHashAlgorithmRfc7761, rpHashAlgorithmModulo}) {
    config_->rpHashAlgorithmIs(algorithm);
    for (const char* group : {"239.1.1.1", "239.2.1.1", "232.1.1.1"}) {
      TestSupport::TraceCapture capture("PimRpCompute");
      compute_->doComputeRp(IpGenAddr(group));
      const auto without = capture.lines();
      capture.clear();
      RpSelectionRecord record;
      compute_->doComputeRpRecorded(IpGenAddr(group), record);
      EXPECT_EQ(capture.lines(), without) << group;
      EXPECT_FALSE(without.empty());
    }
  }
}

TEST_F(RpSelectionRecordTest, AfterRecording_PlainSelectionWritesNoRecord) {
  add({"239.0.0.0/8", "10.0.0.1", 10, 30, modePimSm});
  add({"239.0.0.0/8", "10.0.0.2", 10, 30, modePimSm});
  RpSelectionRecord record = recordOf("239.1.1.1");
  const std::string rule = record.rule();
  const Hashes before = hashes(record);
  compute_->doComputeRp(IpGenAddr("239.1.1.2"));
  EXPECT_EQ(record.rule(), rule);
  EXPECT_EQ(hashes(record), before);
  EXPECT_EQ(record.candidates.size(), 2u);
}

TEST_F(RpSelectionRecordTest, AssertionMidSelection_RecorderLetGo) {
  // An IPv6 mask longer than 128 makes the hash refuse in the middle of a recorded selection.
  add({"ff00::/8", "2001:db8::1", 0, 129, modePimSm});
  add({"ff00::/8", "2001:db8::2", 0, 129, modePimSm});
  add({"ff05::/16", "2001:db8::9", 10, 126, modePimSm});
  RpSelectionRecord record;
  EXPECT_EQ(assertionOf([&] { compute_->doComputeRpRecorded(IpGenAddr("ff0e::1"), record); }),
            "len <= 128");
  compute_->doComputeRp(IpGenAddr("ff05::1"));
  EXPECT_EQ(record.range, IpGenPrefix("ff00::/8"));
  EXPECT_EQ(record.candidates.size(), 2u);
  expectScratchEmpty();
}

}  // namespace
