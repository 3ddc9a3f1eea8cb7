#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/Assert.h"
#include "rp/PimRpHashComputeStatus.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using Lines = std::vector<std::string>;
using RpTest::addCandidate;

const std::string kRpHashCompute =
    "Ipkit::IpGenAddr Routing::Pim::RpHashComputeStatus::rpHashCompute(const Ipkit::IpGenAddr&, "
    "const Ipkit::IpGenAddr&) const";

class RpHashComputeTest : public ::testing::Test {
 protected:
  Kel::Ptr<RpHashComputeStatus> build(Mode mode) {
    return rpHashComputeStatusFactory(static_, bsr_, table_, mode, config_);
  }
  IpGenAddr ask(const Kel::Ptr<RpHashComputeStatus>& status, const char* group) {
    return status->rpHashCompute(IpGenAddr(group), join_);
  }
  // rpHashComputeRecorded, checked to answer as rpHashCompute does.
  RpHashComputeRecord recordOf(const Kel::Ptr<RpHashComputeStatus>& status, const char* group,
                               const IpGenAddr& join) {
    RpHashComputeRecord record;
    const IpGenAddr answer = status->rpHashComputeRecorded(IpGenAddr(group), join, record);
    EXPECT_EQ(answer, status->rpHashCompute(IpGenAddr(group), join));
    EXPECT_EQ(answer, record.answer);
    return record;
  }
  RpHashComputeRecord recordOf(const Kel::Ptr<RpHashComputeStatus>& status, const char* group) {
    return recordOf(status, group, join_);
  }
  // A computed record in a few words: "reason; set aside: static bsr; from source answer".
  static std::string summaryOf(const RpHashComputeRecord& record) {
    static const char* const kSources[] = {"table", "static", "bsr", "join", "none"};
    std::string summary = rpSourceReasonWord(record.reason);
    if (record.staticSetAsideByMode || record.bsrSetAsideByMode) {
      summary += "; set aside:";
      if (record.staticSetAsideByMode) summary += " static";
      if (record.bsrSetAsideByMode) summary += " bsr";
    }
    return summary + "; from " + kSources[static_cast<int>(record.source)] + " " +
           record.answer.valueToStrep();
  }

  Kel::Ptr<RpCandidateStatus> static_{new RpCandidateStatus};
  Kel::Ptr<RpCandidateStatus> bsr_{new RpCandidateStatus};
  Kel::Ptr<RpHashStatus> table_{new RpHashStatus};
  Kel::Ptr<RpConfig> config_{new RpConfig};
  const IpGenAddr join_{"192.0.2.99"};
};

TEST_F(RpHashComputeTest, Construction_OwnsComputeAndTrieBuilderPerSource) {
  auto status = build(modePimNone);
  ASSERT_TRUE(status->staticCompute());
  ASSERT_TRUE(status->bsrCompute());
  EXPECT_EQ(status->staticCompute()->crp(), static_);
  EXPECT_EQ(status->bsrCompute()->crp(), bsr_);
  EXPECT_EQ(status->staticTrieBuilder()->crpCompute(), status->staticCompute());
  EXPECT_EQ(status->bsrTrieBuilder()->crpCompute(), status->bsrCompute());
}

TEST_F(RpHashComputeTest, GroupInTable_TableRpReturnedOverComputes) {
  auto status = build(modePimNone);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm, true});
  table_->rpHashIs(
      RpHash(IpGenPrefix("239.1.1.1/32"), IpGenAddr("10.9.9.9"), 5, 30, false, modePimSm));
  EXPECT_EQ(ask(status, "239.1.1.1"), IpGenAddr("10.9.9.9"));
  EXPECT_EQ(ask(status, "239.1.1.2"), IpGenAddr("10.0.0.1"));
}

TEST_F(RpHashComputeTest, StaticWithoutOverrideAndBsr_BsrReturned) {
  auto status = build(modePimNone);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 200, 30, modePimSm});
  EXPECT_EQ(ask(status, "239.1.1.1"), IpGenAddr("10.0.0.2"));
}

