// The static RP reactor: explicit group bindings, access-list bindings, their precedence, the
// per-RP values, start-up over a surviving status, its traces and its refusals.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "framework/Kel/Assert.h"
#include "framework/Kel/Exception.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/rp/StaticRpTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::Pim::kRpHashMaskLenNone;
using Routing::Pim::kRpPriorityNone;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimSm;
using Routing::Pim::rpTypeStatic;
using Routing::Pim::Static::RpCandidateSm;
using Lines = std::vector<std::string>;

const std::string kTraceFile = "PimRpCandidateStaticSm";
const std::string kEntry = "void Routing::Pim::Static::RpCandidateSm::KelRpEntry::";
const std::string kAclSm = "void Routing::Pim::Static::RpCandidateSm::KelRpStaticAclSm::";
const std::string kOwner = "void Routing::Pim::Static::RpCandidateSm::";

class StaticRpCandidateTest : public StaticRpTest::StaticRpFixture {};

constexpr auto kNoPriority = kRpPriorityNone;
constexpr auto kNoHashMask = kRpHashMaskLenNone;

// ---- The status and the explicit bindings ------------------------------------------------------

TEST_F(StaticRpCandidateTest, StaticRpCandidate_Start_MarksStatusStatic) {
  start();
  EXPECT_EQ(status_->rpSetType(), rpTypeStatic);
  EXPECT_TRUE(sm_->initialize());
  EXPECT_EQ(sm_->vrfName().string(), "red");
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_GroupWithValues_WritesAllValuesAndSetupTime) {
  auto entry = rp("10.0.0.1");
  entry->modeIs(modePimBidir);
  entry->priorityGrpIs(IpGenPrefix("239.0.0.0/8"), 7);
  entry->hashMaskGrpIs(IpGenPrefix("239.0.0.0/8"), 30);
  entry->overrideDynGrpIs(IpGenPrefix("239.0.0.0/8"), true);
  start();
  Kel::System::virtualTimeAdvanceTo(1005.0);
  group("10.0.0.1", "239.0.0.0/8");

  const auto crp = candidate("239.0.0.0/8", "10.0.0.1");
  ASSERT_TRUE(crp);
  EXPECT_EQ(crp->priority(), 7u);
  EXPECT_EQ(crp->hashMaskLen(), 30u);
  EXPECT_TRUE(crp->override());
  EXPECT_EQ(crp->pimMode(), modePimBidir);
  EXPECT_EQ(crp->setupTime(), 1005.0);
  EXPECT_EQ(count("10.0.0.1", "239.0.0.0/8"), 1u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_GroupWithoutValues_WritesSentinels) {
  start();
  group("10.0.0.1", "239.0.0.0/8");
  const auto crp = candidate("239.0.0.0/8", "10.0.0.1");
  ASSERT_TRUE(crp);
  EXPECT_EQ(crp->priority(), kRpPriorityNone);
  EXPECT_EQ(crp->hashMaskLen(), kRpHashMaskLenNone);
  EXPECT_FALSE(crp->override());
  EXPECT_EQ(crp->pimMode(), modePimSm);
  EXPECT_EQ(crp->setupTime(), kStartTime);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_GroupRemoved_DeletesCandidateCounterAndSet) {
  start();
  group("10.0.0.1", "239.0.0.0/8");
  group("10.0.0.2", "239.0.0.0/8");
  rp("10.0.0.1")->groupDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_FALSE(candidate("239.0.0.0/8", "10.0.0.1"));
  EXPECT_TRUE(candidate("239.0.0.0/8", "10.0.0.2"));
  EXPECT_FALSE(hasCounter("10.0.0.1", "239.0.0.0/8"));
  // The counts object of the RP stays, empty.
  ASSERT_TRUE(sm_->pfxRefCount(IpGenAddr("10.0.0.1")));
  EXPECT_TRUE(sm_->pfxRefCount(IpGenAddr("10.0.0.1"))->counter().empty());

  rp("10.0.0.2")->groupDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_FALSE(hasSet("239.0.0.0/8"));
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_ExistingConfigAtStart_BuiltByStartupHandlers) {
  group("10.0.0.1", "239.0.0.0/8");
  group("10.0.0.1", "238.0.0.0/8");
  useAcl("10.0.0.1", "A");
  permit("A", 10, "239.0.0.0/8");
  start();
  EXPECT_EQ(candidates(), (Lines{"238.0.0.0/8 10.0.0.1", "239.0.0.0/8 10.0.0.1"}));
  EXPECT_EQ(count("10.0.0.1", "239.0.0.0/8"), 2u);
  EXPECT_EQ(count("10.0.0.1", "238.0.0.0/8"), 1u);
  EXPECT_EQ(sm_->rpEntry().size(), 1u);
  EXPECT_EQ(sm_->acl().size(), 1u);
  EXPECT_TRUE(sm_->rpStaticAclSm(Kel::Name("A"))->initialize());
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_RpRemoved_GivesBackGroupsAndAcls) {
  start();
  group("10.0.0.1", "239.0.0.0/8");
  useAcl("10.0.0.1", "A");
  permit("A", 10, "238.0.0.0/8");
  group("10.0.0.2", "239.0.0.0/8");
  rpConfig_->rpTableDel(IpGenAddr("10.0.0.1"));
  EXPECT_EQ(candidates(), (Lines{"239.0.0.0/8 10.0.0.2"}));
  EXPECT_FALSE(sm_->rpEntry(IpGenAddr("10.0.0.1")));
  EXPECT_FALSE(sm_->rpStaticAcl("A"));
  EXPECT_FALSE(sm_->rpStaticAclSm("A"));
}

// ---- Group and list on one prefix --------------------------------------------------------------

TEST_F(StaticRpCandidateTest, StaticRpCandidate_GroupAndAclSamePrefixGroupRemovedFirst_LastGoes) {
  start();
  permit("A", 10, "239.1.0.0/16");
  rp("10.0.0.1")->priorityAclIs("A", 10);
  group("10.0.0.1", "239.1.0.0/16");
  Kel::System::virtualTimeAdvanceTo(1010.0);
  useAcl("10.0.0.1", "A");
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 2u);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {10, kNoHashMask, false, modePimSm, kStartTime});

  rp("10.0.0.1")->groupDel(IpGenPrefix("239.1.0.0/16"));
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  // What remains keeps the values written last; nothing is recomputed.
  expectCandidate("239.1.0.0/16", "10.0.0.1", {10, kNoHashMask, false, modePimSm, kStartTime});

  rp("10.0.0.1")->aclDel("A");
  EXPECT_FALSE(hasCounter("10.0.0.1", "239.1.0.0/16"));
  EXPECT_FALSE(hasSet("239.1.0.0/16"));
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_GroupAndAclSamePrefixAclRemovedFirst_LastGoes) {
  start();
  permit("A", 10, "239.1.0.0/16");
  rp("10.0.0.1")->overrideDynAclIs("A", true);
  useAcl("10.0.0.1", "A");
  rp("10.0.0.1")->hashMaskGrpIs(IpGenPrefix("239.1.0.0/16"), 30);
  group("10.0.0.1", "239.1.0.0/16");
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 2u);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {kNoPriority, 30, false, modePimSm, kStartTime});

  rp("10.0.0.1")->aclDel("A");
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {kNoPriority, 30, false, modePimSm, kStartTime});

  rp("10.0.0.1")->groupDel(IpGenPrefix("239.1.0.0/16"));
  EXPECT_FALSE(hasCounter("10.0.0.1", "239.1.0.0/16"));
  EXPECT_FALSE(hasSet("239.1.0.0/16"));
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_GroupAddedAfterAclPriority10_LeavesPriority256) {
  start();
  permit("A", 10, "239.1.0.0/16");
  rp("10.0.0.1")->priorityAclIs("A", 10);
  rp("10.0.0.1")->hashMaskAclIs("A", 20);
  rp("10.0.0.1")->overrideDynAclIs("A", true);
  useAcl("10.0.0.1", "A");
  expectCandidate("239.1.0.0/16", "10.0.0.1", {10, 20, true, modePimSm, kStartTime});
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);

  Kel::System::virtualTimeAdvanceTo(1010.0);
  group("10.0.0.1", "239.1.0.0/16");
  expectCandidate("239.1.0.0/16", "10.0.0.1",
                  {kNoPriority, kNoHashMask, false, modePimSm, kStartTime});
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 2u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_AclWithoutPriorityAfterGroupPriority_KeepsIt) {
  start();
  permit("A", 10, "239.1.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("239.1.0.0/16"), 3);
  entry->hashMaskGrpIs(IpGenPrefix("239.1.0.0/16"), 24);
  entry->overrideDynGrpIs(IpGenPrefix("239.1.0.0/16"), true);
  group("10.0.0.1", "239.1.0.0/16");

  expectCandidate("239.1.0.0/16", "10.0.0.1", {3, 24, true, modePimSm, kStartTime});

  useAcl("10.0.0.1", "A");
  // The list's override is written either way: absent reads false.
  expectCandidate("239.1.0.0/16", "10.0.0.1", {3, 24, false, modePimSm, kStartTime});
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 2u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_AclWithOverrideAfterGroup_WritesItsOverride) {
  start();
  permit("A", 10, "239.1.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("239.1.0.0/16"), 3);
  group("10.0.0.1", "239.1.0.0/16");
  entry->overrideDynAclIs("A", true);

  useAcl("10.0.0.1", "A");
  EXPECT_TRUE(candidate("239.1.0.0/16", "10.0.0.1")->override());
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->priority(), 3u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_AclWithSentinelValues_WritesNeither) {
  start();
  permit("A", 10, "239.1.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("239.1.0.0/16"), 3);
  entry->hashMaskGrpIs(IpGenPrefix("239.1.0.0/16"), 24);
  group("10.0.0.1", "239.1.0.0/16");
  entry->priorityAclIs("A", kRpPriorityNone);
  entry->hashMaskAclIs("A", kRpHashMaskLenNone);

  useAcl("10.0.0.1", "A");
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->priority(), 3u);
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->hashMaskLen(), 24u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_AclWithRealValues_WritesThemOverGroupValues) {
  start();
  permit("A", 10, "239.1.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("239.1.0.0/16"), 3);
  group("10.0.0.1", "239.1.0.0/16");
  entry->priorityAclIs("A", 9);
  entry->hashMaskAclIs("A", 28);

  useAcl("10.0.0.1", "A");
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->priority(), 9u);
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->hashMaskLen(), 28u);
}

// ---- Per-group and per-list values -------------------------------------------------------------

TEST_F(StaticRpCandidateTest, StaticRpCandidate_PriorityGrpChangedAndDeleted_RewritesCandidate) {
  start();
  group("10.0.0.1", "239.0.0.0/8");
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("239.0.0.0/8"), 4);
  EXPECT_EQ(candidate("239.0.0.0/8", "10.0.0.1")->priority(), 4u);
  entry->priorityGrpDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(candidate("239.0.0.0/8", "10.0.0.1")->priority(), kRpPriorityNone);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_HashMaskGrpChangedAndDeleted_RewritesCandidate) {
  start();
  group("10.0.0.1", "239.0.0.0/8");
  auto entry = rp("10.0.0.1");
  entry->hashMaskGrpIs(IpGenPrefix("239.0.0.0/8"), 16);
  EXPECT_EQ(candidate("239.0.0.0/8", "10.0.0.1")->hashMaskLen(), 16u);
  entry->hashMaskGrpDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(candidate("239.0.0.0/8", "10.0.0.1")->hashMaskLen(), kRpHashMaskLenNone);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_OverrideDynGrpChangedAndDeleted_RewritesIt) {
  start();
  group("10.0.0.1", "239.0.0.0/8");
  auto entry = rp("10.0.0.1");
  entry->overrideDynGrpIs(IpGenPrefix("239.0.0.0/8"), true);
  EXPECT_TRUE(candidate("239.0.0.0/8", "10.0.0.1")->override());
  entry->overrideDynGrpDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_FALSE(candidate("239.0.0.0/8", "10.0.0.1")->override());
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_GroupValueWithoutGroup_CreatesNothing) {
  start();
  rp("10.0.0.1")->priorityGrpIs(IpGenPrefix("239.0.0.0/8"), 4);
  EXPECT_FALSE(hasSet("239.0.0.0/8"));
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_GroupValueForAclOnlyPrefix_WritesIntoAclCandidate) {
  start();
  permit("A", 10, "239.1.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityAclIs("A", 10);
  entry->hashMaskAclIs("A", 20);
  entry->overrideDynAclIs("A", true);
  useAcl("10.0.0.1", "A");
  ASSERT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->priority(), 10u);

  // The RP does not list the prefix as a group; its candidate, which the list gave, takes the
  // per-group values all the same, and their removal writes the sentinels.
  entry->priorityGrpIs(IpGenPrefix("239.1.0.0/16"), 2);
  entry->hashMaskGrpIs(IpGenPrefix("239.1.0.0/16"), 30);
  entry->overrideDynGrpIs(IpGenPrefix("239.1.0.0/16"), false);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {2, 30, false, modePimSm, kStartTime});
  entry->overrideDynGrpIs(IpGenPrefix("239.1.0.0/16"), true);
  entry->priorityGrpDel(IpGenPrefix("239.1.0.0/16"));
  entry->hashMaskGrpDel(IpGenPrefix("239.1.0.0/16"));
  expectCandidate("239.1.0.0/16", "10.0.0.1",
                  {kNoPriority, kNoHashMask, true, modePimSm, kStartTime});
  entry->overrideDynGrpDel(IpGenPrefix("239.1.0.0/16"));
  EXPECT_FALSE(candidate("239.1.0.0/16", "10.0.0.1")->override());
  // Values are not sources: the count is the list's alone.
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_PriorityAclDeleted_Writes256InEveryAclCandidate) {
  start();
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.3.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityAclIs("A", 10);
  useAcl("10.0.0.1", "A");
  group("10.0.0.1", "238.0.0.0/8");
  entry->priorityGrpIs(IpGenPrefix("238.0.0.0/8"), 5);
  // Another RP on the same list keeps its own values.
  rp("10.0.0.2")->priorityAclIs("A", 20);
  useAcl("10.0.0.2", "A");
  ASSERT_EQ(candidate("239.3.0.0/16", "10.0.0.1")->priority(), 10u);

  entry->priorityAclDel("A");
  expectCandidate("239.1.0.0/16", "10.0.0.1",
                  {kNoPriority, kNoHashMask, false, modePimSm, kStartTime});
  expectCandidate("239.3.0.0/16", "10.0.0.1",
                  {kNoPriority, kNoHashMask, false, modePimSm, kStartTime});
  expectCandidate("238.0.0.0/8", "10.0.0.1", {5, kNoHashMask, false, modePimSm, kStartTime});
  expectCandidate("239.1.0.0/16", "10.0.0.2", {20, kNoHashMask, false, modePimSm, kStartTime});
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  EXPECT_EQ(count("10.0.0.1", "239.3.0.0/16"), 1u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_PriorityAclChanged_WritesEveryAclCandidate) {
  start();
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.3.0.0/16");
  useAcl("10.0.0.1", "A");
  rp("10.0.0.1")->priorityAclIs("A", 12);
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->priority(), 12u);
  EXPECT_EQ(candidate("239.3.0.0/16", "10.0.0.1")->priority(), 12u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_HashMaskAclChangedAndDeleted_RewritesEveryOne) {
  start();
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.3.0.0/16");
  useAcl("10.0.0.1", "A");
  auto entry = rp("10.0.0.1");
  entry->hashMaskAclIs("A", 20);
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->hashMaskLen(), 20u);
  EXPECT_EQ(candidate("239.3.0.0/16", "10.0.0.1")->hashMaskLen(), 20u);
  entry->hashMaskAclDel("A");
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->hashMaskLen(), kRpHashMaskLenNone);
  EXPECT_EQ(candidate("239.3.0.0/16", "10.0.0.1")->hashMaskLen(), kRpHashMaskLenNone);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_OverrideDynAclChangedAndDeleted_RewritesEveryOne) {
  start();
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.3.0.0/16");
  useAcl("10.0.0.1", "A");
  auto entry = rp("10.0.0.1");
  entry->overrideDynAclIs("A", true);
  EXPECT_TRUE(candidate("239.1.0.0/16", "10.0.0.1")->override());
  EXPECT_TRUE(candidate("239.3.0.0/16", "10.0.0.1")->override());
  entry->overrideDynAclDel("A");
  EXPECT_FALSE(candidate("239.1.0.0/16", "10.0.0.1")->override());
  EXPECT_FALSE(candidate("239.3.0.0/16", "10.0.0.1")->override());
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_AclValueForAclTheRpDoesNotList_WritesItsCandidate) {
  start();
  permit("A", 10, "239.1.0.0/16");
  permit("B", 10, "239.1.0.0/16");
  // Another RP lists A, so its list object exists; RP 1 serves A's prefix by a group only.
  useAcl("10.0.0.2", "A");
  group("10.0.0.1", "239.1.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityAclIs("A", 10);
  entry->hashMaskAclIs("A", 20);
  entry->overrideDynAclIs("A", true);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {10, 20, true, modePimSm, kStartTime});
  entry->priorityAclDel("A");
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->priority(), kRpPriorityNone);
  // The other RP's candidate is not this entry's to write.
  expectCandidate("239.1.0.0/16", "10.0.0.2",
                  {kNoPriority, kNoHashMask, false, modePimSm, kStartTime});

  // No RP lists B: there is no list object, so its values go nowhere.
  ASSERT_FALSE(sm_->rpStaticAcl("B"));
  entry->priorityAclIs("B", 3);
  entry->hashMaskAclIs("B", 4);
  entry->overrideDynAclIs("B", false);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {kNoPriority, 20, true, modePimSm, kStartTime});
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_ModeChanged_RewritesOnlyThisRpsCandidates) {
  start();
  permit("A", 10, "239.1.0.0/16");
  group("10.0.0.1", "238.0.0.0/8");
  useAcl("10.0.0.1", "A");
  group("10.0.0.2", "238.0.0.0/8");
  group("10.0.0.2", "237.0.0.0/8");

  Kel::System::virtualTimeAdvanceTo(1010.0);
  rp("10.0.0.1")->modeIs(modePimBidir);
  expectCandidate("238.0.0.0/8", "10.0.0.1",
                  {kNoPriority, kNoHashMask, false, modePimBidir, kStartTime});
  expectCandidate("239.1.0.0/16", "10.0.0.1",
                  {kNoPriority, kNoHashMask, false, modePimBidir, kStartTime});
  expectCandidate("238.0.0.0/8", "10.0.0.2",
                  {kNoPriority, kNoHashMask, false, modePimSm, kStartTime});
  expectCandidate("237.0.0.0/8", "10.0.0.2",
                  {kNoPriority, kNoHashMask, false, modePimSm, kStartTime});
  EXPECT_EQ(count("10.0.0.1", "238.0.0.0/8"), 1u);
  EXPECT_EQ(count("10.0.0.2", "238.0.0.0/8"), 1u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_SetupTime_SetOnceAndKeptByLaterAdds) {
  start();
  permit("A", 10, "239.1.0.0/16");
  permit("B", 10, "239.1.0.0/16");
  group("10.0.0.1", "239.1.0.0/16");
  const double created = candidate("239.1.0.0/16", "10.0.0.1")->setupTime();
  EXPECT_EQ(created, kStartTime);

  Kel::System::virtualTimeAdvanceTo(1100.0);
  useAcl("10.0.0.1", "A");
  Kel::System::virtualTimeAdvanceTo(1200.0);
  rp("10.0.0.1")->priorityAclIs("B", 8);
  useAcl("10.0.0.1", "B");
  expectCandidate("239.1.0.0/16", "10.0.0.1", {8, kNoHashMask, false, modePimSm, created});
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 3u);

  // Once gone, a candidate made again is a new one.
  rp("10.0.0.1")->groupDel(IpGenPrefix("239.1.0.0/16"));
  rp("10.0.0.1")->aclDel("A");
  rp("10.0.0.1")->aclDel("B");
  group("10.0.0.1", "239.1.0.0/16");
  expectCandidate("239.1.0.0/16", "10.0.0.1", {kNoPriority, kNoHashMask, false, modePimSm, 1200.0});
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
}

