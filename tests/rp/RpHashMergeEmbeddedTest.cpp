// The final sparse-mode merge of per-group tables with an embedded-RP status: a group that uses
// its embedded RP holds it above static overrides and bootstrap RPs, with the allocation requests
// that follow; when it stops, the two-input rule decides again; start-up over a surviving table;
// and a status that holds no group changes nothing, traces included.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "framework/BitMapper/Config.h"
#include "framework/Kel/Assert.h"
#include "model/Pim/EmbeddedRpConfig.h"
#include "model/Pim/GroupStatus.h"
#include "rp/PimEmbeddedRpSm.h"
#include "rp/PimEmbeddedRpStatus.h"
#include "rp/PimRpHashSm.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using Lines = std::vector<std::string>;

const char kGroup[] = "ff75:130:2001:db8:ffff::100";
const char kGroupKey[] = "ff75:130:2001:db8:ffff::100/128";
const char kEmbeddedRp[] = "2001:db8:ffff::1";

RpHash entry(const char* key, const char* rp, bool override = false) {
  return RpHash(IpGenPrefix(key), IpGenAddr(rp), 10, 126, override, modePimSm);
}
std::string text(const RpHash& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}
RpHash embeddedEntry() {
  return RpHash(IpGenPrefix(kGroupKey), IpGenAddr(kEmbeddedRp), 0, 128, true, modePimSm);
}

class RpHashMergeEmbeddedTest : public ::testing::Test {
 protected:
  void start() { sm_ = rpHashSmFactory(modePimSm, static_, bsr_, final_, bitMap_, embedded_); }
  void groupUsesItsRp() {
    groups_->groupIs(IpGenAddr(kGroup), true);
    config_->enabledIs(true);
  }
  RpHash final() const { return final_->rpHash(IpGenPrefix(kGroupKey)); }
  Lines requests() const { return RpTest::allocRequests(*bitMap_); }

  Kel::Ptr<RpHashStatus> static_{new RpHashStatus};
  Kel::Ptr<RpHashStatus> bsr_{new RpHashStatus};
  Kel::Ptr<RpHashStatus> final_{new RpHashStatus};
  Kel::Ptr<BitMapper::Config> bitMap_{new BitMapper::Config};
  Kel::Ptr<GroupStatus> groups_{new GroupStatus};
  Kel::Ptr<EmbeddedRpConfig> config_{new EmbeddedRpConfig};
  Kel::Ptr<EmbeddedRpStatus> embedded_{new EmbeddedRpStatus};
  Kel::Ptr<EmbeddedRpSm> embeddedSm_{embeddedRpSmFactory(groups_, config_, embedded_)};
  Kel::Ptr<RpHashSm> sm_;
};

TEST_F(RpHashMergeEmbeddedTest, GroupUsesItsRp_WinsOverStaticOverrideAndBootstrap) {
  start();
  static_->rpHashIs(entry(kGroupKey, "2001:db8::1", true));
  bsr_->rpHashIs(entry(kGroupKey, "2001:db8::2"));
  ASSERT_EQ(final(), entry(kGroupKey, "2001:db8::1", true));
  groupUsesItsRp();
  EXPECT_EQ(final(), embeddedEntry());
  EXPECT_EQ(requests(), (Lines{"alloc 2001:db8::1", "dealloc 2001:db8::1",
                               "alloc " + std::string(kEmbeddedRp)}));
}

TEST_F(RpHashMergeEmbeddedTest, InputChangesForAGroupUsingItsRp_WriteNothing) {
  start();
  groupUsesItsRp();
  const TestSupport::TraceCapture capture("PimRpHashSm", 5);
  static_->rpHashIs(entry(kGroupKey, "2001:db8::1", true));
  bsr_->rpHashIs(entry(kGroupKey, "2001:db8::2"));
  bsr_->rpHashDel(IpGenPrefix(kGroupKey));
  EXPECT_EQ(final(), embeddedEntry());
  EXPECT_EQ(capture.lines(),
            (Lines{"handleStaticHash: No programming for prefix " + std::string(kGroupKey) +
                       " since embedded RP " + kEmbeddedRp + " serves it",
                   "handleBsrHash: No programming for prefix " + std::string(kGroupKey) +
                       " since embedded RP " + kEmbeddedRp + " serves it",
                   "handleBsrHash: No programming for prefix " + std::string(kGroupKey) +
                       " since embedded RP " + kEmbeddedRp + " serves it"}));
  EXPECT_EQ(requests(), (Lines{"alloc " + std::string(kEmbeddedRp)}));
}

TEST_F(RpHashMergeEmbeddedTest, GroupStopsUsingItsRp_StaticOverrideBackWithRequests) {
  start();
  static_->rpHashIs(entry(kGroupKey, "2001:db8::1", true));
  bsr_->rpHashIs(entry(kGroupKey, "2001:db8::2"));
  groupUsesItsRp();
  const TestSupport::TraceCapture capture("PimRpHashSm", 5);
  config_->enabledIs(false);
  EXPECT_EQ(final(), entry(kGroupKey, "2001:db8::1", true));
  EXPECT_EQ(requests(), (Lines{"alloc 2001:db8::1", "dealloc 2001:db8::1", "alloc 2001:db8:ffff::1",
                               "dealloc 2001:db8:ffff::1", "alloc 2001:db8::1"}));
  EXPECT_EQ(capture.lines(),
            (Lines{"handleEmbeddedRp: Embedded RP no longer serves " + std::string(kGroupKey),
                   "Static RP 2001:db8::1 has override True",
                   "handleStaticHash: Adding " + text(entry(kGroupKey, "2001:db8::1", true))}));
}

