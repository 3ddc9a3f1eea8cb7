#include <gtest/gtest.h>

#include <string>

#include "tests/support/Refusal.h"
#include "tests/tools/ToolTestSupport.h"
#include "tools/StatementError.h"
#include "tools/StatementParser.h"

namespace {

using namespace PimrpTool;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using ToolTest::statementAs;
using ToolTest::statementOf;

// The message of the refusal of `line`, or "" when it parses.
std::string refusalOf(const std::string& line) {
  return TestSupport::refusalOf<StatementError>([&] { parseStatement(line); });
}

TEST(StatementParser, BlankAndCommentLines_YieldNoStatement) {
  EXPECT_FALSE(parseStatement(""));
  EXPECT_FALSE(parseStatement(" \t\r"));
  EXPECT_FALSE(parseStatement("# rp-address 10.0.0.1 group 239.0.0.0/8"));
  EXPECT_FALSE(parseStatement("   # indented comment"));
}

TEST(StatementParser, RpAddressGroup_ReadsOptionsInAnyOrder) {
  const auto s = statementAs<RpGroupStatement>(
      "rp-address 10.0.0.1 group 239.0.0.0/8 override hashmask 30 "
      "priority 7  # trailing comment");
  EXPECT_EQ(s.rp.value, IpGenAddr("10.0.0.1"));
  EXPECT_EQ(s.group.value, IpGenPrefix("239.0.0.0/8"));
  ASSERT_EQ(s.options.priority.form, OptionValue::Form::number);
  EXPECT_EQ(s.options.priority.number.value, 7u);
  ASSERT_EQ(s.options.hashMask.form, OptionValue::Form::number);
  EXPECT_EQ(s.options.hashMask.number.value, 30u);
  EXPECT_TRUE(s.options.override);
}

TEST(StatementParser, RpAddressGroupWithoutOptions_LeavesThemOut) {
  const auto s = statementAs<RpGroupStatement>("rp-address 10.0.0.1 group 239.0.0.0/8");
  EXPECT_EQ(s.options.priority.form, OptionValue::Form::leftOut);
  EXPECT_EQ(s.options.hashMask.form, OptionValue::Form::leftOut);
  EXPECT_FALSE(s.options.override);
}

TEST(StatementParser, RpAddressOptionsNone_LeaveTheValuesUnconfigured) {
  const auto s = statementAs<RpGroupStatement>(
      "rp-address 10.0.0.1 group 239.0.0.0/8 priority none hashmask none");
  EXPECT_EQ(s.options.priority.form, OptionValue::Form::none);
  EXPECT_EQ(s.options.hashMask.form, OptionValue::Form::none);
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 acl A priority nine"),
            "invalid priority 'nine': not a decimal number or 'none'");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 acl A hashmask none priority none priority 1"),
            "'priority' given twice");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 acl A hashmask"),
            "missing hashmask after 'rp-address 10.0.0.1 acl A hashmask'");
}

TEST(StatementParser, RpAddressAcl_ReadsNameAndOptions) {
  const auto s = statementAs<RpAclStatement>("rp-address 10.0.0.1 acl Media_1.x-y priority 3");
  EXPECT_EQ(s.acl, "Media_1.x-y");
  ASSERT_EQ(s.options.priority.form, OptionValue::Form::number);
  EXPECT_EQ(s.options.priority.number.word, "3");
}

TEST(StatementParser, RpAddressMode_ReadsSparseAndBidir) {
  EXPECT_EQ(statementAs<RpModeStatement>("rp-address 10.0.0.1 mode bidir").mode,
            Routing::Pim::modePimBidir);
  EXPECT_EQ(statementAs<RpModeStatement>("rp-address 10.0.0.1 mode sparse").mode,
            Routing::Pim::modePimSm);
}