TEST_F(StaticRpCandidateTest, StaticRpCandidate_ModeOfExistingCandidate_KeptByLaterAdd) {
  start();
  permit("A", 10, "239.1.0.0/16");
  group("10.0.0.1", "239.1.0.0/16");
  ASSERT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->pimMode(), modePimSm);
  useAcl("10.0.0.1", "A");
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->pimMode(), modePimSm);
}

// ---- Lifetime --------------------------------------------------------------------------------

TEST_F(StaticRpCandidateTest, StaticRpCandidate_ReactorDropped_LeavesStatusAndStopsReacting) {
  start();
  group("10.0.0.1", "239.0.0.0/8");
  Kel::Ptr<RpCandidateSm::KelRpEntry> reactor = sm_->rpEntry(IpGenAddr("10.0.0.1"));
  sm_ = nullptr;
  EXPECT_EQ(candidates(), (Lines{"239.0.0.0/8 10.0.0.1"}));
  EXPECT_EQ(rp("10.0.0.1")->notifiees(), 0u);
  EXPECT_FALSE(reactor->notifier());
  group("10.0.0.1", "238.0.0.0/8");
  EXPECT_FALSE(hasSet("238.0.0.0/8"));
}

// A reader of the status may drop the reactor (its last reference) from inside a notification that
// one of the reactor's handlers caused. The handler finishes on a live reactor, its writes land,
// and the reactor goes when the handler returns, leaving every input unwatched. Meant to be run
// under the sanitizer build too, where a use of the dropped reactor would be reported.