TEST_F(RpHashComputeTest, StaticWithOverride_StaticReturned) {
  auto status = build(modePimNone);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 200, 30, modePimSm, true});
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  EXPECT_EQ(ask(status, "239.1.1.1"), IpGenAddr("10.0.0.1"));
}

TEST_F(RpHashComputeTest, OnlyStatic_StaticReturned) {
  auto status = build(modePimSm);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  addCandidate(bsr_, {"232.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  EXPECT_EQ(ask(status, "239.1.1.1"), IpGenAddr("10.0.0.1"));
  EXPECT_EQ(ask(status, "232.1.1.1"), IpGenAddr("10.0.0.2"));
}

TEST_F(RpHashComputeTest, OnlyStaticOfOtherModeThanServed_JoinReturned) {
  auto status = build(modePimBidir);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  EXPECT_EQ(ask(status, "239.1.1.1"), join_);
}

TEST_F(RpHashComputeTest, BsrOfOtherModeThanServed_NeverReturned) {
  auto status = build(modePimSm);
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 0, 30, modePimBidir});
  EXPECT_EQ(ask(status, "239.1.1.1"), join_);
  auto bidir = build(modePimBidir);
  EXPECT_EQ(ask(bidir, "239.1.1.1"), IpGenAddr("10.0.0.2"));
}

TEST_F(RpHashComputeTest, NoCandidates_JoinReturnedWithTrace) {
  auto status = build(modePimNone);
  TestSupport::TraceCapture capture("PimRpCompute", 5);
  EXPECT_EQ(ask(status, "239.1.1.1"), join_);
  EXPECT_EQ(capture.lines(),
            (Lines{"Computed RP unknown",
                   "No RP in RpHash or computation. Returning Rp from join value"}));
}

TEST_F(RpHashComputeTest, NoStatusesAtAll_AbsentComputesGiveEmptyResult) {
  auto status = rpHashComputeStatusFactory(nullptr, nullptr, table_, modePimNone, nullptr);
  EXPECT_FALSE(status->staticCompute());
  EXPECT_FALSE(status->bsrCompute());
  EXPECT_EQ(ask(status, "239.1.1.1"), join_);
}

TEST_F(RpHashComputeTest, TriesFollowStatusesAfterConstruction) {
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  auto status = build(modePimNone);
  EXPECT_EQ(ask(status, "239.1.1.1"), IpGenAddr("10.0.0.1"));
  addCandidate(static_, {"239.1.0.0/16", "10.0.0.3", 0, 30, modePimSm});
  EXPECT_EQ(ask(status, "239.1.1.1"), IpGenAddr("10.0.0.3"));
  static_->crpSetDel(IpGenPrefix("239.1.0.0/16"));
  EXPECT_EQ(ask(status, "239.1.1.1"), IpGenAddr("10.0.0.1"));
}

TEST_F(RpHashComputeTest, Traces_TableHit_ExactLines) {
  auto status = build(modePimNone);
  table_->rpHashIs(
      RpHash(IpGenPrefix("239.1.1.1/32"), IpGenAddr("10.9.9.9"), 5, 30, false, modePimSm));
  TestSupport::TraceCapture capture("PimRpCompute");
  ask(status, "239.1.1.1");
  EXPECT_EQ(capture.lines(),
            (Lines{kRpHashCompute + "( 239.1.1.1 )", "Found RP 10.9.9.9 in RpHash"}));
}

TEST_F(RpHashComputeTest, Traces_Computed_ExactLines) {
  auto status = build(modePimNone);
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  TestSupport::TraceCapture capture("PimRpCompute", 5);
  ask(status, "239.1.1.1");
  // The static source has no prefixes; the bootstrap source selects its only candidate.
  EXPECT_EQ(capture.lines(),
            (Lines{
                "Kel::PtrConst<Routing::Pim::RpCandidateSet> "
                "Routing::Pim::RpCompute::doLongestPrefixGroupMatch(const Ipkit::IpGenPrefix&) LPM "
                "for 239.1.1.1/32 is prefix 239.0.0.0/8",
                "RP=10.0.0.2, Priority=0, HashMaskLen=30, override=False, mode=modePimSm",
                "Computed RP 10.0.0.2",
            }));
}

