#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/System.h"
#include "tests/tools/ToolTestSupport.h"
#include "tools/Session.h"

namespace {

using namespace PimrpTool;
using namespace Routing::Pim;
using Ipkit::AddressFamily;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;

// Records the notifications of one static RP entry, in order.
class EntryRecorder : public Static::RpEntry::NotifieeConst {
 public:
  void onGroup(const IpGenPrefix& prefix) override { record("group", prefix); }
  void onAcl(const Kel::String& name) override { events.push_back("acl " + name); }
  void onPriorityGrp(const IpGenPrefix& prefix) override { record("priorityGrp", prefix); }
  void onPriorityAcl(const Kel::String& name) override { events.push_back("priorityAcl " + name); }
  void onHashMaskGrp(const IpGenPrefix& prefix) override { record("hashMaskGrp", prefix); }
  void onHashMaskAcl(const Kel::String& name) override { events.push_back("hashMaskAcl " + name); }
  void onOverrideDynGrp(const IpGenPrefix& prefix) override { record("overrideDynGrp", prefix); }
  void onOverrideDynAcl(const Kel::String& name) override {
    events.push_back("overrideDynAcl " + name);
  }
  void onMode() override { events.push_back("mode"); }

  std::vector<std::string> events;

 private:
  void record(const std::string& attribute, const IpGenPrefix& prefix) {
    events.push_back(attribute + " " + prefix.valueToStrep());
  }
};

class SessionTest : public ::testing::Test {
 protected:
  std::optional<ShowResult> apply(const std::string& line) {
    return session.apply(ToolTest::statementOf(line));
  }
  Kel::PtrConst<Static::RpEntry> entry(const std::string& rp) {
    const IpGenAddr address(rp);
    return session.family(address.af()).staticConfig()->rpTable(address);
  }
  // Watches the entry of `rp`, creating it as a sparse RP.
  Kel::Ptr<EntryRecorder> recordEntry(const std::string& rp) {
    apply("rp-address " + rp + " mode sparse");
    Kel::Ptr<EntryRecorder> recorder(new EntryRecorder);
    recorder->notifierIs(entry(rp));
    return recorder;
  }
  Kel::PtrConst<Acl::AclSubConfig> rules(const std::string& acl) {
    const auto list = session.family(AddressFamily::ipv4).aclConfig()->acl(acl);
    return list ? list->currCfg() : nullptr;
  }

  Session session;
};

TEST_F(SessionTest, Wiring_ThreeComputeStatusesPerFamilyOverItsCandidateStatuses) {
  for (const auto af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
    FamilyWiring& family = session.family(af);
    EXPECT_EQ(family.af(), af);
    EXPECT_EQ(family.bsrStatus()->rpSetType(), rpTypeBsr);
    EXPECT_EQ(family.staticStatus()->rpSetType(), rpTypeStatic);
    EXPECT_EQ(family.staticConfig()->vrfName(), L3::VrfName("default"));
    for (const Mode mode : {modePimNone, modePimSm, modePimBidir}) {
      const auto& compute = family.compute(mode);
      ASSERT_TRUE(compute);
      EXPECT_EQ(compute->pimMode(), mode);
      EXPECT_EQ(compute->staticRpSet(), family.staticStatus());
      EXPECT_EQ(compute->bsrRpSet(), family.bsrStatus());
      EXPECT_EQ(compute->rpConfig(), session.rpConfig());
      EXPECT_EQ(compute->rpHashStatus()->rpHashs(), 0u);
    }
  }
  EXPECT_NE(session.family(AddressFamily::ipv4).compute(modePimNone)->rpHashStatus(),
            session.family(AddressFamily::ipv4).compute(modePimSm)->rpHashStatus());
}

TEST_F(SessionTest, RpAddressGroup_WritesOptionsThenTheBinding) {
  const auto recorder = recordEntry("10.0.0.1");
  apply("rp-address 10.0.0.1 group 239.0.0.0/8 priority 7 hashmask 30 override");
  EXPECT_EQ(recorder->events,
            (std::vector<std::string>{"priorityGrp 239.0.0.0/8", "hashMaskGrp 239.0.0.0/8",
                                      "overrideDynGrp 239.0.0.0/8", "group 239.0.0.0/8"}));
  const IpGenPrefix group("239.0.0.0/8");
  const auto rp = entry("10.0.0.1");
  EXPECT_TRUE(rp->group(group));
  EXPECT_EQ(rp->priorityGrp(group), 7u);
  EXPECT_EQ(rp->hashMaskGrp(group), 30u);
  EXPECT_TRUE(rp->overrideDynGrp(group));
  EXPECT_EQ(rp->mode(), modePimSm);
}

TEST_F(SessionTest, RpAddressGroupAgain_GivesTheOptionsLeftOutTheirDefaults) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8 priority 7 hashmask 31 override");
  const auto recorder = recordEntry("10.0.0.1");
  apply("rp-address 10.0.0.1 group 239.0.0.0/8 hashmask 31");
  EXPECT_EQ(recorder->events,
            (std::vector<std::string>{"priorityGrp 239.0.0.0/8", "overrideDynGrp 239.0.0.0/8"}));
  const auto rp = entry("10.0.0.1");
  EXPECT_EQ(rp->priorityGrp(IpGenPrefix("239.0.0.0/8")), 0u);
  EXPECT_TRUE(rp->overrideDynGrp().empty());
  EXPECT_EQ(rp->hashMaskGrp(IpGenPrefix("239.0.0.0/8")), 31u);
}

