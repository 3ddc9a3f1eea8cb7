// The answer service with an embedded-RP status: a group without a final entry whose address
// names an RP it may use gets that RP before static overrides and bootstrap RPs, in sparse mode or
// any; a bidir service sets it aside; a group over the limit, outside the ranges or with an
// invalid encoding gets the ordinary answer; and a status that is off changes no answer or trace.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/Pim/EmbeddedRpConfig.h"
#include "model/Pim/GroupStatus.h"
#include "rp/PimEmbeddedRpSm.h"
#include "rp/PimRpHashComputeStatus.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using Lines = std::vector<std::string>;
using RpTest::addCandidate;

const IpGenAddr kGroupOne("ff75:130:2001:db8:ffff::100");
const IpGenAddr kGroupTwo("ff75:230:2001:db8:ffff::400");
const IpGenAddr kRpOne("2001:db8:ffff::1");
const IpGenAddr kRpTwo("2001:db8:ffff::2");
const IpGenAddr kStaticRp("2001:db8::1");
const IpGenAddr kBsrRp("2001:db8::2");
const IpGenAddr kJoin("2001:db8::99");

class RpHashComputeEmbeddedTest : public ::testing::Test {
 protected:
  RpHashComputeEmbeddedTest() {
    addCandidate(static_, {"ff00::/8", "2001:db8::1", 0, 126, modePimSm, true});
    addCandidate(bsr_, {"ff75::/16", "2001:db8::2", 0, 126, modePimSm});
  }
  Kel::Ptr<RpHashComputeStatus> build(Mode mode) {
    auto status = rpHashComputeStatusFactory(static_, bsr_, table_, mode, config_);
    status->embeddedRpStatusIs(embedded_);
    return status;
  }
  RpHashComputeRecord recordOf(const Kel::Ptr<RpHashComputeStatus>& status,
                               const IpGenAddr& group) {
    RpHashComputeRecord record;
    const IpGenAddr answer = status->rpHashComputeRecorded(group, kJoin, record);
    EXPECT_EQ(answer, status->rpHashCompute(group, kJoin));
    EXPECT_EQ(answer, record.answer);
    return record;
  }

  Kel::Ptr<RpCandidateStatus> static_{new RpCandidateStatus};
  Kel::Ptr<RpCandidateStatus> bsr_{new RpCandidateStatus};
  Kel::Ptr<RpHashStatus> table_{new RpHashStatus};
  Kel::Ptr<RpConfig> config_{new RpConfig};
  Kel::Ptr<GroupStatus> groups_{new GroupStatus};
  Kel::Ptr<EmbeddedRpConfig> embeddedConfig_{new EmbeddedRpConfig};
  Kel::Ptr<EmbeddedRpStatus> embedded_{new EmbeddedRpStatus};
  Kel::Ptr<EmbeddedRpSm> embeddedSm_{embeddedRpSmFactory(groups_, embeddedConfig_, embedded_)};
};

TEST_F(RpHashComputeEmbeddedTest, PeerExamples_EmbeddedRpsAnswered) {
  embeddedConfig_->enabledIs(true);
  const auto status = build(modePimSm);
  EXPECT_EQ(status->rpHashCompute(kGroupOne, kJoin), kRpOne);
  EXPECT_EQ(status->rpHashCompute(kGroupTwo, kJoin), kRpTwo);
}

TEST_F(RpHashComputeEmbeddedTest, EmbeddedRp_BeatsStaticOverrideAndBootstrap_Recorded) {
  embeddedConfig_->enabledIs(true);
  const auto status = build(modePimNone);
  const TestSupport::TraceCapture capture("PimRpCompute", 5);
  const RpHashComputeRecord record = recordOf(status, kGroupOne);
  EXPECT_EQ(record.answer, kRpOne);
  EXPECT_EQ(record.source, RpAnswerSource::embedded);
  EXPECT_FALSE(record.computed);
  EXPECT_FALSE(record.embeddedSetAsideByMode);
  EXPECT_EQ(capture.lines(),
            (Lines{"Embedded RP 2001:db8:ffff::1 for group ff75:130:2001:db8:ffff::100",
                   "Embedded RP 2001:db8:ffff::1 for group ff75:130:2001:db8:ffff::100"}));
}