TEST_F(StaticRpCandidateTest, StaticRpLifetime_OwnerDroppedDuringGroupAdd_HandlerFinishes) {
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("239.0.0.0/8"), 7);
  entry->hashMaskGrpIs(IpGenPrefix("239.0.0.0/8"), 30);
  start();
  const Kel::Ptr<RpCandidateSm::KelRpEntry> reactor = sm_->rpEntry(IpGenAddr("10.0.0.1"));
  StaticRpTest::Disrupter disrupter(status_);
  disrupter.action = [&] { sm_ = nullptr; };

  group("10.0.0.1", "239.0.0.0/8");
  EXPECT_EQ(disrupter.fired, (Lines{"239.0.0.0/8"}));
  EXPECT_FALSE(sm_);
  expectCandidate("239.0.0.0/8", "10.0.0.1", {7, 30, false, modePimSm, kStartTime});
  EXPECT_FALSE(reactor->notifier());
  EXPECT_EQ(entry->notifiees(), 0u);
  EXPECT_EQ(rpConfig_->notifiees(), 0u);
  EXPECT_EQ(aclConfig_->notifiees(), 0u);
}

TEST_F(StaticRpCandidateTest, StaticRpLifetime_OwnerDroppedDuringAclAdd_HandlerFinishes) {
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.2.0.0/16");
  rp("10.0.0.1")->priorityAclIs("A", 9);
  start();
  StaticRpTest::Disrupter disrupter(status_);
  disrupter.action = [&] { sm_ = nullptr; };

  useAcl("10.0.0.1", "A");
  EXPECT_EQ(disrupter.fired.size(), 1u);
  EXPECT_FALSE(sm_);
  // The add went through for every prefix of the list.
  EXPECT_EQ(candidates(), (Lines{"239.1.0.0/16 10.0.0.1", "239.2.0.0/16 10.0.0.1"}));
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->priority(), 9u);
  EXPECT_EQ(candidate("239.2.0.0/16", "10.0.0.1")->priority(), 9u);
  EXPECT_EQ(rp("10.0.0.1")->notifiees(), 0u);
}

