// EmbeddedRpSm and the status it writes: which known groups use the RP their address names, the
// limit with its waiting groups and overflow count, the group-range filter, turning it on and
// off, and what the status answers about any group.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/Exception.h"
#include "model/Pim/EmbeddedRpConfig.h"
#include "model/Pim/GroupStatus.h"
#include "rp/PimEmbeddedRpSm.h"
#include "rp/PimEmbeddedRpStatus.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/Refusal.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using Lines = std::vector<std::string>;

// The n-th group (1..) whose address names 2001:db8:ffff::1.
IpGenAddr groupOne(int n) { return IpGenAddr("ff75:130:2001:db8:ffff::" + std::to_string(n)); }
const IpGenAddr kRpOne("2001:db8:ffff::1");
const IpGenAddr kRpTwo("2001:db8:ffff::2");
const IpGenAddr kGroupOfRpTwo("ff75:230:2001:db8:ffff::400");

// Records every change of the status, in order: "group +G", "group -G", "rp R=2", "rp R gone",
// "waiting +G", "waiting -G".
struct StatusRecorder : EmbeddedRpStatus::NotifieeConst {
  void onGroup(const IpGenAddr& group) override {
    changes.push_back("group " + sign(notifier()->group().contains(group)) + group.valueToStrep());
  }
  void onRp(const IpGenAddr& rp) override {
    changes.push_back(notifier()->rp().contains(rp)
                          ? "rp " + rp.valueToStrep() + "=" + std::to_string(notifier()->rp(rp))
                          : "rp " + rp.valueToStrep() + " gone");
  }
  void onWaitingGroup(const IpGenAddr& group) override {
    changes.push_back("waiting " + sign(notifier()->waitingGroup().contains(group)) +
                      group.valueToStrep());
  }
  static std::string sign(bool present) { return present ? "+" : "-"; }
  Lines changes;
};

class EmbeddedRpSmTest : public ::testing::Test {
 protected:
  void known(const IpGenAddr& group) { groups_->groupIs(group, true); }
  void forget(const IpGenAddr& group) { groups_->groupDel(group); }
  void knownOnes(int first, int last) {
    for (int n = first; n <= last; ++n) known(groupOne(n));
  }
  // The groups in use, in address order.
  Lines inUse() const {
    Lines lines;
    for (const auto& [group, embedded] : status_->group()) lines.push_back(group.valueToStrep());
    return lines;
  }
  Lines waiting() const {
    Lines lines;
    for (const auto& [group, on] : status_->waitingGroup()) lines.push_back(group.valueToStrep());
    return lines;
  }
  static Lines ones(int first, int last) {
    Lines lines;
    for (int n = first; n <= last; ++n) lines.push_back(groupOne(n).valueToStrep());
    return lines;
  }
  Kel::Ptr<StatusRecorder> record() {
    Kel::Ptr<StatusRecorder> recorder(new StatusRecorder);
    recorder->notifierIs(status_);
    return recorder;
  }

  Kel::Ptr<GroupStatus> groups_{new GroupStatus};
  Kel::Ptr<EmbeddedRpConfig> config_{new EmbeddedRpConfig};
  Kel::Ptr<EmbeddedRpStatus> status_{new EmbeddedRpStatus};
  Kel::Ptr<EmbeddedRpSm> sm_{embeddedRpSmFactory(groups_, config_, status_)};
};

// ---- Off ----------------------------------------------------------------------------------------

TEST_F(EmbeddedRpSmTest, Off_KnownGroupsIgnoredAndNothingWatched) {
  const TestSupport::TraceCapture capture("PimRpCompute");
  known(groupOne(1));
  EXPECT_FALSE(sm_->watchingGroups());
  EXPECT_FALSE(status_->enabled());
  EXPECT_TRUE(status_->group().empty());
  EXPECT_TRUE(status_->rp().empty());
  EXPECT_TRUE(capture.lines().empty());
}

TEST_F(EmbeddedRpSmTest, Construction_NullInput_Refused) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>(
                [&] { embeddedRpSmFactory(groups_, nullptr, status_); }),
            "null _config parameter to mutator for Routing::Pim::EmbeddedRpSm::config not allowed");
}

TEST_F(EmbeddedRpSmTest, Construction_ConfigurationAlreadyOn_PlacesKnownGroupsAtOnce) {
  known(groupOne(1));
  config_->enabledIs(true);
  const Kel::Ptr<EmbeddedRpStatus> status(new EmbeddedRpStatus);
  const auto sm = embeddedRpSmFactory(groups_, config_, status);
  EXPECT_TRUE(status->enabled());
  EXPECT_EQ(status->rp(kRpOne), 1u);
  EXPECT_TRUE(status->group().contains(groupOne(1)));
}

