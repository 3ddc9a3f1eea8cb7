// The embedded-RP statements of pimrp: how they parse and what the Validator refuses, what the
// session writes to the IPv6 family's configuration and reads back for show rp, show embedded-rp
// and show config, and how each output prints it.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Refusal.h"
#include "tests/tools/ToolTestSupport.h"
#include "tools/RunningConfig.h"
#include "tools/Session.h"
#include "tools/StatementError.h"
#include "tools/Validation.h"

namespace {

using namespace PimrpTool;
using Ipkit::AddressFamily;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::Pim::EmbeddedRpUse;
using ToolTest::statementAs;
using ToolTest::statementOf;

std::string refusalOf(const std::string& line, const std::string& readOnlyTables = "") {
  return TestSupport::refusalOf<StatementError>([&] {
    Validator validator(readOnlyTables);
    if (const auto statement = parseStatement(line)) validator.check(*statement);
  });
}

// ---- Parsing and checks -------------------------------------------------------------------------

TEST(EmbeddedRpStatements, Parse_EveryForm) {
  EXPECT_TRUE(statementAs<EmbeddedRpEnableStatement>("embedded-rp enable").enabled);
  EXPECT_FALSE(statementAs<EmbeddedRpEnableStatement>("embedded-rp disable").enabled);
  EXPECT_EQ(statementAs<EmbeddedRpLimitStatement>("embedded-rp limit 7").limit.value, 7u);
  EXPECT_EQ(
      statementAs<EmbeddedRpGroupRangeStatement>("embedded-rp group-range ff7e::/16").range.value,
      IpGenPrefix("ff7e::/16"));
  EXPECT_EQ(statementAs<NoEmbeddedRpGroupRangeStatement>("no embedded-rp group-range ff7e::/16")
                .range.value,
            IpGenPrefix("ff7e::/16"));
  EXPECT_TRUE(isShowStatement(statementOf("show embedded-rp")));
  EXPECT_FALSE(isShowStatement(statementOf("embedded-rp enable")));
}

TEST(EmbeddedRpStatements, Limit_ZeroTo4294967295) {
  EXPECT_EQ(refusalOf("embedded-rp limit 0"), "");
  EXPECT_EQ(refusalOf("embedded-rp limit 4294967295"), "");
  EXPECT_EQ(refusalOf("embedded-rp limit 4294967296"),
            "embedded-RP limit '4294967296' out of range 0..4294967295");
  EXPECT_EQ(refusalOf("embedded-rp limit ten"),
            "invalid embedded-RP limit 'ten': not a decimal "
            "number");
}

TEST(EmbeddedRpStatements, GroupRange_WithinFf70Slash12) {
  EXPECT_EQ(refusalOf("embedded-rp group-range ff70::/12"), "");
  EXPECT_EQ(refusalOf("embedded-rp group-range ff75:130:2001:db8::/64"), "");
  const std::string outside = " is not within ff70::/12: only groups there name their own RP";
  EXPECT_EQ(refusalOf("embedded-rp group-range ff3e::/16"),
            "embedded-RP group range 'ff3e::/16'" + outside);
  EXPECT_EQ(refusalOf("embedded-rp group-range ff00::/8"),
            "embedded-RP group range 'ff00::/8'" + outside);
  EXPECT_EQ(refusalOf("no embedded-rp group-range 239.0.0.0/8"),
            "embedded-RP group range '239.0.0.0/8'" + outside);
}

TEST(EmbeddedRpStatements, MissingAndWrongWords_Named) {
  EXPECT_EQ(refusalOf("embedded-rp"),
            "missing 'enable', 'disable', 'limit' or 'group-range' after 'embedded-rp'");
  EXPECT_EQ(refusalOf("embedded-rp enable please"),
            "unexpected 'please' after 'embedded-rp enable'");
  EXPECT_EQ(refusalOf("no embedded-rp limit 3"),
            "expected 'group-range' after 'no embedded-rp', got 'limit'");
  EXPECT_EQ(refusalOf("show embedded-rp all"), "unexpected 'all' after 'show embedded-rp'");
}

TEST(EmbeddedRpStatements, ReadOnlyAttachment_RefusedAsEveryOtherStatement) {
  EXPECT_EQ(refusalOf("embedded-rp enable", "T"),
            "'embedded-rp' would change state, and this is a read-only attachment to the shared "
            "tables 'T'");
  EXPECT_EQ(refusalOf("no embedded-rp group-range ff7e::/16", "T"),
            "'no embedded-rp' would change state, and this is a read-only attachment to the "
            "shared tables 'T'");
  EXPECT_EQ(refusalOf("show embedded-rp", "T"),
            "'show embedded-rp' is not available in a read-only attachment to the shared tables "
            "'T': it needs the writer's own state; only 'show rp-hash' reads the tables");
}

// ---- The session --------------------------------------------------------------------------------

class EmbeddedRpSessionTest : public ::testing::Test {
 protected:
  std::optional<ShowResult> apply(const std::string& line) {
    return session.apply(statementOf(line));
  }
  template <class R>
  R show(const std::string& line) {
    return std::get<R>(*apply(line));
  }
  const Routing::Pim::EmbeddedRpConfig& config() {
    return *session.family(AddressFamily::ipv6).embeddedRp().config();
  }