TEST(StatementParser, NoRpAddress_ReadsEachForm) {
  EXPECT_EQ(statementAs<NoRpStatement>("no rp-address 10.0.0.1").rp.value, IpGenAddr("10.0.0.1"));
  EXPECT_EQ(statementAs<NoRpGroupStatement>("no rp-address 10.0.0.1 group 239.0.0.0/8").group.value,
            IpGenPrefix("239.0.0.0/8"));
  EXPECT_EQ(statementAs<NoRpAclStatement>("no rp-address 10.0.0.1 acl A").acl, "A");
}

TEST(StatementParser, AclRule_ReadsPrefixOrAny) {
  const auto permit = statementAs<AclRuleStatement>("acl A seq 10 permit 224.0.0.0/23");
  EXPECT_EQ(permit.acl, "A");
  EXPECT_EQ(permit.sequence.value, 10u);
  EXPECT_EQ(permit.action, Acl::AclAction::permit);
  ASSERT_TRUE(permit.prefix);
  EXPECT_EQ(permit.prefix->value, IpGenPrefix("224.0.0.0/23"));
  const auto deny = statementAs<AclRuleStatement>("acl A seq 20 deny any");
  EXPECT_EQ(deny.action, Acl::AclAction::deny);
  EXPECT_FALSE(deny.prefix);
}

TEST(StatementParser, NoAcl_ReadsListOrRule) {
  EXPECT_EQ(statementAs<NoAclStatement>("no acl A").acl, "A");
  EXPECT_EQ(statementAs<NoAclRuleStatement>("no acl A seq 5").sequence.value, 5u);
}

TEST(StatementParser, BsrRp_ReadsAllThreeValuesInAnyOrder) {
  const auto s = statementAs<BsrRpStatement>(
      "bsr-rp ff0e::/16 2001:db8::1 mode bidir hashmask 126 priority 0");
  EXPECT_EQ(s.group.value, IpGenPrefix("ff0e::/16"));
  EXPECT_EQ(s.rp.value, IpGenAddr("2001:db8::1"));
  EXPECT_EQ(s.priority.value, 0u);
  EXPECT_EQ(s.hashMask.value, 126u);
  EXPECT_EQ(s.mode, Routing::Pim::modePimBidir);
}

TEST(StatementParser, BsrRpWithoutAValue_IsRefused) {
  EXPECT_EQ(refusalOf("bsr-rp 239.0.0.0/8 10.0.0.1 priority 1 hashmask 30"),
            "missing 'mode' in 'bsr-rp 239.0.0.0/8 10.0.0.1 priority 1 hashmask 30'");
}

TEST(StatementParser, Show_ReadsEachForm) {
  const auto rp = statementAs<ShowRpStatement>("show rp 239.1.1.1 join 10.9.9.9 mode sparse");
  EXPECT_EQ(rp.group.value, IpGenAddr("239.1.1.1"));
  EXPECT_EQ(rp.mode, Routing::Pim::modePimSm);
  ASSERT_TRUE(rp.join);
  EXPECT_EQ(rp.join->value, IpGenAddr("10.9.9.9"));
  EXPECT_EQ(statementAs<ShowRpStatement>("show rp 239.1.1.1").mode, Routing::Pim::modePimNone);
  EXPECT_EQ(statementAs<ShowCandidatesStatement>("show candidates bsr").source,
            CandidateSource::bootstrap);
  EXPECT_EQ(statementAs<ShowCandidatesStatement>("show candidates static").source,
            CandidateSource::staticConfig);
  EXPECT_EQ(statementAs<ShowAclStatement>("show acl A").acl, "A");
  EXPECT_TRUE(std::holds_alternative<ShowConfigStatement>(statementOf("show config")));
  EXPECT_EQ(refusalOf("show config all"), "unexpected 'all' after 'show config'");
}

