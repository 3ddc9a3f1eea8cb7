// The static RP reactor's access-list side: per-RP reference counts of the prefixes that lists
// give, list objects and their reactors, and lists' rules turned into prefixes by difference.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rp/PimStaticPrefixRefCount.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/rp/StaticRpTestSupport.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::Pim::kRpHashMaskLenNone;
using Routing::Pim::kRpPriorityNone;
using Routing::Pim::Static::PrefixRefCount;
using Lines = std::vector<std::string>;

class StaticRpAclTest : public StaticRpTest::StaticRpFixture {};

constexpr auto kNoPriority = kRpPriorityNone;
constexpr auto kNoHashMask = kRpHashMaskLenNone;
constexpr auto kSm = Routing::Pim::modePimSm;

// ---- PrefixRefCount ----------------------------------------------------------------------------

TEST(PrefixRefCountTest, PrefixRefCount_IncAndDec_CreateAbsentCounterAtZero) {
  PrefixRefCount counts(IpGenAddr("10.0.0.1"));
  const IpGenPrefix prefix("239.0.0.0/8");
  EXPECT_EQ(counts.counterInc(prefix, 2), 2u);
  EXPECT_EQ(counts.counterDec(prefix, 1), 1u);
  counts.counterDel(prefix);
  EXPECT_FALSE(counts.counter().contains(prefix));
  EXPECT_EQ(counts.counterInc(prefix, 0), 0u);
  EXPECT_TRUE(counts.counter().contains(prefix));
}

TEST(PrefixRefCountTest, PrefixRefCount_DecBelowZero_WrapsWithoutClamp) {
  PrefixRefCount counts(IpGenAddr("10.0.0.1"));
  const IpGenPrefix prefix("239.0.0.0/8");
  EXPECT_EQ(counts.counterDec(prefix, 1), 4294967295u);
  EXPECT_EQ(counts.counter(prefix), 4294967295u);
  EXPECT_EQ(counts.counterInc(prefix, 1), 0u);
  counts.counterIs(prefix, 0);
  EXPECT_EQ(counts.counterDec(prefix, 3), 4294967293u);
  counts.counterDelAll();
  EXPECT_TRUE(counts.counter().empty());
}

// ---- Reference counts across lists --------------------------------------------------------------

TEST_F(StaticRpAclTest, StaticRpAcl_TwoAclsPermitSamePrefix_CountTwoAndCandidateGoesWithSecond) {
  start();
  permit("A", 10, "239.1.0.0/16");
  permit("B", 10, "238.0.0.0/8");
  permit("B", 20, "239.1.0.0/16");
  rp("10.0.0.1")->priorityAclIs("A", 7);
  useAcl("10.0.0.1", "A");
  Kel::System::virtualTimeAdvanceTo(1010.0);
  rp("10.0.0.1")->overrideDynAclIs("B", true);
  useAcl("10.0.0.1", "B");
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 2u);
  EXPECT_EQ(count("10.0.0.1", "238.0.0.0/8"), 1u);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {7, kNoHashMask, true, kSm, kStartTime});
  expectCandidate("238.0.0.0/8", "10.0.0.1", {kNoPriority, kNoHashMask, true, kSm, 1010.0});

  rp("10.0.0.1")->aclDel("B");
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {7, kNoHashMask, true, kSm, kStartTime});
  EXPECT_FALSE(sm_->rpStaticAcl("B"));
  EXPECT_FALSE(candidate("238.0.0.0/8", "10.0.0.1"));

  rp("10.0.0.1")->aclDel("A");
  EXPECT_FALSE(hasCounter("10.0.0.1", "239.1.0.0/16"));
  EXPECT_FALSE(candidate("239.1.0.0/16", "10.0.0.1"));
  EXPECT_TRUE(candidates().empty());
}

