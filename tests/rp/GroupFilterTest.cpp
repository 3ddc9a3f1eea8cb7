#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/Assert.h"
#include "framework/Kel/Exception.h"
#include "rp/PimGroupFilterStatus.h"
#include "tests/rp/GroupFilterTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using GroupFilterTest::FamilyCase;
using GroupFilterTest::prefix;
using Routing::Pim::GroupFilterStatus;
using Routing::Pim::groupFilterStatusFactory;
using Routing::Pim::Mode;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimNone;
using Routing::Pim::modePimSm;
using TestSupport::TraceCapture;
using TestSupport::TraceLines;

const char* const kTraceFile = "PimGroupFilter";

// Counts what the status announces to its readers.
class StatusReader : public GroupFilterStatus::NotifieeConst {
 public:
  explicit StatusReader(const Kel::PtrConst<GroupFilterStatus>& status) { notifierIs(status); }
  void onTrie() override { ++tries; }
  void onChangeCount() override { ++changeCounts; }
  void onInitialized() override { ++initializeds; }

  int tries = 0;
  int changeCounts = 0;
  int initializeds = 0;
};

class GroupFilterStatusTest : public ::testing::TestWithParam<FamilyCase> {
 protected:
  const FamilyCase& family() const { return GetParam(); }
  Kel::Ptr<GroupFilterStatus> filterWithRange(Mode mode) const {
    auto status = groupFilterStatusFactory(family().af, mode);
    status->trie()->routeIs(prefix(family().range), 1);
    return status;
  }
  std::string afText() const { return family().af == Ipkit::ipv4() ? "ipv4" : "ipv6"; }
};