TEST_F(RpHashComputeTest, Traces_JoinFallback_ExactLines) {
  auto status = build(modePimBidir);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  TestSupport::TraceCapture capture("PimRpCompute", 9);
  ask(status, "239.1.1.1");
  const Lines lines = capture.lines();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines.front(), kRpHashCompute + "( 239.1.1.1 )");
  EXPECT_EQ(lines[lines.size() - 2], "Computed RP unknown");
  EXPECT_EQ(lines.back(), "No RP in RpHash or computation. Returning Rp from join value");
}

TEST_F(RpHashComputeTest, MissingRpConfigWithStatus_AssertionText) {
  for (int source = 0; source < 2; ++source) {
    const auto e = TestSupport::thrownBy<Kel::AssertionException>([&] {
      rpHashComputeStatusFactory(source == 0 ? static_ : nullptr, source == 1 ? bsr_ : nullptr,
                                 table_, modePimNone, nullptr);
    });
    ASSERT_TRUE(e);
    EXPECT_EQ(e->expression(), "rpConfig()");
    EXPECT_EQ(e->traceFile(), "PimRpCompute");
  }
}

TEST_F(RpHashComputeTest, UnknownFamilyGroup_JoinReturned) {
  auto status = build(modePimNone);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  EXPECT_EQ(status->rpHashCompute(IpGenAddr(), join_), join_);
}

TEST_F(RpHashComputeTest, Record_TableEntry_AnswerFromTheTableNothingComputed) {
  auto status = build(modePimSm);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm, true});
  const RpHash entry(IpGenPrefix("239.1.1.1/32"), IpGenAddr("10.9.9.9"), 5, 30, false, modePimSm);
  table_->rpHashIs(entry);
  const RpHashComputeRecord record = recordOf(status, "239.1.1.1");
  EXPECT_EQ(record.tableEntry, entry);
  EXPECT_FALSE(record.computed);
  EXPECT_EQ(record.staticResult, RpCandidateInfo());
  EXPECT_EQ(record.source, RpAnswerSource::table);
  EXPECT_EQ(record.answer, IpGenAddr("10.9.9.9"));
}

TEST_F(RpHashComputeTest, Record_TableEntryWithoutRp_JoinAsLastResort) {
  auto status = build(modePimSm);
  const RpHash entry(IpGenPrefix("239.1.1.1/32"), IpGenAddr(), kRpPriorityNone, kRpHashMaskLenNone,
                     false, modePimSm);
  table_->rpHashIs(entry);
  RpHashComputeRecord record = recordOf(status, "239.1.1.1");
  EXPECT_EQ(record.tableEntry, entry);
  EXPECT_FALSE(record.computed);
  EXPECT_EQ(record.source, RpAnswerSource::join);
  EXPECT_EQ(record.answer, join_);
  record = recordOf(status, "239.1.1.1", IpGenAddr());
  EXPECT_EQ(record.source, RpAnswerSource::none);
}

TEST_F(RpHashComputeTest, Record_BootstrapBeatsStatic) {
  auto status = build(modePimNone);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 200, 30, modePimSm});
  const RpHashComputeRecord record = recordOf(status, "239.1.1.1");
  EXPECT_EQ(record.tableEntry, RpHash());
  EXPECT_TRUE(record.computed);
  EXPECT_EQ(record.staticResult, RpCandidateInfo(IpGenAddr("10.0.0.1"), 0, 30, false, modePimSm));
  EXPECT_EQ(record.bsrResult, RpCandidateInfo(IpGenAddr("10.0.0.2"), 200, 30, false, modePimSm));
  EXPECT_EQ(summaryOf(record), "bootstrap beats static; from bsr 10.0.0.2");
}