TEST_F(StaticRpCandidateTest, StaticRpLifetime_OwnerDroppedWhileRuleChangeEntersPrefix_Finishes) {
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  useAcl("10.0.0.2", "A");
  start();
  const auto subConfig = aclConfig_->acl("A")->currCfg();
  ASSERT_EQ(subConfig->notifiees(), 1u);
  StaticRpTest::Disrupter disrupter(status_);
  disrupter.action = [&] { sm_ = nullptr; };

  permit("A", 20, "239.2.0.0/16");
  EXPECT_EQ(disrupter.fired, (Lines{"239.2.0.0/16"}));
  EXPECT_FALSE(sm_);
  // The prefix reached both RPs of the list before the reactor went.
  EXPECT_EQ(candidates(), (Lines{"239.1.0.0/16 10.0.0.1", "239.1.0.0/16 10.0.0.2",
                                 "239.2.0.0/16 10.0.0.1", "239.2.0.0/16 10.0.0.2"}));
  EXPECT_EQ(subConfig->notifiees(), 0u);
  EXPECT_EQ(aclConfig_->acl("A")->notifiees(), 0u);
}

TEST_F(StaticRpCandidateTest, StaticRpLifetime_OwnerDroppedWhileAclLeavesConfig_Finishes) {
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.2.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  StaticRpTest::Disrupter disrupter(status_);
  disrupter.action = [&] { sm_ = nullptr; };

  aclConfig_->aclDel("A");
  EXPECT_EQ(disrupter.fired.size(), 1u);
  EXPECT_FALSE(sm_);
  // Every prefix of the list left the RP before the reactor went.
  EXPECT_TRUE(candidates().empty());
  EXPECT_EQ(aclConfig_->notifiees(), 0u);
}