TEST_F(StaticRpAclTest, StaticRpAcl_TwoAclsFirstRemovedFirst_CandidateSurvivesUntilSecond) {
  start();
  permit("A", 10, "239.1.0.0/16");
  permit("B", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  useAcl("10.0.0.1", "B");
  rp("10.0.0.1")->aclDel("A");
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  EXPECT_TRUE(candidate("239.1.0.0/16", "10.0.0.1"));
  rp("10.0.0.1")->aclDel("B");
  EXPECT_FALSE(candidate("239.1.0.0/16", "10.0.0.1"));
}

TEST_F(StaticRpAclTest, StaticRpAcl_PrefixLeavesAclWhileGroupConfigured_CountOneCandidateStays) {
  start();
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  rp("10.0.0.1")->priorityGrpIs(IpGenPrefix("239.1.0.0/16"), 2);
  group("10.0.0.1", "239.1.0.0/16");
  ASSERT_EQ(count("10.0.0.1", "239.1.0.0/16"), 2u);

  removeRule("A", 10);
  EXPECT_TRUE(grpPrefixes("A").empty());
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {2, kNoHashMask, false, kSm, kStartTime});
}

TEST_F(StaticRpAclTest, StaticRpAcl_PrefixLeavesWithUnincrementedCounter_WrapsAndCandidateStays) {
  start();
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  // A counter that was never incremented for this RP and prefix.
  sm_->pfxRefCountIs(IpGenAddr("10.0.0.1"))->counterDel(IpGenPrefix("239.1.0.0/16"));

  removeRule("A", 10);
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 4294967295u);
  expectCandidate("239.1.0.0/16", "10.0.0.1", {kNoPriority, kNoHashMask, false, kSm, kStartTime});
}

