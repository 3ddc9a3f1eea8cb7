// EmbeddedRp: the RP an IPv6 group address names in its own bits, and every encoding that names
// none; EmbeddedRpConfig: its defaults and notifications.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/Pim/EmbeddedRp.h"
#include "model/Pim/EmbeddedRpConfig.h"

namespace {

using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::Pim::EmbeddedRp;
using Routing::Pim::EmbeddedRpConfig;
using Routing::Pim::EmbeddedRpValidity;

EmbeddedRp of(const char* group) { return EmbeddedRp::ofGroup(IpGenAddr(group)); }

TEST(EmbeddedRp, OfGroup_FirstPeerExample_NamesRpOne) {
  const EmbeddedRp embedded = of("ff75:130:2001:db8:ffff::100");
  EXPECT_TRUE(embedded.valid());
  EXPECT_EQ(embedded.rp(), IpGenAddr("2001:db8:ffff::1"));
  EXPECT_EQ(embedded.riid(), 1u);
  EXPECT_EQ(embedded.plen(), 48u);
  EXPECT_EQ(embedded.networkPrefix(), IpGenPrefix("2001:db8:ffff::/48"));
  EXPECT_EQ(embedded.group(), IpGenAddr("ff75:130:2001:db8:ffff::100"));
}

TEST(EmbeddedRp, OfGroup_SecondPeerExample_NamesRpTwo) {
  const EmbeddedRp embedded = of("ff75:230:2001:db8:ffff::400");
  EXPECT_TRUE(embedded.valid());
  EXPECT_EQ(embedded.rp(), IpGenAddr("2001:db8:ffff::2"));
  EXPECT_EQ(embedded.riid(), 2u);
  EXPECT_EQ(embedded.plen(), 48u);
}

TEST(EmbeddedRp, OfGroup_EveryScopeAndGroupId_SameRp) {
  for (const char* group : {"ff72:130:2001:db8:ffff::1", "ff7e:130:2001:db8:ffff:0:ffff:ffff",
                            "ff78:130:2001:db8:ffff::"}) {
    EXPECT_EQ(of(group).rp(), IpGenAddr("2001:db8:ffff::1")) << group;
  }
}

TEST(EmbeddedRp, OfGroup_Plen64_WholeNetworkPrefix) {
  const EmbeddedRp embedded = of("ff7e:f40:2001:db8:1:2::1234");
  EXPECT_TRUE(embedded.valid());
  EXPECT_EQ(embedded.rp(), IpGenAddr("2001:db8:1:2::f"));
  EXPECT_EQ(embedded.networkPrefix(), IpGenPrefix("2001:db8:1:2::/64"));
}

TEST(EmbeddedRp, OfGroup_PrefixBitsPastPlen_Ignored) {
  // plen 32 keeps 2001:db8; the ffff that follows in the field is not part of the RP.
  const EmbeddedRp embedded = of("ff75:520:2001:db8:ffff:eeee::1");
  EXPECT_EQ(embedded.rp(), IpGenAddr("2001:db8::5"));
  EXPECT_EQ(embedded.networkPrefix(), IpGenPrefix("2001:db8::/32"));
}

TEST(EmbeddedRp, OfGroup_OddPlen_ClearsTheBitsPastIt) {
  // plen 17: 2001:0d80 keeps its first bit of the second word.
  EXPECT_EQ(of("ff75:111:2001:ffff::1").rp(), IpGenAddr("2001:8000::1"));
}

TEST(EmbeddedRp, OfGroup_FlagsOtherThan0111_NotEmbeddedRpGroups) {
  for (const char* group :
       {"ff05:130:2001:db8:ffff::100", "ff15:130:2001:db8:ffff::100", "ff35:130:2001:db8:ffff::100",
        "ff65:130:2001:db8:ffff::100", "fff5:130:2001:db8:ffff::100", "ff3e::8000:1"}) {
    const EmbeddedRp embedded = of(group);
    EXPECT_EQ(embedded.validity(), EmbeddedRpValidity::notEmbeddedRpGroup) << group;
    EXPECT_FALSE(embedded.valid()) << group;
    EXPECT_EQ(embedded.rp(), IpGenAddr()) << group;
    EXPECT_TRUE(embedded.networkPrefix().isNull()) << group;
    EXPECT_EQ(embedded.riid(), 0u) << group;
    EXPECT_EQ(embedded.plen(), 0u) << group;
  }
}

TEST(EmbeddedRp, OfGroup_NotIpv6_NotEmbeddedRpGroups) {
  EXPECT_EQ(of("239.1.1.1").validity(), EmbeddedRpValidity::notEmbeddedRpGroup);
  EXPECT_EQ(EmbeddedRp::ofGroup(IpGenAddr()).validity(), EmbeddedRpValidity::notEmbeddedRpGroup);
  EXPECT_EQ(of("2001:db8::1").validity(), EmbeddedRpValidity::notEmbeddedRpGroup);
}

TEST(EmbeddedRp, OfGroup_ReservedBitsSet_NoRp) {
  for (const char* group : {"ff75:1130:2001:db8:ffff::100", "ff75:8130:2001:db8:ffff::100"}) {
    const EmbeddedRp embedded = of(group);
    EXPECT_EQ(embedded.validity(), EmbeddedRpValidity::reservedBitsSet) << group;
    EXPECT_EQ(embedded.rp(), IpGenAddr()) << group;
    EXPECT_EQ(embedded.riid(), 1u) << group;
    EXPECT_EQ(embedded.plen(), 48u) << group;
  }
}

TEST(EmbeddedRp, OfGroup_RiidZero_NoRp) {
  const EmbeddedRp embedded = of("ff75:30:2001:db8:ffff::100");
  EXPECT_EQ(embedded.validity(), EmbeddedRpValidity::riidZero);
  EXPECT_EQ(embedded.rp(), IpGenAddr());
  EXPECT_EQ(embedded.plen(), 48u);
}

TEST(EmbeddedRp, OfGroup_PlenZero_NoRp) {
  const EmbeddedRp embedded = of("ff75:100:2001:db8:ffff::100");
  EXPECT_EQ(embedded.validity(), EmbeddedRpValidity::plenZero);
  EXPECT_EQ(embedded.rp(), IpGenAddr());
  EXPECT_EQ(embedded.riid(), 1u);
}

TEST(EmbeddedRp, OfGroup_PlenAbove64_NoRp) {
  for (const char* group : {"ff75:141:2001:db8:ffff::100", "ff75:180:2001:db8:ffff::100",
                            "ff75:1ff:2001:db8:ffff::100"}) {
    const EmbeddedRp embedded = of(group);
    EXPECT_EQ(embedded.validity(), EmbeddedRpValidity::plenAbove64) << group;
    EXPECT_EQ(embedded.rp(), IpGenAddr()) << group;
    EXPECT_TRUE(embedded.networkPrefix().isNull()) << group;
  }
}

TEST(EmbeddedRp, OfGroup_SeveralRulesBroken_FirstInLayoutOrderReported) {
  EXPECT_EQ(of("ff75:1000::1").validity(), EmbeddedRpValidity::reservedBitsSet);
  EXPECT_EQ(of("ff75:0:2001::1").validity(), EmbeddedRpValidity::riidZero);
  EXPECT_EQ(of("ff75:1ff::1").validity(), EmbeddedRpValidity::plenAbove64);
}

TEST(EmbeddedRp, ValidityWord_EachRule_SaysWhat) {
  EXPECT_STREQ(embeddedRpValidityWord(EmbeddedRpValidity::valid), "valid");
  EXPECT_STREQ(embeddedRpValidityWord(EmbeddedRpValidity::notEmbeddedRpGroup),
               "not within ff70::/12");
  EXPECT_STREQ(embeddedRpValidityWord(EmbeddedRpValidity::reservedBitsSet),
               "reserved bits are not 0");
  EXPECT_STREQ(embeddedRpValidityWord(EmbeddedRpValidity::riidZero), "RIID is 0");
  EXPECT_STREQ(embeddedRpValidityWord(EmbeddedRpValidity::plenZero), "plen is 0");
  EXPECT_STREQ(embeddedRpValidityWord(EmbeddedRpValidity::plenAbove64), "plen is above 64");
}

TEST(EmbeddedRp, TextForm_ValidAndInvalid) {
  EXPECT_EQ(of("ff75:130:2001:db8:ffff::100").valueToStrep(),
            "EmbeddedRp(ff75:130:2001:db8:ffff::100 -> 2001:db8:ffff::1, riid 1, plen 48, prefix "
            "2001:db8:ffff::/48)");
  EXPECT_EQ(of("ff75:30:2001:db8:ffff::100").valueToStrep(),
            "EmbeddedRp(ff75:30:2001:db8:ffff::100: RIID is 0)");
}

TEST(EmbeddedRp, Equality_ComparesWhatTheGroupNames) {
  EXPECT_EQ(of("ff75:130:2001:db8:ffff::100"), of("ff75:130:2001:db8:ffff::100"));
  EXPECT_NE(of("ff75:130:2001:db8:ffff::100"), of("ff75:130:2001:db8:ffff::101"));
  EXPECT_EQ(EmbeddedRp(), EmbeddedRp());
}

TEST(EmbeddedRp, GroupSpace_IsFf70Slash12) {
  EXPECT_EQ(EmbeddedRp::groupSpace(), IpGenPrefix("ff70::/12"));
}

struct ConfigWatcher : EmbeddedRpConfig::NotifieeConst {
  void onEnabled() override { seen.push_back("enabled"); }
  void onLimit() override { seen.push_back("limit"); }
  void onGroupRange(const IpGenPrefix& range) override {
    seen.push_back("range " + range.valueToStrep());
  }
  std::vector<std::string> seen;
};

TEST(EmbeddedRpConfig, Defaults_OffLimit25NoRange) {
  const EmbeddedRpConfig config;
  EXPECT_FALSE(config.enabled());
  EXPECT_EQ(config.limit(), 25u);
  EXPECT_TRUE(config.groupRange().empty());
}

TEST(EmbeddedRpConfig, Changes_NotifyOnlyWhenTheyChange) {
  const Kel::Ptr<EmbeddedRpConfig> config(new EmbeddedRpConfig);
  const Kel::Ptr<ConfigWatcher> watcher(new ConfigWatcher);
  watcher->notifierIs(config);
  config->enabledIs(true);
  config->enabledIs(true);
  config->limitIs(25);
  config->limitIs(3);
  config->groupRangeIs(IpGenPrefix("ff75::/16"), true);
  config->groupRangeDel(IpGenPrefix("ff7e::/16"));
  config->groupRangeDel(IpGenPrefix("ff75::/16"));
  EXPECT_EQ(watcher->seen,
            (std::vector<std::string>{"enabled", "limit", "range ff75::/16", "range ff75::/16"}));
}

}  // namespace