TEST_F(StaticRpCandidateTest, StaticRpLifetime_OwnerDroppedWhileRpLeaves_Finishes) {
  permit("A", 10, "239.1.0.0/16");
  group("10.0.0.1", "238.0.0.0/8");
  useAcl("10.0.0.1", "A");
  group("10.0.0.2", "237.0.0.0/8");
  start();
  StaticRpTest::Disrupter disrupter(status_);
  disrupter.action = [&] { sm_ = nullptr; };

  const auto departed = rpConfig_->rpTable(IpGenAddr("10.0.0.1"));
  rpConfig_->rpTableDel(IpGenAddr("10.0.0.1"));
  EXPECT_EQ(disrupter.fired, (Lines{"238.0.0.0/8"}));
  EXPECT_FALSE(sm_);
  // The departed RP gave back its group and its list, after the notification that dropped the
  // reactor as before it.
  EXPECT_EQ(candidates(), (Lines{"237.0.0.0/8 10.0.0.2"}));
  EXPECT_EQ(departed->notifiees(), 0u);
  EXPECT_EQ(rpConfig_->rpTable(IpGenAddr("10.0.0.2"))->notifiees(), 0u);
  EXPECT_EQ(rpConfig_->notifiees(), 0u);
}

TEST_F(StaticRpCandidateTest, StaticRpLifetime_OwnerDroppedDuringValueChange_Finishes) {
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.2.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  // A reader that drops the reactor when the first of the list's candidates changes priority;
  // the handler still has the other candidate, and its trace lines, to write.
  class PriorityDisrupter : public Routing::Pim::RpCandidate::NotifieeConst {
   public:
    PriorityDisrupter(const Kel::PtrConst<Routing::Pim::RpCandidate>& candidate,
                      std::function<void()>* action)
        : action_(action) {
      notifierIs(candidate);
    }
    ~PriorityDisrupter() override { notifierIs(nullptr); }
    void onPriority() override {
      if (*action_) std::exchange(*action_, nullptr)();
    }

   private:
    std::function<void()>* action_;
  };
  std::function<void()> action = [&] { sm_ = nullptr; };
  PriorityDisrupter first(candidate("239.1.0.0/16", "10.0.0.1"), &action);
  PriorityDisrupter second(candidate("239.2.0.0/16", "10.0.0.1"), &action);
  TestSupport::TraceCapture capture(kTraceFile, 5);

  rp("10.0.0.1")->priorityAclIs("A", 4);
  EXPECT_FALSE(action);
  EXPECT_FALSE(sm_);
  EXPECT_EQ(candidate("239.1.0.0/16", "10.0.0.1")->priority(), 4u);
  EXPECT_EQ(candidate("239.2.0.0/16", "10.0.0.1")->priority(), 4u);
  EXPECT_EQ(capture.lines().size(), 2u);
  EXPECT_EQ(rp("10.0.0.1")->notifiees(), 0u);
}

// ---- Restart over a surviving status ----------------------------------------------------------