// ---- On -----------------------------------------------------------------------------------------

TEST_F(EmbeddedRpSmTest, Enable_KnownGroupsUseTheirRps_CountedPerRp) {
  knownOnes(1, 2);
  known(kGroupOfRpTwo);
  known(IpGenAddr("ff3e::1"));
  config_->enabledIs(true);
  EXPECT_TRUE(sm_->watchingGroups());
  EXPECT_EQ(inUse(), (Lines{groupOne(1).valueToStrep(), groupOne(2).valueToStrep(),
                            kGroupOfRpTwo.valueToStrep()}));
  EXPECT_EQ(status_->group(groupOne(1)), EmbeddedRp::ofGroup(groupOne(1)));
  EXPECT_EQ(status_->rp(kRpOne), 2u);
  EXPECT_EQ(status_->rp(kRpTwo), 1u);
  EXPECT_EQ(status_->rp().size(), 2u);
}

TEST_F(EmbeddedRpSmTest, GroupsComingAndGoing_CountsFollowOneGroupAtATime) {
  config_->enabledIs(true);
  const auto recorder = record();
  known(groupOne(1));
  known(kGroupOfRpTwo);
  known(groupOne(2));
  forget(groupOne(1));
  forget(kGroupOfRpTwo);
  EXPECT_EQ(recorder->changes,
            (Lines{"group +ff75:130:2001:db8:ffff::1", "rp 2001:db8:ffff::1=1",
                   "group +ff75:230:2001:db8:ffff::400", "rp 2001:db8:ffff::2=1",
                   "group +ff75:130:2001:db8:ffff::2", "rp 2001:db8:ffff::1=2",
                   "group -ff75:130:2001:db8:ffff::1", "rp 2001:db8:ffff::1=1",
                   "group -ff75:230:2001:db8:ffff::400", "rp 2001:db8:ffff::2 gone"}));
}

TEST_F(EmbeddedRpSmTest, InvalidEncodingsAndOtherFlags_NeverUsed) {
  config_->enabledIs(true);
  const TestSupport::TraceCapture capture("PimRpCompute", 8);
  for (const char* group :
       {"ff75:30:2001:db8:ffff::100", "ff75:100:2001:db8:ffff::100", "ff75:141:2001:db8:ffff::100",
        "ff75:1130:2001:db8:ffff::100", "ff35:130:2001:db8:ffff::100", "ff3e::1", "ff15::1"}) {
    known(IpGenAddr(group));
  }
  EXPECT_TRUE(status_->group().empty());
  EXPECT_TRUE(status_->waitingGroup().empty());
  EXPECT_EQ(capture.lines(),
            (Lines{"Group ff75:30:2001:db8:ffff::100 names no embedded RP: RIID is 0",
                   "Group ff75:100:2001:db8:ffff::100 names no embedded RP: plen is 0",
                   "Group ff75:141:2001:db8:ffff::100 names no embedded RP: plen is above 64",
                   "Group ff75:1130:2001:db8:ffff::100 names no embedded RP: reserved bits are "
                   "not 0"}));
}

TEST_F(EmbeddedRpSmTest, Traces_UseWaitReleaseAndPromotion) {
  config_->limitIs(1);
  config_->enabledIs(true);
  const TestSupport::TraceCapture capture("PimRpCompute", 5);
  known(groupOne(1));
  known(groupOne(2));
  forget(groupOne(1));
  EXPECT_EQ(capture.lines(),
            (Lines{"Group ff75:130:2001:db8:ffff::1 uses EmbeddedRp(ff75:130:2001:db8:ffff::1 -> "
                   "2001:db8:ffff::1, riid 1, plen 48, prefix 2001:db8:ffff::/48)",
                   "Group ff75:130:2001:db8:ffff::2 waits for a place: 1 of 1 groups use embedded "
                   "RP",
                   "Group ff75:130:2001:db8:ffff::1 no longer uses embedded RP 2001:db8:ffff::1",
                   "Group ff75:130:2001:db8:ffff::2 takes a free place",
                   "Group ff75:130:2001:db8:ffff::2 uses EmbeddedRp(ff75:130:2001:db8:ffff::2 -> "
                   "2001:db8:ffff::1, riid 1, plen 48, prefix 2001:db8:ffff::/48)"}));
}

// ---- The limit ----------------------------------------------------------------------------------

TEST_F(EmbeddedRpSmTest, Limit_TwentySixthGroupWaits_OverflowCounted) {
  config_->enabledIs(true);
  knownOnes(1, 26);
  EXPECT_EQ(inUse(), ones(1, 25));
  EXPECT_EQ(waiting(), ones(26, 26));
  EXPECT_EQ(status_->rp(kRpOne), 25u);
  EXPECT_EQ(status_->overflowCount(), 1u);
}