TEST_F(RpHashComputeEmbeddedTest, BidirService_EmbeddedRpSetAside_SourcesAsked) {
  addCandidate(bsr_, {"ff75::/16", "2001:db8::7", 0, 126, modePimBidir});
  embeddedConfig_->enabledIs(true);
  const RpHashComputeRecord record = recordOf(build(modePimBidir), kGroupOne);
  EXPECT_TRUE(record.embeddedSetAsideByMode);
  EXPECT_TRUE(record.computed);
  EXPECT_EQ(record.source, RpAnswerSource::bootstrap);
  EXPECT_EQ(record.answer, IpGenAddr("2001:db8::7"));
}

TEST_F(RpHashComputeEmbeddedTest, GroupInFinalTable_TableAnswers) {
  embeddedConfig_->enabledIs(true);
  table_->rpHashIs(RpHash(IpGenPrefix::hostPrefix(kGroupOne), kBsrRp, 0, 126, false, modePimSm));
  EXPECT_EQ(build(modePimSm)->rpHashCompute(kGroupOne, kJoin), kBsrRp);
}

TEST_F(RpHashComputeEmbeddedTest, OverLimit_OrdinaryAnswer) {
  embeddedConfig_->limitIs(1);
  embeddedConfig_->enabledIs(true);
  groups_->groupIs(kGroupTwo, true);
  const auto status = build(modePimSm);
  EXPECT_EQ(status->rpHashCompute(kGroupOne, kJoin), kStaticRp);
  groups_->groupIs(kGroupOne, true);
  EXPECT_EQ(status->rpHashCompute(kGroupOne, kJoin), kStaticRp);
  groups_->groupDel(kGroupTwo);
  EXPECT_EQ(status->rpHashCompute(kGroupOne, kJoin), kRpOne);
}

TEST_F(RpHashComputeEmbeddedTest, OutsideRangesOrInvalid_OrdinaryAnswer) {
  embeddedConfig_->groupRangeIs(IpGenPrefix("ff7e::/16"), true);
  embeddedConfig_->enabledIs(true);
  const auto status = build(modePimSm);
  EXPECT_EQ(status->rpHashCompute(kGroupOne, kJoin), kStaticRp);
  EXPECT_EQ(status->rpHashCompute(IpGenAddr("ff7e:130:2001:db8:ffff::100"), kJoin), kRpOne);
  EXPECT_EQ(status->rpHashCompute(IpGenAddr("ff7e:30:2001:db8:ffff::100"), kJoin), kStaticRp);
  EXPECT_EQ(status->rpHashCompute(IpGenAddr("ff3e::1"), kJoin), kStaticRp);
}

TEST_F(RpHashComputeEmbeddedTest, Off_SameAnswersAndTracesAsWithoutStatus) {
  const auto with = build(modePimSm);
  const auto without = rpHashComputeStatusFactory(static_, bsr_, table_, modePimSm, config_);
  for (const IpGenAddr& group : {kGroupOne, kGroupTwo, IpGenAddr("ff3e::1")}) {
    const TestSupport::TraceCapture capture("PimRpCompute");
    RpHashComputeRecord withRecord;
    const IpGenAddr withAnswer = with->rpHashComputeRecorded(group, kJoin, withRecord);
    const Lines withLines = capture.lines();
    capture.clear();
    RpHashComputeRecord withoutRecord;
    EXPECT_EQ(withAnswer, without->rpHashComputeRecorded(group, kJoin, withoutRecord));
    EXPECT_EQ(withLines, capture.lines());
    EXPECT_EQ(withRecord.source, withoutRecord.source);
    EXPECT_FALSE(withRecord.embeddedSetAsideByMode);
  }
}

}  // namespace