TEST(StatementParser, ShowRpMapping_ReadsAnOptionalFamily) {
  EXPECT_FALSE(statementAs<ShowRpMappingStatement>("show rp mapping").af);
  EXPECT_EQ(statementAs<ShowRpMappingStatement>("show rp mapping ipv4").af,
            Ipkit::AddressFamily::ipv4);
  EXPECT_EQ(statementAs<ShowRpMappingStatement>("show rp mapping ipv6").af,
            Ipkit::AddressFamily::ipv6);
  EXPECT_EQ(refusalOf("show rp mapping ipv5"),
            "expected 'ipv4' or 'ipv6' after 'show rp mapping', got 'ipv5'");
  EXPECT_EQ(refusalOf("show rp mapping ipv4 x"), "unexpected 'x' after 'show rp mapping ipv4'");
}

TEST(StatementParser, Vrf_ReadsANameOfLettersDigitsUnderscoreAndDash) {
  EXPECT_EQ(statementAs<VrfStatement>("vrf Red_2-b").name, "Red_2-b");
  EXPECT_EQ(refusalOf("vrf a.b"), "invalid VRF name 'a.b': use letters, digits, '_' and '-'");
  EXPECT_EQ(refusalOf("vrf a/b"), "invalid VRF name 'a/b': use letters, digits, '_' and '-'");
  EXPECT_EQ(refusalOf("vrf"), "missing VRF name after 'vrf'");
  EXPECT_EQ(refusalOf("vrf red blue"), "unexpected 'blue' after 'vrf red'");
}

TEST(StatementParser, EveryShow_TakesATrailingVrf) {
  EXPECT_EQ(statementAs<ShowRpStatement>("show rp 239.1.1.1 mode sparse vrf red").vrf, "red");
  EXPECT_EQ(statementAs<ShowRpStatement>("show rp 239.1.1.1 vrf red detail").vrf, "red");
  EXPECT_EQ(statementAs<ShowCandidatesStatement>("show candidates bsr vrf red").vrf, "red");
  EXPECT_EQ(statementAs<ShowAclStatement>("show acl vrf vrf red").acl, "vrf");
  EXPECT_EQ(statementAs<ShowAclStatement>("show acl vrf vrf red").vrf, "red");
  EXPECT_EQ(statementAs<ShowRpHashStatement>("show rp-hash final groups mode sparse vrf red").vrf,
            "red");
  const auto table =
      statementAs<ShowRpHashStatement>("show rp-hash bsr prefixes mode bidir ipv6 vrf red");
  EXPECT_EQ(table.af, Ipkit::AddressFamily::ipv6);
  EXPECT_EQ(table.vrf, "red");
  EXPECT_EQ(statementAs<ShowLocalRpStatement>("show local-rp vrf red").vrf, "red");
  EXPECT_EQ(statementAs<ShowGroupFilterStatement>("show group-filter 239.1.1.1 vrf red").vrf,
            "red");
  EXPECT_EQ(statementAs<ShowAllocRequestsStatement>("show alloc-requests vrf red").vrf, "red");
  EXPECT_EQ(statementAs<ShowReviewStatement>("show review vrf red").vrf, "red");
  EXPECT_EQ(statementAs<ShowRpMappingStatement>("show rp mapping vrf red").vrf, "red");
  EXPECT_EQ(statementAs<ShowRpMappingStatement>("show rp mapping ipv4 vrf red").af,
            Ipkit::AddressFamily::ipv4);
  EXPECT_EQ(statementAs<ShowConfigStatement>("show config vrf red").vrf, "red");
  EXPECT_FALSE(statementAs<ShowConfigStatement>("show config").vrf);
  EXPECT_EQ(statementAs<ShowEmbeddedRpStatement>("show embedded-rp vrf red").vrf, "red");
  EXPECT_FALSE(statementAs<ShowEmbeddedRpStatement>("show embedded-rp").vrf);
  EXPECT_EQ(statementAs<ShowRpHashSummaryStatement>("show rp-hash summary vrf red").vrf, "red");
  const auto summary = statementAs<ShowRpHashSummaryStatement>("show rp-hash summary ipv6 vrf red");
  EXPECT_EQ(summary.af, Ipkit::AddressFamily::ipv6);
  EXPECT_EQ(summary.vrf, "red");
  EXPECT_FALSE(statementAs<ShowRpHashSummaryStatement>("show rp-hash summary ipv4").vrf);
}