TEST_F(EmbeddedRpSmTest, Limit_OneOfTheTwentyFiveLeaves_WaitingGroupTakesItsPlace) {
  config_->enabledIs(true);
  knownOnes(1, 26);
  forget(groupOne(7));
  EXPECT_EQ(status_->group().size(), 25u);
  EXPECT_TRUE(status_->group().contains(groupOne(26)));
  EXPECT_FALSE(status_->group().contains(groupOne(7)));
  EXPECT_TRUE(status_->waitingGroup().empty());
  EXPECT_EQ(status_->rp(kRpOne), 25u);
  EXPECT_EQ(status_->overflowCount(), 1u);
}

TEST_F(EmbeddedRpSmTest, Limit_WaitingGroupsTakeFreePlacesLowestFirst) {
  config_->limitIs(2);
  config_->enabledIs(true);
  known(groupOne(5));
  known(groupOne(4));
  known(groupOne(9));
  known(groupOne(8));
  EXPECT_EQ(waiting(), (Lines{groupOne(8).valueToStrep(), groupOne(9).valueToStrep()}));
  forget(groupOne(4));
  EXPECT_EQ(inUse(), (Lines{groupOne(5).valueToStrep(), groupOne(8).valueToStrep()}));
  EXPECT_EQ(status_->overflowCount(), 2u);
}

TEST_F(EmbeddedRpSmTest, Limit_WaitingGroupLeaves_NoPlaceTaken) {
  config_->limitIs(1);
  config_->enabledIs(true);
  knownOnes(1, 2);
  forget(groupOne(2));
  EXPECT_EQ(inUse(), ones(1, 1));
  EXPECT_TRUE(status_->waitingGroup().empty());
}

TEST_F(EmbeddedRpSmTest, Limit_Lowered_HighestGroupsWaitAndCount) {
  config_->enabledIs(true);
  knownOnes(1, 5);
  config_->limitIs(3);
  EXPECT_EQ(inUse(), ones(1, 3));
  EXPECT_EQ(waiting(), ones(4, 5));
  EXPECT_EQ(status_->rp(kRpOne), 3u);
  EXPECT_EQ(status_->overflowCount(), 2u);
}

TEST_F(EmbeddedRpSmTest, Limit_Raised_WaitingGroupsUseIt) {
  config_->limitIs(2);
  config_->enabledIs(true);
  knownOnes(1, 5);
  config_->limitIs(4);
  EXPECT_EQ(inUse(), ones(1, 4));
  EXPECT_EQ(waiting(), ones(5, 5));
  EXPECT_EQ(status_->overflowCount(), 3u);
}

TEST_F(EmbeddedRpSmTest, Limit_Zero_EveryGroupWaits) {
  config_->limitIs(0);
  config_->enabledIs(true);
  knownOnes(1, 2);
  EXPECT_TRUE(status_->group().empty());
  EXPECT_EQ(waiting(), ones(1, 2));
}

// ---- The group ranges ---------------------------------------------------------------------------

TEST_F(EmbeddedRpSmTest, GroupRange_OnlyGroupsWithinAnyRangeUseIt) {
  const IpGenAddr siteGroup("ff75:130:2001:db8:ffff::100");
  const IpGenAddr globalGroup("ff7e:130:2001:db8:ffff::100");
  const IpGenAddr orgGroup("ff78:130:2001:db8:ffff::100");
  known(siteGroup);
  known(globalGroup);
  known(orgGroup);
  config_->groupRangeIs(IpGenPrefix("ff7e::/16"), true);
  config_->groupRangeIs(IpGenPrefix("ff78:130::/32"), true);
  config_->enabledIs(true);
  EXPECT_EQ(inUse(), (Lines{orgGroup.valueToStrep(), globalGroup.valueToStrep()}));
  EXPECT_EQ(status_->groupRange().size(), 2u);
}

TEST_F(EmbeddedRpSmTest, GroupRange_RemovedOrAdded_GroupsFollow) {
  const IpGenAddr siteGroup("ff75:130:2001:db8:ffff::100");
  const IpGenAddr globalGroup("ff7e:130:2001:db8:ffff::100");
  known(siteGroup);
  known(globalGroup);
  config_->enabledIs(true);
  config_->groupRangeIs(IpGenPrefix("ff7e::/16"), true);
  EXPECT_EQ(inUse(), (Lines{globalGroup.valueToStrep()}));
  config_->groupRangeIs(IpGenPrefix("ff75::/16"), true);
  EXPECT_EQ(inUse(), (Lines{siteGroup.valueToStrep(), globalGroup.valueToStrep()}));
  config_->groupRangeDel(IpGenPrefix("ff7e::/16"));
  EXPECT_EQ(inUse(), (Lines{siteGroup.valueToStrep()}));
  config_->groupRangeDel(IpGenPrefix("ff75::/16"));
  EXPECT_EQ(inUse(), (Lines{siteGroup.valueToStrep(), globalGroup.valueToStrep()}));
}