TEST_F(SessionTest, RpAddressWithoutOptions_WritesPriorityZeroAndTheFamilysHashMask) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("rp-address 10.0.0.1 acl A");
  apply("rp-address 2001:db8::1 group ff0e::/16");
  const auto v4 = entry("10.0.0.1");
  EXPECT_EQ(v4->priorityGrp(IpGenPrefix("239.0.0.0/8")), 0u);
  EXPECT_EQ(v4->hashMaskGrp(IpGenPrefix("239.0.0.0/8")), 30u);
  EXPECT_EQ(v4->priorityAcl("A"), 0u);
  EXPECT_EQ(v4->hashMaskAcl("A"), 30u);
  const auto v6 = entry("2001:db8::1");
  EXPECT_EQ(v6->priorityGrp(IpGenPrefix("ff0e::/16")), 0u);
  EXPECT_EQ(v6->hashMaskGrp(IpGenPrefix("ff0e::/16")), 126u);
}

TEST_F(SessionTest, RpAddressOptionsNone_LeaveTheValuesUnconfigured) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8 priority 7 hashmask 31");
  apply("rp-address 10.0.0.1 acl A priority 7 hashmask 31");
  apply("rp-address 10.0.0.1 group 239.0.0.0/8 priority none hashmask none");
  apply("rp-address 10.0.0.1 acl A priority none hashmask none");
  const auto rp = entry("10.0.0.1");
  EXPECT_TRUE(rp->priorityGrp().empty());
  EXPECT_TRUE(rp->hashMaskGrp().empty());
  EXPECT_TRUE(rp->priorityAcl().empty());
  EXPECT_TRUE(rp->hashMaskAcl().empty());
  // The library carries its "not set" values into the candidate.
  const auto candidate = session.family(AddressFamily::ipv4)
                             .staticStatus()
                             ->crpSet(IpGenPrefix("239.0.0.0/8"))
                             ->rp(IpGenAddr("10.0.0.1"));
  EXPECT_EQ(candidate->priority(), kRpPriorityNone);
  EXPECT_EQ(candidate->hashMaskLen(), kRpHashMaskLenNone);
}

TEST_F(SessionTest, NoRpAddressGroup_RemovesTheBindingBeforeItsOptions) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8 priority 7 hashmask 30 override");
  apply("rp-address 10.0.0.1 group 238.0.0.0/8");
  const auto recorder = recordEntry("10.0.0.1");
  apply("no rp-address 10.0.0.1 group 239.0.0.0/8");
  EXPECT_EQ(recorder->events,
            (std::vector<std::string>{"group 239.0.0.0/8", "priorityGrp 239.0.0.0/8",
                                      "hashMaskGrp 239.0.0.0/8", "overrideDynGrp 239.0.0.0/8"}));
  EXPECT_EQ(entry("10.0.0.1")->group().size(), 1u);
}

TEST_F(SessionTest, RpAddressAcl_WritesOptionsThenTheBindingAndNoRemovesItFirst) {
  const auto recorder = recordEntry("10.0.0.1");
  apply("rp-address 10.0.0.1 acl A priority 1");
  apply("no rp-address 10.0.0.1 acl A");
  EXPECT_EQ(recorder->events,
            (std::vector<std::string>{"priorityAcl A", "hashMaskAcl A", "acl A", "acl A",
                                      "priorityAcl A", "hashMaskAcl A"}));
}

TEST_F(SessionTest, RpAddressMode_SetsTheModeOfTheEntry) {
  apply("rp-address 10.0.0.1 mode bidir");
  EXPECT_EQ(entry("10.0.0.1")->mode(), modePimBidir);
}