TEST_P(GroupFilterStatusTest, GroupFilterStatus_Construction_EmptyGroupFilterTrieOfTheFamily) {
  TraceCapture capture(kTraceFile);
  auto status = groupFilterStatusFactory(family().af, modePimSm);
  ASSERT_TRUE(status->trie());
  EXPECT_EQ(status->trie()->name(), "GroupFilter");
  EXPECT_EQ(status->trie()->af(), family().af);
  EXPECT_EQ(status->trie()->routes(), 0u);
  EXPECT_EQ(status->af(), family().af);
  EXPECT_EQ(status->pimMode(), modePimSm);
  EXPECT_EQ(status->changeCount(), 0u);
  EXPECT_FALSE(status->initialized());
  EXPECT_EQ(capture.levelled(), (TraceLines{{8, "handleInitialized(" + afText() + ")"}}));
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_EmptyTrieSparseMode_PermitsEveryGroup) {
  auto status = groupFilterStatusFactory(family().af, modePimSm);
  EXPECT_TRUE(status->permitGroup(prefix(family().inside)));
  EXPECT_TRUE(status->permitGroup(prefix(family().outside)));
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_EmptyTrieBidirMode_PermitsNoGroup) {
  auto status = groupFilterStatusFactory(family().af, modePimBidir);
  EXPECT_FALSE(status->permitGroup(prefix(family().inside)));
  EXPECT_FALSE(status->permitGroup(prefix(family().outside)));
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_RangeInTrieBidirMode_PermitsCoveredRefusesOthers) {
  auto status = filterWithRange(modePimBidir);
  EXPECT_TRUE(status->permitGroup(prefix(family().inside)));
  EXPECT_FALSE(status->permitGroup(prefix(family().outside)));
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_RangeInTrieSparseMode_RefusesCoveredPermitsOthers) {
  auto status = filterWithRange(modePimSm);
  EXPECT_FALSE(status->permitGroup(prefix(family().inside)));
  EXPECT_TRUE(status->permitGroup(prefix(family().outside)));
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_PermitGroup_TracesGroupModeAndFound) {
  auto bidir = filterWithRange(modePimBidir);
  auto sparse = filterWithRange(modePimSm);
  TraceCapture capture(kTraceFile);
  bidir->permitGroup(prefix(family().inside));
  bidir->permitGroup(prefix(family().outside));
  sparse->permitGroup(prefix(family().inside));
  sparse->permitGroup(prefix(family().outside));
  const std::string inside = family().inside;
  const std::string outside = family().outside;
  EXPECT_EQ(capture.levelled(),
            (TraceLines{
                {8, "permitGroup(" + inside + "), Mode: modePimBidir, Found: true"},
                {8, "permitGroup(" + outside + "), Mode: modePimBidir, Found: false"},
                {8, "permitGroup(" + inside + "), Mode: modePimSm, Found: true"},
                {8, "permitGroup(" + outside + "), Mode: modePimSm, Found: false"},
            }));
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_PermitGroupTraceOff_NothingWritten) {
  auto status = filterWithRange(modePimBidir);
  TraceCapture capture(kTraceFile, 7);
  EXPECT_TRUE(status->permitGroup(prefix(family().inside)));
  EXPECT_TRUE(capture.levelled().empty());
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_GroupOfOtherFamily_CoveredByNoRange) {
  auto bidir = groupFilterStatusFactory(family().af, modePimBidir);
  bidir->trie()->routeIs(prefix(family().range), 1);
  EXPECT_FALSE(bidir->permitGroup(prefix(family().otherFamilyGroup)));
  auto sparse = groupFilterStatusFactory(family().af, modePimSm);
  sparse->trie()->routeIs(prefix(family().range), 1);
  EXPECT_TRUE(sparse->permitGroup(prefix(family().otherFamilyGroup)));
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_UnsupportedMode_RaisesModeAssertion) {
  for (const Mode mode : {modePimNone, static_cast<Mode>(3)}) {
    TraceCapture capture(kTraceFile);
    const auto refusal = TestSupport::thrownBy<Kel::AssertionException>(
        [&] { groupFilterStatusFactory(family().af, mode); });
    ASSERT_TRUE(refusal);
    EXPECT_STREQ(refusal->what(), "pimMode() == modePimSm() || pimMode() == modePimBidir()");
    EXPECT_EQ(refusal->expression(), "pimMode() == modePimSm() || pimMode() == modePimBidir()");
    EXPECT_EQ(refusal->traceFile(), kTraceFile);
    EXPECT_EQ(refusal->function(), "void Routing::Pim::GroupFilterStatus::handleInitialized()");
    EXPECT_EQ(capture.levelled(), (TraceLines{{8, "handleInitialized(" + afText() + ")"}}));
  }
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_ChangeCountInc_AddsAndNotifiesReaders) {
  auto status = groupFilterStatusFactory(family().af, modePimSm);
  StatusReader reader(status);
  status->changeCountInc(1);
  status->changeCountInc(3);
  EXPECT_EQ(status->changeCount(), 4u);
  EXPECT_EQ(reader.changeCounts, 2);
  status->changeCountIs(4);
  EXPECT_EQ(reader.changeCounts, 2);
  status->changeCountIs(0);
  EXPECT_EQ(status->changeCount(), 0u);
  EXPECT_EQ(reader.changeCounts, 3);
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_InitializedIs_LeftToTheHostAndNotifies) {
  auto status = groupFilterStatusFactory(family().af, modePimBidir);
  StatusReader reader(status);
  status->handleInitialized();
  EXPECT_FALSE(status->initialized());
  status->initializedIs(true);
  status->initializedIs(true);
  EXPECT_TRUE(status->initialized());
  EXPECT_EQ(reader.initializeds, 1);
}

TEST_P(GroupFilterStatusTest, GroupFilterStatus_TrieReplacedOrDropped_NotifiesAndForgetsRanges) {
  auto status = filterWithRange(modePimBidir);
  StatusReader reader(status);
  status->handleInitialized();
  EXPECT_EQ(reader.tries, 1);
  EXPECT_EQ(status->trie()->routes(), 0u);
  EXPECT_FALSE(status->permitGroup(prefix(family().inside)));
  status->trieDel();
  EXPECT_EQ(reader.tries, 2);
  EXPECT_FALSE(status->trie());
  EXPECT_FALSE(status->permitGroup(prefix(family().inside)));
}

INSTANTIATE_TEST_SUITE_P(Families, GroupFilterStatusTest,
                         ::testing::Values(GroupFilterTest::kIpv4, GroupFilterTest::kIpv6),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(GroupFilterStatusFamilyTest, GroupFilterStatus_UnknownFamily_RefusedByTheTrie) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { groupFilterStatusFactory(Ipkit::ipunknown(), modePimSm); }),
            "trie 'GroupFilter' needs family ipv4 or ipv6, got ipunknown");
}

}  // namespace