TEST_F(StaticRpCandidateTest, StaticRpRestart_StatusWithSets_StaleGoValidStayCountsFromScratch) {
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("239.0.0.0/8"), 6);
  group("10.0.0.1", "239.0.0.0/8");
  useAcl("10.0.0.1", "A");
  useAcl("10.0.0.1", "B");
  permit("A", 10, "239.1.0.0/16");
  permit("B", 10, "239.1.0.0/16");
  group("10.0.0.2", "239.1.0.0/16");
  start();
  const double firstSetup = candidate("239.0.0.0/8", "10.0.0.1")->setupTime();
  const Lines built = candidates();
  std::map<std::string, U32> freshCounts = {{"239.0.0.0/8", count("10.0.0.1", "239.0.0.0/8")},
                                            {"239.1.0.0/16", count("10.0.0.1", "239.1.0.0/16")}};

  // The reactor goes (the agent restarts it); the status survives and collects stale entries:
  // a candidate of an RP no longer configured, and a candidate of a prefix no source gives.
  sm_ = nullptr;
  RpTest::addCandidate(status_, {"239.9.0.0/16", "10.0.0.1", 1, 32, modePimSm});
  RpTest::addCandidate(status_, {"239.1.0.0/16", "10.0.0.9", 1, 32, modePimSm});
  RpTest::addCandidate(status_, {"230.0.0.0/8", "10.0.0.9", 1, 32, modePimSm});
  Kel::System::virtualTimeAdvanceTo(2000.0);

  TestSupport::TraceCapture capture(kTraceFile, 8);
  start();
  EXPECT_EQ(candidates(), built);
  EXPECT_FALSE(hasSet("230.0.0.0/8"));
  EXPECT_FALSE(hasSet("239.9.0.0/16"));
  // Valid candidates are kept as they were, setup time included, with values rewritten.
  EXPECT_EQ(candidate("239.0.0.0/8", "10.0.0.1")->setupTime(), firstSetup);
  EXPECT_EQ(candidate("239.0.0.0/8", "10.0.0.1")->priority(), 6u);
  EXPECT_EQ(count("10.0.0.1", "239.0.0.0/8"), freshCounts["239.0.0.0/8"]);
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), freshCounts["239.1.0.0/16"]);
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 2u);
  EXPECT_EQ(count("10.0.0.2", "239.1.0.0/16"), 1u);
  EXPECT_FALSE(sm_->pfxRefCount(IpGenAddr("10.0.0.9")));
  EXPECT_TRUE(capture.wrote("<Vrf:red>Deleted RP 10.0.0.9 from prefix 230.0.0.0/8 in status"));
  EXPECT_TRUE(capture.wrote("<Vrf:red>Deleting prefix 230.0.0.0/8 from status"));
  EXPECT_TRUE(capture.wrote("<Vrf:red>Deleted RP 10.0.0.1 from prefix 239.9.0.0/16 in status"));
  EXPECT_TRUE(capture.wrote("<Vrf:red>Deleted RP 10.0.0.9 from prefix 239.1.0.0/16 in status"));
  EXPECT_FALSE(capture.wrote("<Vrf:red>Deleting prefix 239.1.0.0/16 from status"));

  // Counts rebuilt from scratch keep working: both lists and nothing else give 239.1/16 to R1.
  rp("10.0.0.1")->aclDel("A");
  EXPECT_TRUE(candidate("239.1.0.0/16", "10.0.0.1"));
  rp("10.0.0.1")->aclDel("B");
  EXPECT_FALSE(candidate("239.1.0.0/16", "10.0.0.1"));
}

TEST_F(StaticRpCandidateTest, StaticRpRestart_FreshStatus_DoesNotReconcile) {
  group("10.0.0.1", "239.0.0.0/8");
  TestSupport::TraceCapture capture(kTraceFile);
  start();
  EXPECT_FALSE(capture.wrote("doRemoveExtraStatusEntries"));
  EXPECT_FALSE(capture.wrote("doBuildRpStaticAcl"));
  EXPECT_TRUE(capture.wrote("<Vrf:red>Initialized CRP set"));
}

TEST_F(StaticRpCandidateTest, StaticRpRestart_InitializeTwice_SecondDoesNothing) {
  start();
  TestSupport::TraceCapture capture(kTraceFile);
  sm_->handleInitialize();
  EXPECT_EQ(capture.lines(), (Lines{"<Vrf:red>" + kOwner + "handleInitialize()"}));
}

// ---- Traces ------------------------------------------------------------------------------------