TEST_F(SessionTest, RpAddresses_GoToTheFamilyOfTheirAddress) {
  apply("rp-address 2001:db8::1 group ff0e::/16");
  EXPECT_TRUE(
      session.family(AddressFamily::ipv6).staticConfig()->rpTable(IpGenAddr("2001:db8::1")));
  EXPECT_TRUE(session.family(AddressFamily::ipv4).staticConfig()->rpTable().empty());
  EXPECT_TRUE(session.family(AddressFamily::ipv6).staticStatus()->crpSet(IpGenPrefix("ff0e::/16")));
}

TEST_F(SessionTest, NoRpAddress_RemovesTheEntryAndAbsentOnesChangeNothing) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("no rp-address 10.0.0.2");
  apply("no rp-address 10.0.0.2 group 239.0.0.0/8");
  apply("no rp-address 10.0.0.2 acl A");
  EXPECT_TRUE(entry("10.0.0.1"));
  EXPECT_FALSE(entry("10.0.0.2"));
  apply("no rp-address 10.0.0.1");
  EXPECT_FALSE(entry("10.0.0.1"));
  EXPECT_TRUE(session.family(AddressFamily::ipv4).staticStatus()->crpSet().empty());
}

TEST_F(SessionTest, AclRule_CreatesTheIpv4ListWithTheRule) {
  apply("acl A seq 10 permit 224.0.0.0/23");
  apply("acl A seq 20 deny any");
  const auto sub = rules("A");
  ASSERT_TRUE(sub);
  ASSERT_EQ(sub->ruleBySequence().size(), 2u);
  EXPECT_EQ(sub->ipRuleById(sub->ruleBySequence(10)),
            Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter(IpGenPrefix("224.0.0.0/23"))));
  EXPECT_EQ(sub->ipRuleById(sub->ruleBySequence(20)),
            Acl::IpRuleConfig(Acl::AclAction::deny, Acl::IpFilter::anyAddress()));
  EXPECT_TRUE(session.family(AddressFamily::ipv6).aclConfig()->acl().empty());
}

TEST_F(SessionTest, AclRuleReplaced_TakesAFreshIdentifierAndDropsTheOldBody) {
  apply("acl A seq 10 permit 224.0.0.0/23");
  const Acl::UniqueId first = rules("A")->ruleBySequence(10);
  apply("acl A seq 10 deny 224.0.0.0/23");
  const auto sub = rules("A");
  EXPECT_NE(sub->ruleBySequence(10), first);
  EXPECT_EQ(sub->ipRuleById().size(), 1u);
  EXPECT_FALSE(sub->ipRuleById().contains(first));
}

TEST_F(SessionTest, AclRuleAgain_ChangesNothing) {
  apply("acl A seq 10 permit 224.0.0.0/23");
  const Acl::UniqueId first = rules("A")->ruleBySequence(10);
  apply("acl A seq 10 permit 224.0.0.0/23");
  EXPECT_EQ(rules("A")->ruleBySequence(10), first);
}

TEST_F(SessionTest, NoAcl_RemovesOneRuleOrTheList) {
  apply("acl A seq 10 permit 224.0.0.0/23");
  apply("acl A seq 20 permit 239.0.0.0/8");
  apply("no acl A seq 10");
  apply("no acl A seq 30");
  apply("no acl B seq 10");
  EXPECT_EQ(rules("A")->ruleBySequence().size(), 1u);
  EXPECT_EQ(rules("A")->ipRuleById().size(), 1u);
  apply("no acl A");
  apply("no acl B");
  EXPECT_TRUE(session.family(AddressFamily::ipv4).aclConfig()->acl().empty());
}

// Counts the replacements of a list's current rules and the changes of the rules themselves.
class ListRecorder : public Acl::AclConfig::NotifieeConst {
 public:
  void onCurrCfg() override { ++currCfgChanges; }
  int currCfgChanges = 0;
};

TEST_F(SessionTest, RulesInRuns_OneNewRuleVersionPerRunOfOneList) {
  apply("acl A seq 10 permit 224.0.0.0/23");
  const auto before = rules("A");
  const auto list = session.family(AddressFamily::ipv4).aclConfig()->acl("A");
  Kel::Ptr<ListRecorder> recorder(new ListRecorder);
  recorder->notifierIs(list);
  for (const char* line :
       {"acl A seq 20 permit 239.0.0.0/8", "acl A seq 30 deny any", "no acl A seq 10"}) {
    session.apply(ToolTest::statementOf(line), Commit::inRuns);
  }
  // Nothing reached the list yet: the run is still open.
  EXPECT_EQ(recorder->currCfgChanges, 0);
  EXPECT_EQ(rules("A"), before);
  EXPECT_EQ(before->ruleBySequence().size(), 1u);
  session.commit();
  EXPECT_EQ(recorder->currCfgChanges, 1);
  const auto after = rules("A");
  ASSERT_NE(after, before);
  EXPECT_EQ(after->ruleBySequence().size(), 2u);
  EXPECT_EQ(after->ipRuleById().size(), 2u);
  EXPECT_EQ(after->ipRuleById(after->ruleBySequence(20)),
            Acl::IpRuleConfig(Acl::AclAction::permit, Acl::IpFilter(IpGenPrefix("239.0.0.0/8"))));
  session.commit();
  EXPECT_EQ(recorder->currCfgChanges, 1);
}