TEST(StatementParser, TrailingVrf_RefusedWhereItIsNotLast) {
  EXPECT_EQ(refusalOf("show config vrf red ipv4"), "unexpected 'ipv4' after 'show config vrf red'");
  EXPECT_EQ(refusalOf("show rp mapping vrf red ipv4"),
            "unexpected 'ipv4' after 'show rp mapping vrf red'");
  EXPECT_EQ(refusalOf("show review vrf"), "missing VRF name after 'show review vrf'");
  EXPECT_EQ(refusalOf("show embedded-rp vrf red ipv6"),
            "unexpected 'ipv6' after 'show embedded-rp vrf red'");
  EXPECT_EQ(refusalOf("show rp-hash summary vrf red ipv4"),
            "unexpected 'ipv4' after 'show rp-hash summary vrf red'");
  EXPECT_EQ(refusalOf("show rp 239.1.1.1 vrf red vrf blue"), "'vrf' given twice");
  EXPECT_EQ(refusalOf("show local-rp vrf a.b"),
            "invalid VRF name 'a.b': use letters, digits, '_' and '-'");
}

TEST(StatementParser, RpHashAlgorithm_ReadsBothNames) {
  EXPECT_EQ(statementAs<RpHashAlgorithmStatement>("rp-hash-algorithm modulo").algorithm,
            Routing::Pim::rpHashAlgorithmModulo);
  EXPECT_EQ(statementAs<RpHashAlgorithmStatement>("rp-hash-algorithm rfc7761").algorithm,
            Routing::Pim::rpHashAlgorithmRfc7761);
}

TEST(StatementParser, HostBits_AreRefusedWithTheRange) {
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.1.0.0/8"),
            "group range '239.1.0.0/8' has host bits set (the range is 239.0.0.0/8)");
  EXPECT_EQ(refusalOf("route 10.0.0.1/8 type 1"),
            "route prefix '10.0.0.1/8' has host bits set (the range is 10.0.0.0/8)");
}

TEST(StatementParser, GroupRangeWiderThanTheGroupSpace_RefusedAsSuch) {
  EXPECT_EQ(refusalOf("rp-address 10.0.0.2 group ff00::/7"),
            "group range 'ff00::/7' is not within ff00::/8");
  EXPECT_EQ(refusalOf("bsr-rp 239.0.0.0/3 10.0.0.1 priority 1 hashmask 30 mode sparse"),
            "group range '239.0.0.0/3' is not within 224.0.0.0/4");
  EXPECT_EQ(refusalOf("no group 240.0.0.1/8"),
            "group address or range '240.0.0.1/8' is not within 224.0.0.0/4");
}

TEST(StatementParser, ShowRpHashSummary_BothFamiliesOrOne) {
  EXPECT_FALSE(statementAs<ShowRpHashSummaryStatement>("show rp-hash summary").af);
  EXPECT_EQ(statementAs<ShowRpHashSummaryStatement>("show rp-hash summary ipv6").af,
            Ipkit::AddressFamily::ipv6);
  EXPECT_EQ(refusalOf("show rp-hash summary ipv7"),
            "expected 'ipv4' or 'ipv6' after 'show rp-hash summary', got 'ipv7'");
  EXPECT_EQ(refusalOf("show rp-hash summary ipv4 mode sparse"),
            "unexpected 'mode' after 'show rp-hash summary ipv4'");
  EXPECT_EQ(refusalOf("show rp-hash merged"),
            "expected 'final', 'static', 'bsr' or 'summary' after 'show rp-hash', got 'merged'");
}