TEST_F(RpHashMergeEmbeddedTest, GroupStopsUsingItsRp_BootstrapBeatsStaticAgain) {
  start();
  static_->rpHashIs(entry(kGroupKey, "2001:db8::1"));
  bsr_->rpHashIs(entry(kGroupKey, "2001:db8::2"));
  groupUsesItsRp();
  groups_->groupDel(IpGenAddr(kGroup));
  EXPECT_EQ(final(), entry(kGroupKey, "2001:db8::2"));
}

TEST_F(RpHashMergeEmbeddedTest, GroupStopsUsingItsRp_NoOtherEntry_DeletedWithDeallocation) {
  start();
  groupUsesItsRp();
  config_->enabledIs(false);
  EXPECT_EQ(final(), RpHash());
  EXPECT_EQ(requests(), (Lines{"alloc 2001:db8:ffff::1", "dealloc 2001:db8:ffff::1"}));
}

TEST_F(RpHashMergeEmbeddedTest, RangeEntries_Untouched) {
  start();
  static_->rpHashIs(entry("ff75::/16", "2001:db8::1"));
  groupUsesItsRp();
  EXPECT_EQ(final_->rpHash(IpGenPrefix("ff75::/16")), entry("ff75::/16", "2001:db8::1"));
}

TEST_F(RpHashMergeEmbeddedTest, StartOverSurvivingTable_EmbeddedEntryKeptWithoutRequests) {
  groupUsesItsRp();
  static_->rpHashIs(entry(kGroupKey, "2001:db8::1", true));
  final_->rpHashIs(embeddedEntry());
  final_->rpHashIs(entry("ff75:130:2001:db8:ffff::200/128", "2001:db8::1"));
  start();
  EXPECT_EQ(final(), embeddedEntry());
  EXPECT_EQ(final_->rpHash(IpGenPrefix("ff75:130:2001:db8:ffff::200/128")), RpHash());
  EXPECT_EQ(requests(), (Lines{"dealloc 2001:db8::1"}));
}

TEST_F(RpHashMergeEmbeddedTest, StartAfterGroupsUseTheirRps_FinalWrittenOnceEach) {
  groupUsesItsRp();
  static_->rpHashIs(entry(kGroupKey, "2001:db8::1", true));
  start();
  EXPECT_EQ(final(), embeddedEntry());
  EXPECT_EQ(requests(), (Lines{"alloc 2001:db8:ffff::1"}));
}

// The same inputs, merged with and without a status that holds no group: the same final table,
// requests and traces at every level.
TEST_F(RpHashMergeEmbeddedTest, StatusWithoutGroups_SameTableRequestsAndTraces) {
  const auto run = [this](bool withStatus) {
    Kel::Ptr<RpHashStatus> staticTable(new RpHashStatus);
    Kel::Ptr<RpHashStatus> bsrTable(new RpHashStatus);
    Kel::Ptr<RpHashStatus> finalTable(new RpHashStatus);
    Kel::Ptr<BitMapper::Config> bitMap(new BitMapper::Config);
    staticTable->rpHashIs(entry(kGroupKey, "2001:db8::1"));
    finalTable->rpHashIs(entry("ff75::1/128", "2001:db8::3"));
    const TestSupport::TraceCapture capture("PimRpHashSm");
    const auto sm = rpHashSmFactory(modePimSm, staticTable, bsrTable, finalTable, bitMap,
                                    withStatus ? embedded_ : nullptr);
    bsrTable->rpHashIs(entry(kGroupKey, "2001:db8::2"));
    staticTable->rpHashIs(entry(kGroupKey, "2001:db8::1", true));
    bsrTable->rpHashDel(IpGenPrefix(kGroupKey));
    staticTable->rpHashDel(IpGenPrefix(kGroupKey));
    Lines lines = capture.lines();
    for (const auto& request : RpTest::allocRequests(*bitMap)) lines.push_back(request);
    return lines;
  };
  const Lines without = run(false);
  EXPECT_EQ(run(true), without);
  EXPECT_GT(without.size(), 10u);
}

TEST_F(RpHashMergeEmbeddedTest, BidirMerge_GivenAStatus_Refused) {
  const auto refusal = TestSupport::thrownBy<Kel::AssertionException>(
      [&] { rpHashSmFactory(modePimBidir, static_, bsr_, final_, bitMap_, embedded_); });
  ASSERT_TRUE(refusal) << "a bidir merge took the embedded-RP status";
  EXPECT_EQ(refusal->expression(), "!embeddedRp || pimMode != modePimBidir");
  EXPECT_EQ(refusal->traceFile(), "PimRpHashSm");
}

}  // namespace