TEST_F(SessionTest, RulesInRuns_KeepTheIdentifiersOfUnchangedRules) {
  apply("acl A seq 10 permit 224.0.0.0/23");
  const Acl::UniqueId first = rules("A")->ruleBySequence(10);
  session.apply(ToolTest::statementOf("acl A seq 20 permit 239.0.0.0/8"), Commit::inRuns);
  session.commit();
  EXPECT_EQ(rules("A")->ruleBySequence(10), first);
}

TEST_F(SessionTest, RulesInRuns_AnotherStatementOrListEndsTheRun) {
  session.apply(ToolTest::statementOf("acl A seq 10 permit 239.0.0.0/8"), Commit::inRuns);
  session.apply(ToolTest::statementOf("acl B seq 10 permit 238.0.0.0/8"), Commit::inRuns);
  ASSERT_TRUE(rules("A"));
  EXPECT_FALSE(rules("B"));
  const auto listing =
      std::get<AclListing>(*session.apply(ToolTest::statementOf("show acl B"), Commit::inRuns));
  EXPECT_EQ(listing.prefixes, (std::vector<IpGenPrefix>{IpGenPrefix("238.0.0.0/8")}));
}

TEST_F(SessionTest, RulesInRuns_RemovingFromAnAbsentListStartsNoRunAndCreatesNoList) {
  session.apply(ToolTest::statementOf("no acl A seq 10"), Commit::inRuns);
  session.commit();
  EXPECT_TRUE(session.family(AddressFamily::ipv4).aclConfig()->acl().empty());
}

TEST_F(SessionTest, RulesOfABoundList_ReachTheStaticCandidatesWhenTheRunEnds) {
  apply("rp-address 10.0.0.1 acl A");
  for (int third = 0; third < 3; ++third) {
    session.apply(ToolTest::statementOf("acl A seq " + std::to_string(10 + third) + " permit 239." +
                                        std::to_string(third) + ".0.0/16"),
                  Commit::inRuns);
  }
  const auto& status = session.family(AddressFamily::ipv4).staticStatus();
  EXPECT_TRUE(status->crpSet().empty());
  session.commit();
  // 239.0/16 and 239.1/16 fold into one range.
  EXPECT_EQ(status->crpSet().size(), 2u);
  EXPECT_TRUE(status->crpSet(IpGenPrefix("239.0.0.0/15")));
  EXPECT_TRUE(status->crpSet(IpGenPrefix("239.2.0.0/16")));
}

TEST_F(SessionTest, BsrRp_WritesTheCandidateWithItsSetupTimeOnCreation) {
  Kel::System::virtualTimeIs(42.0);
  apply("bsr-rp 239.0.0.0/8 10.1.0.1 priority 10 hashmask 30 mode bidir");
  Kel::System::virtualTimeAdvanceTo(50.0);
  apply("bsr-rp 239.0.0.0/8 10.1.0.1 priority 20 hashmask 31 mode sparse");
  Kel::System::realTimeIs();
  const auto set =
      session.family(AddressFamily::ipv4).bsrStatus()->crpSet(IpGenPrefix("239.0.0.0/8"));
  ASSERT_TRUE(set);
  const auto candidate = set->rp(IpGenAddr("10.1.0.1"));
  ASSERT_TRUE(candidate);
  EXPECT_EQ(candidate->setupTime(), 42.0);
  EXPECT_EQ(candidate->priority(), 20u);
  EXPECT_EQ(candidate->hashMaskLen(), 31u);
  EXPECT_FALSE(candidate->override());
  EXPECT_EQ(candidate->pimMode(), modePimSm);
}