TEST_F(RpHashComputeTest, Record_StaticOverride) {
  auto status = build(modePimNone);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 200, 30, modePimSm, true});
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  EXPECT_EQ(summaryOf(recordOf(status, "239.1.1.1")), "static override; from static 10.0.0.1");
}

TEST_F(RpHashComputeTest, Record_OnlyStaticAndOnlyBootstrap) {
  auto status = build(modePimSm);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  addCandidate(bsr_, {"232.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  EXPECT_EQ(summaryOf(recordOf(status, "239.1.1.1")), "only static; from static 10.0.0.1");
  EXPECT_EQ(summaryOf(recordOf(status, "232.1.1.1")), "only bootstrap; from bsr 10.0.0.2");
}

TEST_F(RpHashComputeTest, Record_StaticOverrideOfOtherMode_SetAsideAndBootstrapAnswers) {
  auto status = build(modePimSm);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimBidir, true});
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 0, 30, modePimSm});
  EXPECT_EQ(summaryOf(recordOf(status, "239.1.1.1")),
            "static override; set aside: static; from bsr 10.0.0.2");
}

// The mode filter does not choose again: the bootstrap RP beats the static one and, of another
// mode, is set aside; the static RP of the served mode is not taken instead.
TEST_F(RpHashComputeTest, Record_BootstrapOfOtherMode_SetAsideAndJoinAnswers) {
  auto status = build(modePimSm);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 0, 30, modePimBidir});
  EXPECT_EQ(summaryOf(recordOf(status, "239.1.1.1")),
            "bootstrap beats static; set aside: bsr; from join 192.0.2.99");
}

TEST_F(RpHashComputeTest, Record_OnlyStaticOfOtherMode_SetAsideAndNoAnswerWithoutJoin) {
  auto status = build(modePimBidir);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  EXPECT_EQ(summaryOf(recordOf(status, "239.1.1.1", IpGenAddr())),
            "only static; set aside: static; from none unknown");
}

TEST_F(RpHashComputeTest, Record_NoCandidates_NoRpThenJoin) {
  auto status = build(modePimNone);
  const RpHashComputeRecord record = recordOf(status, "239.1.1.1");
  EXPECT_TRUE(record.computed);
  EXPECT_EQ(summaryOf(record), "no RP; from join 192.0.2.99");
}

TEST_F(RpHashComputeTest, Record_UnknownFamilyGroup_JoinWithoutComputing) {
  auto status = build(modePimNone);
  RpHashComputeRecord record;
  EXPECT_EQ(status->rpHashComputeRecorded(IpGenAddr(), join_, record), join_);
  EXPECT_FALSE(record.computed);
  EXPECT_EQ(record.source, RpAnswerSource::join);
}

TEST_F(RpHashComputeTest, Record_TracesExactlyAsWithout) {
  auto status = build(modePimSm);
  addCandidate(static_, {"239.0.0.0/8", "10.0.0.1", 0, 30, modePimSm});
  addCandidate(bsr_, {"239.0.0.0/8", "10.0.0.2", 0, 30, modePimBidir});
  table_->rpHashIs(
      RpHash(IpGenPrefix("239.1.1.9/32"), IpGenAddr("10.9.9.9"), 5, 30, false, modePimSm));
  for (const char* group : {"239.1.1.1", "239.1.1.9", "232.1.1.1"}) {
    TestSupport::TraceCapture capture("PimRpCompute");
    ask(status, group);
    const Lines without = capture.lines();
    capture.clear();
    RpHashComputeRecord record;
    status->rpHashComputeRecorded(IpGenAddr(group), join_, record);
    EXPECT_EQ(capture.lines(), without) << group;
    EXPECT_EQ(without.front(), kRpHashCompute + "( " + group + " )");
  }
}

}  // namespace