TEST(StatementParser, Numbers_KeepTheirWordAndSaturate) {
  const auto s = statementAs<RpGroupStatement>(
      "rp-address 10.0.0.1 group 239.0.0.0/8 priority 0099999999999999999999999999");
  EXPECT_EQ(s.options.priority.number.word, "0099999999999999999999999999");
  EXPECT_GT(s.options.priority.number.value, 4294967295u);
}

TEST(StatementParser, Keywords_AreLowerCase) {
  EXPECT_EQ(refusalOf("RP-ADDRESS 10.0.0.1 group 239.0.0.0/8"),
            "unknown statement 'RP-ADDRESS' (keywords are lower case)");
  EXPECT_EQ(refusalOf("show RP 239.1.1.1"),
            "expected 'rp', 'candidates', 'acl', 'rp-hash', 'local-rp', 'group-filter', "
            "'alloc-requests', 'review', 'config' or 'embedded-rp' after 'show', got 'RP' "
            "(keywords are lower case)");
  EXPECT_EQ(refusalOf("acl A seq 1 Permit any"),
            "expected 'permit' or 'deny' after 'acl A seq 1', got 'Permit' (keywords are lower "
            "case)");
  EXPECT_EQ(refusalOf("bogus"), "unknown statement 'bogus'");
}

TEST(StatementParser, RuleMatchesOfOtherDialects_SayHowToWriteThem) {
  EXPECT_EQ(refusalOf("acl A seq 1 permit ANY"),
            "invalid rule match 'ANY': keywords are lower case: write 'any'");
  EXPECT_EQ(refusalOf("acl A seq 1 permit host 10.0.0.1"),
            "invalid rule match 'host': expected 'any' or a prefix ADDRESS/LENGTH: write one "
            "host as 10.0.0.1/32");
  EXPECT_EQ(refusalOf("acl A seq 1 permit host"),
            "invalid rule match 'host': expected 'any' or a prefix ADDRESS/LENGTH");
  EXPECT_EQ(refusalOf("acl A seq 1 deny 239.1.1.1"),
            "invalid rule match '239.1.1.1': expected 'any' or a prefix ADDRESS/LENGTH "
            "(239.1.1.1/32 for this one address)");
  EXPECT_EQ(refusalOf("acl A seq 1 deny everything"),
            "invalid rule match 'everything': expected 'any' or a prefix ADDRESS/LENGTH");
  EXPECT_EQ(refusalOf("acl A seq 1 permit 239.0.0.1/8"),
            "rule prefix '239.0.0.1/8' has host bits set (the range is 239.0.0.0/8)");
  EXPECT_EQ(refusalOf("acl A seq 1 permit"),
            "missing 'any' or rule prefix ADDRESS/LENGTH after 'acl A seq 1 permit'");
}

TEST(StatementParser, LeadingZeroOctets_AreRefusedWithTheAddressWithoutThem) {
  EXPECT_EQ(refusalOf("rp-address 010.0.0.1 group 239.0.0.0/8"),
            "invalid RP address '010.0.0.1': octet '010' has a leading zero, which some tools "
            "read as octal: write '10.0.0.1'");
  EXPECT_EQ(refusalOf("rp-address 10.00.0.01 group 239.0.0.0/8"),
            "invalid RP address '10.00.0.01': octet '00' has a leading zero, which some tools "
            "read as octal: write '10.0.0.1'");
  EXPECT_EQ(refusalOf("rp-address ::ffff:10.0.0.010 group ff0e::/16"),
            "invalid RP address '::ffff:10.0.0.010': octet '010' has a leading zero, which some "
            "tools read as octal: write '::ffff:10.0.0.10'");
  EXPECT_EQ(refusalOf("route 010.0.0.0/8 type 1"),
            "invalid route prefix '010.0.0.0/8': octet '010' has a leading zero, which some "
            "tools read as octal: write '10.0.0.0/8'");
  EXPECT_EQ(refusalOf("group 0239.1.1.1"),
            "invalid group address or range '0239.1.1.1': octet '0239' has a leading zero, "
            "which some tools read as octal: write '239.1.1.1'");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0/8"), "");
  EXPECT_EQ(refusalOf("rp-address 0.0.0.1 group 239.0.0.0/8"), "");
  EXPECT_EQ(refusalOf("rp-address 2001:db8::0010 group ff0e::/16"), "");
}