TEST_F(SessionTest, NoBsrRp_RemovesTheCandidateAndAnEmptiedSet) {
  apply("bsr-rp 239.0.0.0/8 10.1.0.1 priority 10 hashmask 30 mode sparse");
  apply("bsr-rp 239.0.0.0/8 10.1.0.2 priority 10 hashmask 30 mode sparse");
  const auto& status = session.family(AddressFamily::ipv4).bsrStatus();
  apply("no bsr-rp 239.0.0.0/8 10.1.0.1");
  apply("no bsr-rp 238.0.0.0/8 10.1.0.2");
  ASSERT_TRUE(status->crpSet(IpGenPrefix("239.0.0.0/8")));
  EXPECT_EQ(status->crpSet(IpGenPrefix("239.0.0.0/8"))->rp().size(), 1u);
  apply("no bsr-rp 239.0.0.0/8 10.1.0.2");
  EXPECT_TRUE(status->crpSet().empty());
}

TEST_F(SessionTest, Vrf_OpensASectionWhoseStaticConfigurationIsNamedAfterIt) {
  apply("vrf red");
  EXPECT_EQ(session.vrf(), L3::VrfName("red"));
  for (const auto af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
    EXPECT_EQ(session.family(af).staticConfig()->vrfName(), L3::VrfName("red"));
  }
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  EXPECT_TRUE(
      session.family(AddressFamily::ipv4).staticStatus()->crpSet(IpGenPrefix("239.0.0.0/8")));
}

TEST_F(SessionTest, VrfSections_EachVrfItsOwnInputsAndTables) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("group 239.1.1.1");
  VrfPipeline& original = session.pipeline();
  apply("vrf red");
  EXPECT_NE(&session.pipeline(), &original);
  EXPECT_TRUE(session.family(AddressFamily::ipv4).staticStatus()->crpSet().empty());
  EXPECT_TRUE(session.family(AddressFamily::ipv4).groups()->group().empty());
  apply("rp-hash-algorithm modulo");
  EXPECT_EQ(original.rpConfig()->rpHashAlgorithm(), rpHashAlgorithmRfc7761);
  apply("vrf default");
  EXPECT_EQ(&session.pipeline(), &original);
  EXPECT_EQ(session.rpConfig()->rpHashAlgorithm(), rpHashAlgorithmRfc7761);
  const auto rp = std::get<RpAnswer>(*apply("show rp 239.1.1.1 vrf red"));
  EXPECT_EQ(rp.rp, IpGenAddr());
  EXPECT_EQ(std::get<RpAnswer>(*apply("show rp 239.1.1.1")).rp, IpGenAddr("10.0.0.1"));
}

TEST_F(SessionTest, VrfsInUse_DefaultFirstThenByName) {
  apply("vrf red");
  apply("vrf blue");
  std::vector<std::string> names;
  for (const VrfPipeline* vrf : session.vrfsInUse()) names.push_back(vrf->vrf().string());
  EXPECT_EQ(names, (std::vector<std::string>{"blue", "red"}));
  apply("show candidates static vrf default");
  names.clear();
  for (const VrfPipeline* vrf : session.vrfsInUse()) names.push_back(vrf->vrf().string());
  EXPECT_EQ(names, (std::vector<std::string>{"default", "blue", "red"}));
  const auto mapping = std::get<RpMapping>(*apply("show rp mapping"));
  ASSERT_EQ(mapping.vrfs.size(), 3u);
  EXPECT_EQ(mapping.vrfs[0].vrf, "default");
  EXPECT_EQ(mapping.vrfs[2].vrf, "red");
}

TEST_F(SessionTest, FirstStatementInTheDefaultVrf_KeepsItInUse) {
  apply("group 239.1.1.1");
  apply("vrf red");
  ASSERT_EQ(session.vrfsInUse().size(), 2u);
  EXPECT_EQ(session.vrfsInUse()[0]->vrf(), L3::VrfName());
}

TEST_F(SessionTest, RuleRun_EndsAtTheVrfStatement) {
  session.apply(ToolTest::statementOf("acl A seq 10 permit 239.0.0.0/8"), Commit::inRuns);
  EXPECT_TRUE(session.endsRun(ToolTest::statementOf("vrf red")));
  session.apply(ToolTest::statementOf("vrf red"), Commit::inRuns);
  session.apply(ToolTest::statementOf("acl A seq 20 permit 238.0.0.0/8"), Commit::inRuns);
  session.commit();
  ASSERT_TRUE(rules("A"));
  EXPECT_EQ(rules("A")->ruleBySequence().size(), 1u);
  EXPECT_TRUE(rules("A")->ruleBySequence().contains(20));
  session.apply(ToolTest::statementOf("vrf default"), Commit::inRuns);
  ASSERT_TRUE(rules("A"));
  EXPECT_EQ(rules("A")->ruleBySequence().size(), 1u);
  EXPECT_TRUE(rules("A")->ruleBySequence().contains(10));
}