TEST_F(EmbeddedRpSmTest, GroupRange_NarrowedWhileFull_WaitingGroupOutsideDropped) {
  config_->limitIs(1);
  config_->enabledIs(true);
  known(IpGenAddr("ff75:130:2001:db8:ffff::100"));
  known(IpGenAddr("ff7e:130:2001:db8:ffff::100"));
  config_->groupRangeIs(IpGenPrefix("ff75::/16"), true);
  EXPECT_EQ(inUse(), (Lines{"ff75:130:2001:db8:ffff::100"}));
  EXPECT_TRUE(status_->waitingGroup().empty());
}

// ---- Off again ----------------------------------------------------------------------------------

TEST_F(EmbeddedRpSmTest, Disable_EverythingReleased_GroupsNoLongerWatched) {
  config_->limitIs(1);
  config_->enabledIs(true);
  knownOnes(1, 2);
  known(kGroupOfRpTwo);
  config_->enabledIs(false);
  EXPECT_FALSE(status_->enabled());
  EXPECT_FALSE(sm_->watchingGroups());
  EXPECT_TRUE(status_->group().empty());
  EXPECT_TRUE(status_->rp().empty());
  EXPECT_TRUE(status_->waitingGroup().empty());
  EXPECT_EQ(status_->overflowCount(), 2u);
  known(groupOne(3));
  EXPECT_TRUE(status_->waitingGroup().empty());
}

TEST_F(EmbeddedRpSmTest, WholeGroupCollectionChanged_EveryGroupPlacedAnew) {
  config_->enabledIs(true);
  knownOnes(1, 2);
  groups_->groupNotify();
  EXPECT_EQ(inUse(), ones(1, 2));
  EXPECT_EQ(status_->rp(kRpOne), 2u);
}

// ---- What the status answers --------------------------------------------------------------------

TEST_F(EmbeddedRpSmTest, Admission_EveryUse) {
  EXPECT_EQ(status_->admission(groupOne(1)).use, EmbeddedRpUse::off);
  config_->limitIs(1);
  config_->groupRangeIs(IpGenPrefix("ff75::/16"), true);
  config_->enabledIs(true);
  EXPECT_EQ(status_->admission(groupOne(1)).use, EmbeddedRpUse::available);
  known(groupOne(1));
  known(groupOne(2));
  const EmbeddedRpAdmission inUse = status_->admission(groupOne(1));
  EXPECT_EQ(inUse.use, EmbeddedRpUse::inUse);
  EXPECT_EQ(inUse.embedded, EmbeddedRp::ofGroup(groupOne(1)));
  EXPECT_TRUE(inUse.servesGroup());
  EXPECT_EQ(status_->admission(groupOne(2)).use, EmbeddedRpUse::overLimit);
  EXPECT_EQ(status_->admission(groupOne(3)).use, EmbeddedRpUse::overLimit);
  EXPECT_FALSE(status_->admission(groupOne(3)).servesGroup());
  EXPECT_EQ(status_->admission(IpGenAddr("ff7e:130:2001:db8:ffff::1")).use,
            EmbeddedRpUse::outsideRanges);
  const EmbeddedRpAdmission invalid = status_->admission(IpGenAddr("ff75:30:2001:db8:ffff::1"));
  EXPECT_EQ(invalid.use, EmbeddedRpUse::none);
  EXPECT_EQ(invalid.embedded.validity(), EmbeddedRpValidity::riidZero);
  EXPECT_EQ(status_->admission(IpGenAddr("239.1.1.1")).use, EmbeddedRpUse::none);
}

TEST_F(EmbeddedRpSmTest, Entry_GroupInUse_SparseEntryWithOverride) {
  config_->enabledIs(true);
  known(groupOne(1));
  const IpGenPrefix key = IpGenPrefix::hostPrefix(groupOne(1));
  EXPECT_EQ(status_->entry(key), RpHash(key, kRpOne, 0, 128, true, modePimSm));
  EXPECT_EQ(status_->entry(IpGenPrefix::hostPrefix(groupOne(2))), RpHash());
  EXPECT_EQ(status_->entry(IpGenPrefix("ff75:130:2001:db8:ffff::/96")), RpHash());
  EXPECT_EQ(status_->entry(IpGenPrefix()), RpHash());
  EXPECT_EQ(status_->entry(IpGenPrefix("239.1.1.1/32")), RpHash());
}

}  // namespace