TEST(StatementParser, MissingAndExtraWords_AreNamed) {
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group"),
            "missing group range after 'rp-address 10.0.0.1 group'");
  EXPECT_EQ(refusalOf("no"),
            "missing 'rp-address', 'acl', 'bsr-rp', 'group', 'route' or 'embedded-rp' after "
            "'no'");
  EXPECT_EQ(refusalOf("show candidates static now"),
            "unexpected 'now' after 'show candidates static'");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0/8 priority 1 priority 2"),
            "'priority' given twice");
}

TEST(StatementParser, BadValues_QuoteTheWord) {
  EXPECT_EQ(refusalOf("rp-address 10.0.0.256 group 239.0.0.0/8"),
            "invalid RP address '10.0.0.256': not an IPv4 or IPv6 address");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0"),
            "invalid group range '239.0.0.0': expected ADDRESS/LENGTH");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0/33"),
            "invalid group range '239.0.0.0/33': length above 32");
  EXPECT_EQ(refusalOf("acl A seq -1 permit any"),
            "invalid sequence number '-1': not a decimal number");
  EXPECT_EQ(refusalOf("acl A/B seq 1 permit any"),
            "invalid access-list name 'A/B': use letters, digits, '_', '-' and '.'");
}

TEST(StatementParser, CrLfLines_ReadLikeLfLines) {
  const auto s = statementAs<RpModeStatement>("rp-address 10.0.0.1 mode bidir\r");
  EXPECT_EQ(s.mode, Routing::Pim::modePimBidir);
}

TEST(StatementParser, UnprintableBytes_AreQuotedEscaped) {
  EXPECT_EQ(refusalOf(std::string("show acl A\x01\xff", 12)),
            "invalid access-list name 'A\\x01\\xff': use letters, digits, '_', '-' and '.'");
  EXPECT_EQ(refusalOf(std::string("rp\0x", 4)), "unknown statement 'rp\\x00x'");
}

TEST(StatementParser, AclNames_AreLimitedInLength) {
  const std::string longest(100, 'a');
  EXPECT_EQ(statementAs<ShowAclStatement>("show acl " + longest).acl, longest);
  EXPECT_EQ(refusalOf("show acl " + longest + "a"),
            "access-list name '" + std::string(60, 'a') + "...' is longer than 100 characters");
}

TEST(StatementParser, LongWords_QuotedUpTo60CharactersAndMarkedWhereCut) {
  const std::string huge(1 << 20, 'z');
  EXPECT_EQ(refusalOf(huge), "unknown statement '" + std::string(60, 'z') + "...'");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group " + std::string(61, '9')),
            "invalid group range '" + std::string(60, '9') + "...': expected ADDRESS/LENGTH");
  // Each word of a quoted statement is cut on its own; a word of exactly 60 is not cut.
  EXPECT_EQ(refusalOf("acl " + std::string(80, 'b') + " seq 1 permit"),
            "missing 'any' or rule prefix ADDRESS/LENGTH after 'acl " + std::string(60, 'b') +
                "... seq 1 permit'");
  EXPECT_EQ(refusalOf("show rp " + std::string(60, 'c') + " " + std::string(70, 'd')),
            "invalid group address '" + std::string(60, 'c') + "': not an IPv4 or IPv6 address");
  // Escaped bytes count as one character each.
  EXPECT_EQ(
      quoted(std::string(61, '\x01')), "'" + [] {
        std::string escaped;
        for (int i = 0; i < 60; ++i) escaped += "\\x01";
        return escaped;
      }() + "...'");
  EXPECT_EQ(quoted("a b"), "'a b'");
}

}  // namespace