TEST_F(StaticRpAclTest, StaticRpAcl_NewPrefixInAclWithoutPriority_Writes256And128OverGroup) {
  start();
  permit("A", 10, "239.1.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityGrpIs(IpGenPrefix("239.2.0.0/16"), 3);
  entry->hashMaskGrpIs(IpGenPrefix("239.2.0.0/16"), 24);
  entry->overrideDynGrpIs(IpGenPrefix("239.2.0.0/16"), true);
  group("10.0.0.1", "239.2.0.0/16");
  useAcl("10.0.0.1", "A");

  expectCandidate("239.2.0.0/16", "10.0.0.1", {3, 24, true, kSm, kStartTime});

  Kel::System::virtualTimeAdvanceTo(1010.0);
  permit("A", 20, "239.2.0.0/16");
  expectCandidate("239.2.0.0/16", "10.0.0.1", {kNoPriority, kNoHashMask, false, kSm, kStartTime});
  EXPECT_EQ(count("10.0.0.1", "239.2.0.0/16"), 2u);
}

TEST_F(StaticRpAclTest, StaticRpAcl_NewPrefixInAclWithValues_WritesTheListValues) {
  start();
  permit("A", 10, "239.1.0.0/16");
  auto entry = rp("10.0.0.1");
  entry->priorityAclIs("A", 11);
  entry->hashMaskAclIs("A", 29);
  entry->overrideDynAclIs("A", true);
  entry->modeIs(Routing::Pim::modePimBidir);
  useAcl("10.0.0.1", "A");
  Kel::System::virtualTimeAdvanceTo(1500.0);
  permit("A", 20, "239.2.0.0/16");
  const auto crp = candidate("239.2.0.0/16", "10.0.0.1");
  ASSERT_TRUE(crp);
  EXPECT_EQ(crp->priority(), 11u);
  EXPECT_EQ(crp->hashMaskLen(), 29u);
  EXPECT_TRUE(crp->override());
  EXPECT_EQ(crp->pimMode(), Routing::Pim::modePimBidir);
  EXPECT_EQ(crp->setupTime(), 1500.0);
}

TEST_F(StaticRpAclTest, StaticRpAcl_LastRpRemovedThenReadded_ObjectDeletedAndRebuilt) {
  start();
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  useAcl("10.0.0.2", "A");
  rp("10.0.0.1")->aclDel("A");
  ASSERT_TRUE(sm_->rpStaticAcl("A"));
  EXPECT_EQ(sm_->rpStaticAcl("A")->rpAddr().size(), 1u);

  rp("10.0.0.2")->aclDel("A");
  EXPECT_FALSE(sm_->rpStaticAcl("A"));
  EXPECT_FALSE(sm_->rpStaticAclSm("A"));
  EXPECT_TRUE(candidates().empty());

  // The list changes while no RP uses it; the rebuilt object reads what it says now.
  permit("A", 20, "239.2.0.0/16");
  Kel::System::virtualTimeAdvanceTo(1010.0);
  rp("10.0.0.2")->hashMaskAclIs("A", 25);
  useAcl("10.0.0.2", "A");
  ASSERT_TRUE(sm_->rpStaticAclSm("A"));
  EXPECT_TRUE(sm_->rpStaticAclSm("A")->initialize());
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.1.0.0/16", "239.2.0.0/16"}));
  EXPECT_EQ(candidates(), (Lines{"239.1.0.0/16 10.0.0.2", "239.2.0.0/16 10.0.0.2"}));
  EXPECT_EQ(count("10.0.0.2", "239.1.0.0/16"), 1u);
  EXPECT_EQ(count("10.0.0.2", "239.2.0.0/16"), 1u);
  expectCandidate("239.1.0.0/16", "10.0.0.2", {kNoPriority, 25, false, kSm, 1010.0});
  expectCandidate("239.2.0.0/16", "10.0.0.2", {kNoPriority, 25, false, kSm, 1010.0});
}

TEST_F(StaticRpAclTest, StaticRpAcl_TwoRpsOnOneAcl_PrefixChangesReachBoth) {
  start();
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  useAcl("10.0.0.2", "A");
  permit("A", 20, "239.2.0.0/16");
  EXPECT_EQ(candidates(), (Lines{"239.1.0.0/16 10.0.0.1", "239.1.0.0/16 10.0.0.2",
                                 "239.2.0.0/16 10.0.0.1", "239.2.0.0/16 10.0.0.2"}));
  removeRule("A", 10);
  EXPECT_EQ(candidates(), (Lines{"239.2.0.0/16 10.0.0.1", "239.2.0.0/16 10.0.0.2"}));
}

TEST_F(StaticRpAclTest, StaticRpAcl_FlagFlippedOnPresentKey_CountsAgainLikeGroup) {
  start();
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  group("10.0.0.1", "238.0.0.0/8");
  ASSERT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  ASSERT_EQ(count("10.0.0.1", "238.0.0.0/8"), 1u);

  // The keys stay present, and presence is what the handlers read: each change adds again.
  rp("10.0.0.1")->aclIs("A", false);
  rp("10.0.0.1")->groupIs(IpGenPrefix("238.0.0.0/8"), false);
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 2u);
  EXPECT_EQ(count("10.0.0.1", "238.0.0.0/8"), 2u);
  ASSERT_TRUE(sm_->rpStaticAcl("A"));
  EXPECT_EQ(sm_->rpStaticAcl("A")->rpAddr().size(), 1u);

  // Removing a key gives back one count, so both candidates stay at count 1; the list object
  // goes with its only RP all the same.
  rp("10.0.0.1")->aclDel("A");
  rp("10.0.0.1")->groupDel(IpGenPrefix("238.0.0.0/8"));
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  EXPECT_EQ(count("10.0.0.1", "238.0.0.0/8"), 1u);
  EXPECT_TRUE(candidate("239.1.0.0/16", "10.0.0.1"));
  EXPECT_TRUE(candidate("238.0.0.0/8", "10.0.0.1"));
  EXPECT_FALSE(sm_->rpStaticAcl("A"));
}

// ---- Access lists to prefixes ------------------------------------------------------------------