  Session session;
};

TEST_F(EmbeddedRpSessionTest, Statements_WriteTheIpv6Configuration) {
  apply("embedded-rp limit 3");
  apply("embedded-rp group-range ff7e::/16");
  apply("embedded-rp group-range ff75::/16");
  apply("no embedded-rp group-range ff75::/16");
  apply("no embedded-rp group-range ff78::/16");
  apply("embedded-rp enable");
  EXPECT_TRUE(config().enabled());
  EXPECT_EQ(config().limit(), 3u);
  EXPECT_EQ(config().groupRange().size(), 1u);
  EXPECT_TRUE(config().groupRange().contains(IpGenPrefix("ff7e::/16")));
  EXPECT_FALSE(session.family(AddressFamily::ipv4).embeddedRp().config()->enabled());
  apply("embedded-rp disable");
  EXPECT_FALSE(config().enabled());
}

TEST_F(EmbeddedRpSessionTest, ShowRp_Off_NoEmbeddedAnswer) {
  apply("group ff75:130:2001:db8:ffff::100");
  const auto answer = show<RpAnswer>("show rp ff75:130:2001:db8:ffff::100");
  EXPECT_FALSE(answer.embedded);
  EXPECT_EQ(ToolTest::jsonOf(answer).find("embedded"), std::string::npos);
}

TEST_F(EmbeddedRpSessionTest, ShowRp_On_EmbeddedAnswerFromTheLibrary) {
  apply("embedded-rp enable");
  apply("group ff75:130:2001:db8:ffff::100");
  const auto answer = show<RpAnswer>("show rp ff75:130:2001:db8:ffff::100 mode sparse");
  EXPECT_EQ(answer.rp, IpGenAddr("2001:db8:ffff::1"));
  ASSERT_TRUE(answer.embedded);
  EXPECT_EQ(answer.embedded->admission.use, EmbeddedRpUse::inUse);
  EXPECT_EQ(answer.embedded->groupsInUse, 1u);
  EXPECT_EQ(answer.embedded->limit, 25u);
  EXPECT_NE(ToolTest::humanOf(answer).find(
                "  embedded: RP 2001:db8:ffff::1 from the group address (RIID 1, plen 48, network "
                "prefix 2001:db8:ffff::/48); in use, 1 of 25 groups use embedded RP\n"),
            std::string::npos);
  EXPECT_NE(ToolTest::jsonOf(answer).find(
                "\"embedded\":{\"use\":\"in use\",\"rp\":\"2001:db8:ffff::1\",\"riid\":1,"
                "\"plen\":48,\"networkPrefix\":\"2001:db8:ffff::/48\",\"invalid\":null,"
                "\"groupsInUse\":1,\"limit\":25}"),
            std::string::npos);
}

TEST_F(EmbeddedRpSessionTest, ShowRp_On_InvalidAndOtherGroupsSaySo) {
  apply("embedded-rp enable");
  const auto invalid = show<RpAnswer>("show rp ff75:30:2001:db8:ffff::100");
  EXPECT_NE(ToolTest::humanOf(invalid).find(
                "  embedded: none, the group address names no RP: RIID is 0\n"),
            std::string::npos);
  EXPECT_NE(ToolTest::jsonOf(invalid).find(
                "\"embedded\":{\"use\":\"none\",\"rp\":null,\"riid\":0,\"plen\":48,"
                "\"networkPrefix\":null,\"invalid\":\"RIID is 0\""),
            std::string::npos);
  const auto other = show<RpAnswer>("show rp ff3e::1");
  EXPECT_EQ(ToolTest::humanOf(other).find("embedded"), std::string::npos);
  EXPECT_NE(ToolTest::jsonOf(other).find("\"embedded\":{\"use\":\"none\",\"rp\":null,\"riid\":"
                                         "null,\"plen\":null,\"networkPrefix\":null,\"invalid\":"
                                         "\"not within ff70::/12\""),
            std::string::npos);
  EXPECT_FALSE(show<RpAnswer>("show rp 239.1.1.1").embedded);
}

TEST_F(EmbeddedRpSessionTest, ShowEmbeddedRp_SettingsCountsAndRps) {
  apply("embedded-rp limit 1");
  apply("embedded-rp group-range ff75::/16");
  apply("embedded-rp enable");
  apply("group ff75:130:2001:db8:ffff::100");
  apply("group ff75:230:2001:db8:ffff::400");
  const auto listing = show<EmbeddedRpListing>("show embedded-rp");
  EXPECT_TRUE(listing.enabled);
  EXPECT_EQ(listing.limit, 1u);
  EXPECT_EQ(listing.groupRanges, std::vector<IpGenPrefix>{IpGenPrefix("ff75::/16")});
  EXPECT_EQ(listing.groupsInUse, 1u);
  EXPECT_EQ(listing.waiting, 1u);
  EXPECT_EQ(listing.overflowCount, 1u);
  ASSERT_EQ(listing.rps.size(), 1u);
  EXPECT_EQ(listing.rps[0].rp, IpGenAddr("2001:db8:ffff::1"));
  EXPECT_EQ(listing.rps[0].groups, 1u);
  EXPECT_EQ(ToolTest::humanOf(listing),
            "embedded rp: on, limit 1, group ranges: ff75::/16\n"
            "  groups in use 1, waiting over the limit 1, overflow count 1\n"
            "  rp                groups\n"
            "  2001:db8:ffff::1  1\n");
  EXPECT_EQ(ToolTest::jsonOf(listing),
            "{\"embeddedRp\":{\"enabled\":true,\"limit\":1,\"groupRanges\":[\"ff75::/16\"],"
            "\"groupsInUse\":1,\"waitingOverLimit\":1,\"overflowCount\":1,\"rps\":[{\"address\":"
            "\"2001:db8:ffff::1\",\"groups\":1}]}}\n");
}

TEST_F(EmbeddedRpSessionTest, ShowConfig_SettingsThatDiffer_EnableLast) {
  const auto statements = [this] {
    std::vector<std::string> lines;
    for (const auto& line : runningConfig(session, session.vrfsInUse(), true).lines) {
      if (line.text.find("embedded") != std::string::npos) lines.push_back(line.text);
    }
    return lines;
  };
  EXPECT_TRUE(statements().empty());
  apply("embedded-rp limit 25");
  EXPECT_TRUE(statements().empty());
  apply("embedded-rp group-range ff7e::/16");
  apply("embedded-rp limit 4");
  EXPECT_EQ(statements(), (std::vector<std::string>{"embedded RP", "embedded-rp limit 4",
                                                    "embedded-rp group-range ff7e::/16"}));
  apply("embedded-rp enable");
  EXPECT_EQ(statements().back(), "embedded-rp enable");
}

TEST_F(EmbeddedRpSessionTest, Statements_ApplyToTheVrfOfTheirSection) {
  apply("vrf red");
  apply("embedded-rp limit 1");
  apply("embedded-rp enable");
  apply("group ff75:130:2001:db8:ffff::100");
  apply("group ff75:230:2001:db8:ffff::400");
  apply("vrf blue");
  apply("embedded-rp group-range ff7e::/16");
  apply("group ff75:130:2001:db8:ffff::100");
  const auto blue = show<EmbeddedRpListing>("show embedded-rp");
  EXPECT_FALSE(blue.enabled);
  EXPECT_EQ(blue.limit, 25u);
  EXPECT_EQ(blue.groupRanges, std::vector<IpGenPrefix>{IpGenPrefix("ff7e::/16")});
  EXPECT_EQ(blue.groupsInUse, 0u);
  EXPECT_TRUE(blue.rps.empty());
  const auto red = show<EmbeddedRpListing>("show embedded-rp vrf red");
  EXPECT_TRUE(red.enabled);
  EXPECT_EQ(red.limit, 1u);
  EXPECT_TRUE(red.groupRanges.empty());
  EXPECT_EQ(red.groupsInUse, 1u);
  EXPECT_EQ(red.waiting, 1u);
  EXPECT_EQ(red.overflowCount, 1u);
  EXPECT_FALSE(show<RpAnswer>("show rp ff75:130:2001:db8:ffff::100").embedded);
  const auto inRed = show<RpAnswer>("show rp ff75:130:2001:db8:ffff::100 mode sparse vrf red");
  EXPECT_EQ(inRed.rp, IpGenAddr("2001:db8:ffff::1"));
  ASSERT_TRUE(inRed.embedded);
  EXPECT_EQ(inRed.embedded->admission.use, EmbeddedRpUse::inUse);
}

}  // namespace
