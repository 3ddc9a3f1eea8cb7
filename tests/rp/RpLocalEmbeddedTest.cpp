// RpLocalSm with an embedded-RP status: an RP that a group uses as its embedded RP is a candidate
// while the status names it, local through its host route, forgotten when no group derives it
// any more, and kept while a candidate set still names it.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Ipkit/IntfId.h"
#include "framework/Routing/Shadow/ShadowStatus.h"
#include "model/Pim/EmbeddedRpConfig.h"
#include "model/Pim/GroupStatus.h"
#include "model/Pim/RpCandidateStatus.h"
#include "model/Pim/RpLocalStatus.h"
#include "rp/PimEmbeddedRpSm.h"
#include "rp/PimRpLocalSm.h"
#include "tests/rp/RpTestSupport.h"
#include "tests/support/TraceCapture.h"

namespace {

using Ipkit::IntfId;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using namespace Routing::Pim;
using Lines = std::vector<std::string>;

const IpGenAddr kGroup("ff75:130:2001:db8:ffff::100");
const IpGenAddr kOtherGroup("ff7e:130:2001:db8:ffff::200");
const IpGenAddr kRp("2001:db8:ffff::1");

class RpLocalEmbeddedTest : public ::testing::Test {
 protected:
  RpLocalEmbeddedTest() {
    sm_->urib6ShadowIs(shadow_);
    sm_->embeddedRpStatusIs(embedded_);
    config_->enabledIs(true);
  }

  void hostRouteIs(const IpGenAddr& addr, const char* intf) {
    shadow_->routeIs(IpGenPrefix::hostPrefix(addr), 1,
                     {Routing::ShadowFib::ViaEntry{IpGenAddr("2001:db8:ffff::fe"), IntfId(intf)}});
  }
  // The local RP table as "address=interface".
  Lines table() const {
    Lines rows;
    for (const auto& [addr, info] : local_->localRpSet()) {
      rows.push_back(addr.valueToStrep() + "=" + info->intfId().name());
    }
    return rows;
  }

  Kel::Ptr<RpCandidateStatus> static_{new RpCandidateStatus};
  Kel::Ptr<RpCandidateStatus> bsr_{new RpCandidateStatus};
  Kel::Ptr<RpLocalStatus> local_{new RpLocalStatus};
  Kel::Ptr<Routing6::Shadow::Status> shadow_{new Routing6::Shadow::Status("urib6Trie")};
  Kel::Ptr<GroupStatus> groups_{new GroupStatus};
  Kel::Ptr<EmbeddedRpConfig> config_{new EmbeddedRpConfig};
  Kel::Ptr<EmbeddedRpStatus> embedded_{new EmbeddedRpStatus};
  Kel::Ptr<EmbeddedRpSm> embeddedSm_{embeddedRpSmFactory(groups_, config_, embedded_)};
  Kel::Ptr<RpLocalSm> sm_{rpLocalSmFactory(static_, bsr_, local_)};
};

TEST_F(RpLocalEmbeddedTest, DerivedRpWithHostRoute_LocalOnItsInterface) {
  hostRouteIs(kRp, "Loopback1");
  const TestSupport::TraceCapture capture("PimRpCompute", 5);
  groups_->groupIs(kGroup, true);
  EXPECT_EQ(table(), (Lines{"2001:db8:ffff::1=Loopback1"}));
  EXPECT_TRUE(capture.wrote(
      "Added RP 2001:db8:ffff::1 into local RP information table associated with interface "
      "Loopback1"));
}

TEST_F(RpLocalEmbeddedTest, NoGroupDerivesItAnyMore_Forgotten) {
  hostRouteIs(kRp, "Loopback1");
  groups_->groupIs(kGroup, true);
  groups_->groupIs(kOtherGroup, true);
  groups_->groupDel(kGroup);
  EXPECT_EQ(table(), (Lines{"2001:db8:ffff::1=Loopback1"}));
  const TestSupport::TraceCapture capture("PimRpCompute", 5);
  groups_->groupDel(kOtherGroup);
  EXPECT_TRUE(table().empty());
  EXPECT_EQ(capture.lines(),
            (Lines{"Group ff7e:130:2001:db8:ffff::200 no longer uses embedded RP "
                   "2001:db8:ffff::1",
                   "Deleted RP 2001:db8:ffff::1 from local RP information table"}));
}

TEST_F(RpLocalEmbeddedTest, DisabledEmbeddedRp_DerivedRpForgotten) {
  hostRouteIs(kRp, "Loopback1");
  groups_->groupIs(kGroup, true);
  config_->enabledIs(false);
  EXPECT_TRUE(table().empty());
}

TEST_F(RpLocalEmbeddedTest, HostRouteArrivesLater_AddedThenWithdrawn) {
  groups_->groupIs(kGroup, true);
  EXPECT_TRUE(table().empty());
  hostRouteIs(kRp, "Loopback1");
  EXPECT_EQ(table(), (Lines{"2001:db8:ffff::1=Loopback1"}));
  shadow_->routeDel(IpGenPrefix::hostPrefix(kRp));
  EXPECT_TRUE(table().empty());
}

TEST_F(RpLocalEmbeddedTest, AlsoAStaticCandidate_KeptUntilNeitherNamesIt) {
  hostRouteIs(kRp, "Loopback1");
  static_->crpSetIs(IpGenPrefix("ff0e::/16"))->rpIs(kRp);
  groups_->groupIs(kGroup, true);
  static_->crpSetMutable(IpGenPrefix("ff0e::/16"))->rpDel(kRp);
  EXPECT_EQ(table(), (Lines{"2001:db8:ffff::1=Loopback1"}));
  static_->crpSetMutable(IpGenPrefix("ff0e::/16"))->rpIs(kRp);
  groups_->groupDel(kGroup);
  EXPECT_EQ(table(), (Lines{"2001:db8:ffff::1=Loopback1"}));
  static_->crpSetMutable(IpGenPrefix("ff0e::/16"))->rpDel(kRp);
  EXPECT_TRUE(table().empty());
}

TEST_F(RpLocalEmbeddedTest, PruningPass_KeepsDerivedRp) {
  hostRouteIs(kRp, "Loopback1");
  groups_->groupIs(kGroup, true);
  sm_->urib6ShadowIs(shadow_);  // a full re-evaluation, pruning first
  EXPECT_EQ(table(), (Lines{"2001:db8:ffff::1=Loopback1"}));
}

TEST_F(RpLocalEmbeddedTest, StatusSetAfterGroupsUseIt_ScannedAtOnce_DroppedWhenDetached) {
  const Kel::Ptr<RpLocalSm> late = rpLocalSmFactory(static_, bsr_, local_);
  late->urib6ShadowIs(shadow_);
  sm_ = nullptr;
  hostRouteIs(kRp, "Loopback1");
  groups_->groupIs(kGroup, true);
  EXPECT_TRUE(table().empty());
  late->embeddedRpStatusIs(embedded_);
  EXPECT_EQ(table(), (Lines{"2001:db8:ffff::1=Loopback1"}));
  late->embeddedRpStatusIs(nullptr);
  EXPECT_TRUE(table().empty());
}

}  // namespace