TEST_F(StaticRpCandidateTest, StaticRpTrace_GroupAddAndRemove_ExactLines) {
  rp("10.0.0.1");
  start();
  TestSupport::TraceCapture capture(kTraceFile);
  group("10.0.0.1", "239.0.0.0/8");
  EXPECT_EQ(
      capture.lines(),
      (Lines{
          "<Vrf:red>" + kEntry + "handleGroup(const Ipkit::IpGenPrefix&) 10.0.0.1 ( 239.0.0.0/8 )",
          "<Vrf:red>" + kEntry + "doGroupAdd(const Ipkit::IpGenPrefix&) 10.0.0.1 ( 239.0.0.0/8 )",
          "<Vrf:red>Created refcount object for RP 10.0.0.1",
          "<Vrf:red>Created group 239.0.0.0/8 CRP set",
          "<Vrf:red>Added RP 10.0.0.1 into 239.0.0.0/8 CRP set.",
          "<Vrf:red>PrefixCounter for prefix 239.0.0.0/8 is 1",
      }));
  capture.clear();
  rp("10.0.0.1")->groupDel(IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(
      capture.lines(),
      (Lines{
          "<Vrf:red>" + kEntry + "handleGroup(const Ipkit::IpGenPrefix&) 10.0.0.1 ( 239.0.0.0/8 )",
          "<Vrf:red>" + kEntry +
              "doGroupRemove(const Ipkit::IpGenPrefix&) 10.0.0.1 ( 239.0.0.0/8 )",
          "<Vrf:red>PrefixCounter for prefix 239.0.0.0/8 is 0",
          "<Vrf:red>Deleted refcount object for RP 10.0.0.1",
          "<Vrf:red>Deleted RP 10.0.0.1 from 239.0.0.0/8 CRP set.",
          "<Vrf:red>Deleted group 239.0.0.0/8 CRP set",
      }));
}

TEST_F(StaticRpCandidateTest, StaticRpTrace_StartupGroups_CountTracedAsRefCount) {
  group("10.0.0.1", "239.0.0.0/8");
  TestSupport::TraceCapture capture(kTraceFile, 8);
  start();
  EXPECT_EQ(capture.lines(),
            (Lines{
                "<Vrf:red>Created refcount object for RP 10.0.0.1",
                "<Vrf:red>Created group 239.0.0.0/8 CRP set",
                "<Vrf:red>Added RP 10.0.0.1 into 239.0.0.0/8 CRP set.",
                "<Vrf:red>RefCount for group 239.0.0.0/8 related to RP 10.0.0.1 = 1",
                "<Vrf:red>Initialized CRP set",
            }));
}

TEST_F(StaticRpCandidateTest, StaticRpTrace_AclAddAndRemove_ExactLines) {
  permit("A", 10, "239.1.0.0/16");
  rp("10.0.0.1");
  start();
  TestSupport::TraceCapture capture(kTraceFile);
  useAcl("10.0.0.1", "A");
  EXPECT_EQ(capture.lines(),
            (Lines{
                "<Vrf:red>" + kEntry + "handleAcl(const Kel::String&) 10.0.0.1 ( A )",
                "<Vrf:red>" + kEntry + "doAclAdd(const Kel::String&) 10.0.0.1 ( A )",
                "<Vrf:red>Created RpStaticAcl object for acl A",
                "<Vrf:red>" + kAclSm + "handleInitialize() A",
                "<Vrf:red>Acl name found in static RP config ",
                "<Vrf:red>Acl name found in ACL config",
                "<Vrf:red>" + kAclSm + "handlePrefix(const Ipkit::IpGenPrefix&) A ( 239.1.0.0/16 )",
                "<Vrf:red>Group added to RpStaticAcl Map ",
                "<Vrf:red>Added prefix 239.1.0.0/16 to RpStaticAcl object for acl A",
                "<Vrf:red>Added RP 10.0.0.1 to RpStaticAcl object for acl A",
                "<Vrf:red>Created refcount object for RP 10.0.0.1",
                "<Vrf:red>Created group 239.1.0.0/16 CRP set",
                "<Vrf:red>PrefixCounter for prefix 239.1.0.0/16 is 1",
            }));
  capture.clear();
  rp("10.0.0.1")->aclDel("A");
  EXPECT_EQ(capture.lines(),
            (Lines{
                "<Vrf:red>" + kEntry + "handleAcl(const Kel::String&) 10.0.0.1 ( A )",
                "<Vrf:red>" + kEntry + "doAclRemove(const Kel::String&) 10.0.0.1 ( A )",
                "<Vrf:red>PrefixCounter for prefix 239.1.0.0/16 is 0",
                "<Vrf:red>Deleted refcount object for RP 10.0.0.1",
                "<Vrf:red>Deleted RP 10.0.0.1 from 239.1.0.0/16 CRP set.",
                "<Vrf:red>Deleted group 239.1.0.0/16 CRP set",
                "<Vrf:red>Deleted RP 10.0.0.1from RpStaticAcl object for acl A",
                "<Vrf:red>Deleted RpStaticAcl object for acl A",
            }));
}

TEST_F(StaticRpCandidateTest, StaticRpTrace_PrefixEntersAndLeavesAcl_ExactLines) {
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  TestSupport::TraceCapture capture(kTraceFile);
  permit("A", 20, "239.2.0.0/16");
  const std::string handleRule =
      "<Vrf:red>void Routing::Pim::Static::RpCandidateSm::KelAcl::handleRule() A";
  EXPECT_EQ(capture.lines(),
            (Lines{
                handleRule,
                "<Vrf:red>Permit Rule Added to ACL A: Adding 239.1.0.0/16 to rpStaticAcl",
                "<Vrf:red>" + kAclSm + "handlePrefix(const Ipkit::IpGenPrefix&) A ( 239.2.0.0/16 )",
                "<Vrf:red>Group added to RpStaticAcl Map ",
                "<Vrf:red>PrefixCounter for prefix 239.2.0.0/16 is 1",
                "<Vrf:red>Writing to RpCandidateStatus 239.2.0.0/16 for RP 10.0.0.1",
                "<Vrf:red>Created group 239.2.0.0/16 CRP set",
                "<Vrf:red>Added RP 10.0.0.1 into 239.2.0.0/16 CRP set.",
                "<Vrf:red>Permit Rule Added to ACL A: Adding 239.2.0.0/16 to rpStaticAcl",
            }));
  capture.clear();
  removeRule("A", 20);
  EXPECT_EQ(capture.lines(),
            (Lines{
                handleRule,
                "<Vrf:red>" + kAclSm + "handlePrefix(const Ipkit::IpGenPrefix&) A ( 239.2.0.0/16 )",
                "<Vrf:red>Group deleted from the RpStatiAcl Map ",
                "<Vrf:red>Removing RpCandidateStatus for prefix239.2.0.0/16 and RP 10.0.0.1",
                "<Vrf:red>PrefixCounter for prefix 239.2.0.0/16 is 0",
                "<Vrf:red>Deleted refcount object for RP 10.0.0.1",
                "<Vrf:red>Deleted RP 10.0.0.1 from 239.2.0.0/16 CRP set.",
                "<Vrf:red>Deleted group 239.2.0.0/16 CRP set",
                "<Vrf:red>Permit Rule Added to ACL A: Adding 239.1.0.0/16 to rpStaticAcl",
            }));
}

TEST_F(StaticRpCandidateTest, StaticRpTrace_PriorityAndOverrideValues_ExactLines) {
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  group("10.0.0.1", "238.0.0.0/8");
  start();
  TestSupport::TraceCapture capture(kTraceFile, 5);
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("238.0.0.0/8"), 3);
  entry->hashMaskGrpIs(IpGenPrefix("238.0.0.0/8"), 30);
  entry->overrideDynGrpIs(IpGenPrefix("238.0.0.0/8"), true);
  entry->priorityAclIs("A", 4);
  entry->hashMaskAclIs("A", 31);
  entry->overrideDynAclIs("A", true);
  EXPECT_EQ(capture.lines(),
            (Lines{
                "<Vrf:red>Set priority = 3 for prefix 238.0.0.0/8 and RP 10.0.0.1",
                "<Vrf:red>Set hashmask = 30 for prefix 238.0.0.0/8 and RP 10.0.0.1",
                "<Vrf:red>Setting overrride = True for prefix 238.0.0.0/8 and RP 10.0.0.1",
                "<Vrf:red>Set priority = 4 for acl A and RP 10.0.0.1 in 239.1.0.0/16 CRP set",
                "<Vrf:red>Set hashmask = 31 for acl A and RP 10.0.0.1 in 239.1.0.0/16 CRP set",
                "<Vrf:red>Setting overrride = True for acl A and RP 10.0.0.1",
            }));
}