TEST_F(SessionTest, RpHashAlgorithm_SetsTheSharedConfiguration) {
  apply("rp-hash-algorithm modulo");
  EXPECT_EQ(session.rpConfig()->rpHashAlgorithm(), rpHashAlgorithmModulo);
  apply("rp-hash-algorithm rfc7761");
  EXPECT_EQ(session.rpConfig()->rpHashAlgorithm(), rpHashAlgorithmRfc7761);
}

TEST_F(SessionTest, ShowRp_AnswersWithEachSourcesSelection) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8 priority 1");
  apply("bsr-rp 239.0.0.0/8 10.1.0.1 priority 10 hashmask 30 mode bidir");
  const auto any = std::get<RpAnswer>(*apply("show rp 239.1.1.1"));
  EXPECT_EQ(any.rp, IpGenAddr("10.1.0.1"));
  EXPECT_EQ(any.staticSelection.address(), IpGenAddr("10.0.0.1"));
  EXPECT_EQ(any.bsrSelection.address(), IpGenAddr("10.1.0.1"));
  const auto sparse = std::get<RpAnswer>(*apply("show rp 239.1.1.1 mode sparse join 10.9.9.9"));
  EXPECT_EQ(sparse.queryMode, modePimSm);
  EXPECT_EQ(sparse.rp, IpGenAddr("10.9.9.9"));
  ASSERT_TRUE(sparse.join);
}

TEST_F(SessionTest, ShowCandidates_ListsBothFamiliesByPrefix) {
  apply("rp-address 2001:db8::1 group ff0e::/16");
  apply("rp-address 10.0.0.2 group 239.0.0.0/8");
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("rp-address 10.0.0.1 group 224.0.0.0/4");
  const auto listing = std::get<CandidateListing>(*apply("show candidates static"));
  ASSERT_EQ(listing.sets.size(), 3u);
  EXPECT_EQ(listing.sets[0].prefix, IpGenPrefix("224.0.0.0/4"));
  EXPECT_EQ(listing.sets[1].prefix, IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(listing.sets[2].prefix, IpGenPrefix("ff0e::/16"));
  ASSERT_EQ(listing.sets[1].rps.size(), 2u);
  EXPECT_EQ(listing.sets[1].rps[0].address(), IpGenAddr("10.0.0.1"));
  EXPECT_TRUE(std::get<CandidateListing>(*apply("show candidates bsr")).sets.empty());
}

TEST_F(SessionTest, ShowAcl_FoldsTheRulesInSequenceOrder) {
  apply("acl A seq 20 permit 224.0.0.0/22");
  apply("acl A seq 10 deny 224.0.3.0/24");
  const auto listing = std::get<AclListing>(*apply("show acl A"));
  EXPECT_TRUE(listing.configured);
  EXPECT_EQ(listing.prefixes,
            (std::vector<IpGenPrefix>{IpGenPrefix("224.0.0.0/23"), IpGenPrefix("224.0.2.0/24")}));
  EXPECT_FALSE(std::get<AclListing>(*apply("show acl B")).configured);
}

TEST_F(SessionTest, ShowAcl_NamesTheRulesOutsideTheGroupSpace) {
  apply("acl A seq 30 permit 10.0.0.0/8");
  apply("acl A seq 10 deny 192.168.0.0/16");
  apply("acl A seq 20 permit 128.0.0.0/1");  // covers the group space: not ignored
  apply("acl A seq 25 permit 224.0.0.0/3");  // holds it too
  apply("acl A seq 40 deny any");
  apply("acl A seq 50 permit 239.1.0.0/16");
  const auto listing = std::get<AclListing>(*apply("show acl A"));
  ASSERT_EQ(listing.ignored.size(), 2u);
  EXPECT_EQ(listing.ignored[0].sequence, 10u);
  EXPECT_EQ(listing.ignored[0].action, Acl::AclAction::deny);
  EXPECT_EQ(listing.ignored[0].prefix, IpGenPrefix("192.168.0.0/16"));
  EXPECT_EQ(listing.ignored[1].sequence, 30u);
  EXPECT_EQ(listing.ignored[1].action, Acl::AclAction::permit);
  EXPECT_EQ(listing.prefixes, (std::vector<IpGenPrefix>{IpGenPrefix("224.0.0.0/4")}));
}

TEST_F(SessionTest, ConfigurationStatements_AnswerNothing) {
  EXPECT_FALSE(apply("rp-address 10.0.0.1 group 239.0.0.0/8"));
  EXPECT_FALSE(apply("rp-hash-algorithm modulo"));
}

}  // namespace