TEST_F(StaticRpAclTest, StaticAclToPrefix_AclWithNoRules_YieldsNoPrefixes) {
  aclConfig_->aclIs("A")->currCfgIs();
  useAcl("10.0.0.1", "A");
  start();
  ASSERT_TRUE(sm_->rpStaticAcl("A"));
  EXPECT_TRUE(grpPrefixes("A").empty());
  EXPECT_TRUE(candidates().empty());
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_AclNamedButNotConfigured_PrefixesArriveWithIt) {
  useAcl("10.0.0.1", "A");
  start();
  EXPECT_TRUE(grpPrefixes("A").empty());
  permit("A", 10, "239.1.0.0/16");
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.1.0.0/16"}));
  EXPECT_EQ(candidates(), (Lines{"239.1.0.0/16 10.0.0.1"}));
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_UsedAclDeleted_RemovesPrefixesFromEveryRp) {
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.2.0.0/16");
  useAcl("10.0.0.1", "A");
  useAcl("10.0.0.2", "A");
  group("10.0.0.2", "239.2.0.0/16");
  start();

  aclConfig_->aclDel("A");
  EXPECT_TRUE(grpPrefixes("A").empty());
  // The object stays while RPs list the name; only the explicit binding is left.
  ASSERT_TRUE(sm_->rpStaticAcl("A"));
  EXPECT_EQ(candidates(), (Lines{"239.2.0.0/16 10.0.0.2"}));
  EXPECT_EQ(count("10.0.0.2", "239.2.0.0/16"), 1u);
  expectCandidate("239.2.0.0/16", "10.0.0.2", {kNoPriority, kNoHashMask, false, kSm, kStartTime});
  EXPECT_FALSE(hasCounter("10.0.0.1", "239.1.0.0/16"));
  EXPECT_FALSE(sm_->acl("A"));

  // The list returns and fills the RPs again.
  permit("A", 10, "239.1.0.0/16");
  EXPECT_EQ(candidates(),
            (Lines{"239.1.0.0/16 10.0.0.1", "239.1.0.0/16 10.0.0.2", "239.2.0.0/16 10.0.0.2"}));
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_RulesResequenced_NoChangeOfGrpPrefixOrStatus) {
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.2.0.0/16");
  deny("A", 30, "239.3.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  const Lines before = grpPrefixes("A");
  StaticRpTest::StatusRecorder recorder(status_);

  // Move each rule to a new sequence number, keeping their order.
  auto cfg = aclConfig_->aclMutable("A")->currCfgMutable();
  for (U32 sequence : {10u, 20u, 30u}) {
    const Acl::UniqueId id = cfg->ruleBySequence(sequence);
    cfg->ruleBySequenceIs(sequence + 100, id);
    cfg->ruleBySequenceDel(sequence);
  }
  // Reordering two rules whose ranges do not overlap changes nothing either.
  const Acl::UniqueId second = cfg->ruleBySequence(120);
  cfg->ruleBySequenceIs(105, second);
  cfg->ruleBySequenceDel(120);

  EXPECT_EQ(grpPrefixes("A"), before);
  EXPECT_TRUE(recorder.events.empty());
  EXPECT_EQ(count("10.0.0.1", "239.1.0.0/16"), 1u);
  EXPECT_EQ(count("10.0.0.1", "239.2.0.0/16"), 1u);
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_UnalignedInterval_BecomesExactPrefixes) {
  deny("A", 10, "224.0.3.0/24");
  permit("A", 20, "224.0.0.0/22");
  useAcl("10.0.0.1", "A");
  start();
  EXPECT_EQ(grpPrefixes("A"), (Lines{"224.0.0.0/23", "224.0.2.0/24"}));
  EXPECT_EQ(candidates(), (Lines{"224.0.0.0/23 10.0.0.1", "224.0.2.0/24 10.0.0.1"}));
  EXPECT_EQ(count("10.0.0.1", "224.0.0.0/23"), 1u);
  EXPECT_EQ(count("10.0.0.1", "224.0.2.0/24"), 1u);
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_RuleSplitsPrefix_OnlyChangedPrefixesNotified) {
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.2.0.0/23");
  useAcl("10.0.0.1", "A");
  start();
  StaticRpTest::StatusRecorder recorder(status_);
  // Denying the upper half of the /23 leaves its lower /24; 239.1/16 stays untouched.
  deny("A", 15, "239.2.1.0/24");
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.1.0.0/16", "239.2.0.0/24"}));
  EXPECT_EQ(recorder.events, (Lines{"rp 239.2.0.0/23 10.0.0.1", "crpSet 239.2.0.0/23",
                                    "crpSet 239.2.0.0/24", "rp 239.2.0.0/24 10.0.0.1"}));
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_RuleReplaced_RecomputedWhenSequencePointsAtIt) {
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  auto cfg = aclConfig_->aclMutable("A")->currCfgMutable();
  // The new version of the rule is entered under a fresh identifier: rules by identifier are not
  // watched, so nothing moves yet.
  const Acl::UniqueId fresh(500);
  cfg->ipRuleByIdIs(
      fresh, Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter(IpGenPrefix("239.5.0.0/16"))));
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.1.0.0/16"}));

  // Pointing the sequence number at it is the change.
  cfg->ruleBySequenceIs(10, fresh);
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.5.0.0/16"}));
  EXPECT_EQ(candidates(), (Lines{"239.5.0.0/16 10.0.0.1"}));
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_SequenceEntryWithoutRule_FoldsDefaultDenyAny) {
  permit("A", 20, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  ASSERT_EQ(candidates(), (Lines{"239.1.0.0/16 10.0.0.1"}));
  auto cfg = aclConfig_->aclMutable("A")->currCfgMutable();

  // An identifier with no rule reads as the default rule, which denies every address; ahead of
  // the permit it takes everything away.
  cfg->ruleBySequenceIs(10, Acl::UniqueId(999));
  EXPECT_TRUE(grpPrefixes("A").empty());
  EXPECT_TRUE(candidates().empty());

  cfg->ruleBySequenceDel(10);
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.1.0.0/16"}));
  EXPECT_EQ(candidates(), (Lines{"239.1.0.0/16 10.0.0.1"}));
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_SubConfigReplaced_ReconciledByDifference) {
  permit("A", 10, "239.1.0.0/16");
  permit("A", 20, "239.2.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  StaticRpTest::StatusRecorder recorder(status_);
  Kel::Ptr<Acl::AclSubConfig> next(new Acl::AclSubConfig);
  next->ipRuleByIdIs(
      Acl::UniqueId(500),
      Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter(IpGenPrefix("239.2.0.0/16"))));
  next->ruleBySequenceIs(5, Acl::UniqueId(500));
  aclConfig_->aclMutable("A")->currCfgIs(next);
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.2.0.0/16"}));
  EXPECT_EQ(recorder.events, (Lines{"rp 239.1.0.0/16 10.0.0.1", "crpSet 239.1.0.0/16"}));

  // Rules of the replaced sub-configuration no longer count.
  recorder.events.clear();
  permit("A", 30, "239.7.0.0/16");
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.2.0.0/16", "239.7.0.0/16"}));
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_SubConfigDropped_KeepsPrefixesUntilNextOne) {
  permit("A", 10, "239.1.0.0/16");
  useAcl("10.0.0.1", "A");
  start();
  aclConfig_->aclMutable("A")->currCfgDel();
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.1.0.0/16"}));
  EXPECT_FALSE(sm_->acl("A")->cfg());
  permit("A", 10, "239.2.0.0/16");
  EXPECT_EQ(grpPrefixes("A"), (Lines{"239.2.0.0/16"}));
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_UnusedAcl_ReactorButNoListObject) {
  permit("A", 10, "239.1.0.0/16");
  start();
  EXPECT_TRUE(sm_->acl("A"));
  EXPECT_FALSE(sm_->rpStaticAcl("A"));
  permit("A", 20, "239.2.0.0/16");
  EXPECT_TRUE(candidates().empty());
}

TEST_F(StaticRpAclTest, StaticAclToPrefix_DenyBeforePermitAny_FirstMatchDecides) {
  deny("A", 10, "239.0.0.0/8");
  rule("A", 20, Acl::AclAction::permit, "0.0.0.0/0");
  useAcl("10.0.0.1", "A");
  start();
  EXPECT_EQ(grpPrefixes("A"), (Lines{"224.0.0.0/5", "232.0.0.0/6", "236.0.0.0/7", "238.0.0.0/8"}));
}

}  // namespace