TEST_F(StaticRpCandidateTest, StaticRpTrace_AclConfigChange_EntryLineCarriesName) {
  useAcl("10.0.0.1", "A");
  start();
  TestSupport::TraceCapture capture(kTraceFile, 9);
  aclConfig_->aclIs("A");
  ASSERT_FALSE(capture.lines().empty());
  EXPECT_EQ(capture.lines()[0], "<Vrf:red>" + kOwner + "handleAclConfig(const Kel::Name&) ( A )");
}

// ---- Refusals ----------------------------------------------------------------------------------

TEST_F(StaticRpCandidateTest, StaticRpRefusal_VrfNameOverLimit_Refused) {
  const std::string longest(L3::VrfName::maxLength, 'v');
  EXPECT_EQ(Routing::Pim::Static::RpConfig(L3::VrfName(longest)).vrfName().string(), longest);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { Routing::Pim::Static::RpConfig config(L3::VrfName(longest + "v")); }),
            "VrfName::bytes > VrfName::maxLength not allowed");
}

TEST_F(StaticRpCandidateTest, StaticRpRefusal_RuleTniVniOutOfRange_RefusedAndStatusUntouched) {
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  const Lines before = candidates();
  StaticRpTest::StatusRecorder recorder(status_);
  auto cfg = aclConfig_->aclMutable("A")->currCfgMutable();
  const Acl::UniqueId stored = cfg->ruleBySequence(10);
  const Acl::IpFilter original = cfg->ipRuleById(stored).filter();

  // A copy of the stored rule's filter, to be changed and written back as the rule's new
  // version; the changes are assigned in place and refused whole.
  Acl::IpFilter edited = original;
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { edited = Acl::IpFilter(IpGenPrefix("239.2.0.0/16"), 16777216, 0); }),
            "IpFilterBase::tni < 0 or > 16777215 not allowed");
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { edited = Acl::IpFilter(IpGenPrefix("239.2.0.0/16"), 0, -1); }),
            "IpFilterBase::vni < 0 or > 16777215 not allowed");
  EXPECT_EQ(edited, original);

  // Written back the way the configuration writer does (fresh identifier, then the sequence
  // number pointed at it), the reactor recomputes the list and finds nothing changed.
  const Acl::UniqueId fresh(99);
  cfg->ipRuleByIdIs(fresh, Acl::IpRuleConfig(Acl::AclAction::permit, edited));
  cfg->ruleBySequenceIs(10, fresh);
  ASSERT_TRUE(cfg->ruleBySequence(10) == fresh);
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.1.0.0/16"}));
  EXPECT_EQ(candidates(), before);
  EXPECT_TRUE(recorder.events.empty());
  expectCandidate("239.1.0.0/16", "10.0.0.1",
                  {kNoPriority, kNoHashMask, false, modePimSm, kStartTime});
}

TEST_F(StaticRpCandidateTest, StaticRpRefusal_NullRpEntry_Refused) {
  start();
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { sm_->rpEntryIs(nullptr); }),
            "null _rpEntry parameter to mutator for Routing::Pim::Static::RpCandidateSm::rpEntry "
            "not allowed");
  EXPECT_TRUE(sm_->rpEntry().empty());
}

TEST_F(StaticRpCandidateTest, StaticRpRefusal_NullAcl_Refused) {
  start();
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { sm_->aclIs(nullptr); }),
            "null _acl parameter to mutator for Routing::Pim::Static::RpCandidateSm::acl not "
            "allowed");
  EXPECT_TRUE(sm_->acl().empty());
}

TEST_F(StaticRpCandidateTest, StaticRpRefusal_NullRpStaticAclSm_Refused) {
  start();
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { sm_->rpStaticAclSmIs(nullptr); }),
            "null _rpStaticAclSm parameter to mutator for "
            "Routing::Pim::Static::RpCandidateSm::rpStaticAclSm not allowed");
  EXPECT_TRUE(sm_->rpStaticAclSm().empty());
}

TEST_F(StaticRpCandidateTest, StaticRpRefusal_MissingInput_Asserts) {
  const auto e = TestSupport::thrownBy<Kel::AssertionException>(
      [&] { Routing::Pim::Static::rpCandidateSmFactory(rpConfig_, aclConfig_, nullptr); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->expression(), "rpConfig && aclConfig && crpStatus");
  EXPECT_EQ(e->traceFile(), kTraceFile);
}

}  // namespace