namespace {

TEST_F(SessionTest, Wiring_ComputeOfAModeReadsTheFinalPerGroupTableOfThatMode) {
  for (const auto af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
    FamilyWiring& family = session.family(af);
    for (const Mode mode : {modePimSm, modePimBidir}) {
      EXPECT_EQ(family.compute(mode)->rpHashStatus(),
                family.table(HashSource::final, HashKind::groups, mode));
      for (const HashSource source : {HashSource::staticRp, HashSource::bsr}) {
        EXPECT_EQ(family.review(source, mode)->rpHashStatus(),
                  family.table(source, HashKind::groups, mode));
        EXPECT_EQ(family.review(source, mode)->rpPrefixHashStatus(),
                  family.table(source, HashKind::prefixes, mode));
        EXPECT_EQ(family.review(source, mode)->groupMrt(), family.groups());
      }
    }
  }
}

TEST_F(SessionTest, GroupRange_KnowsEveryAddressAndNoGroupForgetsThem) {
  apply("group 239.1.1.0/30");
  apply("group ff05::1:0/127");
  const auto& groups4 = session.family(AddressFamily::ipv4).groups()->group();
  EXPECT_EQ(groups4.size(), 4u);
  EXPECT_NE(groups4.findStored(IpGenAddr("239.1.1.3")), nullptr);
  EXPECT_NE(
      session.family(AddressFamily::ipv6).groups()->group().findStored(IpGenAddr("ff05::1:1")),
      nullptr);
  apply("no group 239.1.1.2/31");
  EXPECT_EQ(groups4.size(), 2u);
  EXPECT_EQ(groups4.findStored(IpGenAddr("239.1.1.3")), nullptr);
}

TEST_F(SessionTest, ClockManual_ShowsSeeUnreviewedGroupsUntilRun) {
  apply("clock manual");
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("group 239.1.1.1");
  const auto& table =
      session.family(AddressFamily::ipv4).table(HashSource::final, HashKind::groups, modePimSm);
  apply("show review");
  EXPECT_EQ(table->rpHashs(), 0u);
  apply("run");
  EXPECT_EQ(table->rpHashs(), 1u);
  EXPECT_EQ(table->rpHash(IpGenPrefix("239.1.1.1/32")).address(), IpGenAddr("10.0.0.1"));
}

TEST_F(SessionTest, RouteLocal_MakesTheRpLocalAndNoRouteTakesItAway) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("route 10.0.0.1/32 local Ethernet1");
  const auto& local = session.family(AddressFamily::ipv4).localRpStatus()->localRpSet();
  ASSERT_NE(local.findStored(IpGenAddr("10.0.0.1")), nullptr);
  EXPECT_EQ((*local.findStored(IpGenAddr("10.0.0.1")))->intfId(), Ipkit::IntfId("Ethernet1"));
  apply("no route 10.0.0.1/32");
  EXPECT_EQ(local.findStored(IpGenAddr("10.0.0.1")), nullptr);
}

// A session over shared tables of its own.
class SharedSessionTest : public ::testing::Test {
 protected:
  const ToolTest::SharedTablesGuard tables_;
  const std::string name_ = tables_.name();
};

TEST_F(SharedSessionTest, ScriptWriter_ReviewsStartAfterLeadingGroups_MergesAtFirstShow) {
  Session session(TableHome{TableHome::Kind::sharedWriter, name_});
  session.apply(ToolTest::statementOf("group 239.1.1.1"), Commit::inRuns);
  EXPECT_FALSE(session.family(AddressFamily::ipv4).reviewsStarted());
  EXPECT_FALSE(session.family(AddressFamily::ipv6).reviewsStarted());
  session.apply(ToolTest::statementOf("rp-address 10.0.0.1 group 239.0.0.0/8"), Commit::inRuns);
  EXPECT_TRUE(session.family(AddressFamily::ipv4).reviewsStarted());
  EXPECT_TRUE(session.family(AddressFamily::ipv6).reviewsStarted());
  EXPECT_FALSE(session.family(AddressFamily::ipv4).reactorsStarted());
  EXPECT_FALSE(session.family(AddressFamily::ipv6).reactorsStarted());
  session.apply(ToolTest::statementOf("show rp-hash final groups mode sparse"), Commit::inRuns);
  EXPECT_TRUE(session.family(AddressFamily::ipv4).reactorsStarted());
  EXPECT_TRUE(session.family(AddressFamily::ipv6).reactorsStarted());
  const auto& table =
      session.family(AddressFamily::ipv4).table(HashSource::final, HashKind::groups, modePimSm);
  EXPECT_TRUE(table->rpHash().shared());
  EXPECT_EQ(table->rpHash().sharedName(), name_ + ".ipv4.sparse.final.groups");
}

TEST_F(SharedSessionTest, TypedWriter_FirstChangeStartsReviewsAndMergesTogether) {
  Session session(TableHome{TableHome::Kind::sharedWriter, name_});
  session.apply(ToolTest::statementOf("group 239.1.1.1"));
  EXPECT_FALSE(session.family(AddressFamily::ipv4).reviewsStarted());
  EXPECT_FALSE(session.family(AddressFamily::ipv4).reactorsStarted());
  session.apply(ToolTest::statementOf("rp-address 10.0.0.1 group 239.0.0.0/8"));
  EXPECT_TRUE(session.family(AddressFamily::ipv4).reviewsStarted());
  EXPECT_TRUE(session.family(AddressFamily::ipv4).reactorsStarted());
  EXPECT_TRUE(session.family(AddressFamily::ipv6).reactorsStarted());
  const auto& table =
      session.family(AddressFamily::ipv4).table(HashSource::final, HashKind::groups, modePimSm);
  EXPECT_EQ(table->rpHash(IpGenPrefix("239.1.1.1/32")).address(), IpGenAddr("10.0.0.1"));
}

TEST_F(SharedSessionTest, ScriptWriter_EachVrfsReviewsStartAfterItsLeadingGroups) {
  Session session(TableHome{TableHome::Kind::sharedWriter, name_});
  session.apply(ToolTest::statementOf("vrf red"), Commit::inRuns);
  VrfPipeline& red = session.pipeline();
  session.apply(ToolTest::statementOf("group 239.1.1.1"), Commit::inRuns);
  EXPECT_FALSE(red.reviewsStarted());
  session.apply(ToolTest::statementOf("rp-address 10.0.0.1 group 239.0.0.0/8"), Commit::inRuns);
  EXPECT_TRUE(red.reviewsStarted());
  session.apply(ToolTest::statementOf("vrf blue"), Commit::inRuns);
  VrfPipeline& blue = session.pipeline();
  session.apply(ToolTest::statementOf("group 239.1.1.1"), Commit::inRuns);
  EXPECT_FALSE(blue.reviewsStarted());
  EXPECT_FALSE(red.started());
  session.apply(ToolTest::statementOf("show rp-hash final groups mode sparse"), Commit::inRuns);
  EXPECT_TRUE(red.started());
  EXPECT_TRUE(blue.started());
  EXPECT_EQ(red.family(AddressFamily::ipv4)
                .table(HashSource::final, HashKind::groups, modePimSm)
                ->rpHash()
                .sharedName(),
            name_ + ".vrf.red.ipv4.sparse.final.groups");
  // The default VRF was never in use: its tables are there, and nothing started on them.
  ASSERT_EQ(session.vrfsInUse().size(), 2u);
  session.finish();
  EXPECT_EQ(session.vrfsInUse().size(), 2u);
}

TEST_F(SharedSessionTest, Writer_FinishStartsAndSettles) {
  Session session(TableHome{TableHome::Kind::sharedWriter, name_});
  session.apply(ToolTest::statementOf("group 239.1.1.1"));
  session.finish();
  EXPECT_TRUE(session.family(AddressFamily::ipv4).reactorsStarted());
  // The review ran: the group has its (placeholder) entry in the static per-group table.
  const auto& table =
      session.family(AddressFamily::ipv4).table(HashSource::staticRp, HashKind::groups, modePimSm);
  EXPECT_EQ(table->rpHashs(), 1u);
}

TEST_F(SharedSessionTest, Reader_NeverStartsReactors) {
  { Session writer(TableHome{TableHome::Kind::sharedWriter, name_}); }
  Session session(TableHome{TableHome::Kind::sharedReader, name_});
  session.apply(ToolTest::statementOf("show rp-hash final groups mode sparse"));
  session.finish();
  EXPECT_FALSE(session.family(AddressFamily::ipv4).reactorsStarted());
  EXPECT_EQ(session.family(AddressFamily::ipv4)
                .table(HashSource::final, HashKind::groups, modePimSm)
                ->rpHash()
                .mode(),
            Mirra::AttachMode::reader);
}

TEST(Session, ProcessTables_ReactorsFromConstruction) {
  Session session;
  EXPECT_TRUE(session.family(AddressFamily::ipv4).reactorsStarted());
  EXPECT_FALSE(session.family(AddressFamily::ipv4)
                   .table(HashSource::final, HashKind::groups, modePimSm)
                   ->rpHash()
                   .shared());
}

}  // namespace
