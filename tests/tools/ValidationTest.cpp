#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/Refusal.h"
#include "tests/tools/ToolTestSupport.h"
#include "tools/StatementError.h"
#include "tools/Validation.h"

namespace {

using namespace PimrpTool;
using ToolTest::statementOf;

// The message of the refusal of `line` by `validator`, or "" when it is accepted.
std::string refusalOf(Validator& validator, const std::string& line) {
  return TestSupport::refusalOf<StatementError>([&] { validator.check(statementOf(line)); });
}

std::string refusalOf(const std::string& line) {
  Validator validator;
  return refusalOf(validator, line);
}

TEST(Validation, Priority_ZeroTo255) {
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0/8 priority 0"), "");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0/8 priority 255"), "");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0/8 priority 256"),
            "priority '256' out of range 0..255");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 acl A priority 0256"),
            "priority '0256' out of range 0..255");
  EXPECT_EQ(refusalOf("bsr-rp 239.0.0.0/8 10.0.0.1 priority 999 hashmask 30 mode sparse"),
            "priority '999' out of range 0..255");
}

TEST(Validation, HashMask_ByFamilyOfTheGroupRange) {
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0/8 hashmask 32"), "");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 239.0.0.0/8 hashmask 33"),
            "hashmask '33' out of range 0..32 for an IPv4 group range");
  EXPECT_EQ(refusalOf("rp-address 2001:db8::1 group ff0e::/16 hashmask 128"), "");
  EXPECT_EQ(refusalOf("rp-address 2001:db8::1 group ff0e::/16 hashmask 129"),
            "hashmask '129' out of range 0..128 for an IPv6 group range");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 acl A hashmask 33"),
            "hashmask '33' out of range 0..32 for an IPv4 group range");
  EXPECT_EQ(refusalOf("bsr-rp ff0e::/16 2001:db8::1 priority 1 hashmask 129 mode sparse"),
            "hashmask '129' out of range 0..128 for an IPv6 group range");
}

TEST(Validation, Sequence_OneTo4294967295) {
  EXPECT_EQ(refusalOf("acl A seq 1 permit any"), "");
  EXPECT_EQ(refusalOf("acl A seq 4294967295 permit any"), "");
  EXPECT_EQ(refusalOf("acl A seq 0 permit any"), "sequence number '0' out of range 1..4294967295");
  EXPECT_EQ(refusalOf("no acl A seq 4294967296"),
            "sequence number '4294967296' out of range 1..4294967295");
}

TEST(Validation, RpAndGroupRange_OfOneFamily) {
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group ff0e::/16"),
            "RP '10.0.0.1' and group range 'ff0e::/16' are of different families");
  EXPECT_EQ(refusalOf("bsr-rp 239.0.0.0/8 2001:db8::1 priority 1 hashmask 30 mode sparse"),
            "RP '2001:db8::1' and group range '239.0.0.0/8' are of different families");
  EXPECT_EQ(refusalOf("no rp-address 2001:db8::1 group 239.0.0.0/8"),
            "RP '2001:db8::1' and group range '239.0.0.0/8' are of different families");
}

TEST(Validation, GroupRanges_WithinTheMulticastSpace) {
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 224.0.0.0/4"), "");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 224.0.0.0/3"),
            "group range '224.0.0.0/3' is not within 224.0.0.0/4");
  EXPECT_EQ(refusalOf("rp-address 10.0.0.1 group 240.0.0.0/4"),
            "group range '240.0.0.0/4' is not within 224.0.0.0/4");
  EXPECT_EQ(refusalOf("rp-address 2001:db8::1 group ff00::/8"), "");
  EXPECT_EQ(refusalOf("rp-address 2001:db8::1 group fe00::/7"),
            "group range 'fe00::/7' is not within ff00::/8");
  EXPECT_EQ(refusalOf("no bsr-rp 10.0.0.0/8 10.0.0.1"),
            "group range '10.0.0.0/8' is not within 224.0.0.0/4");
}

TEST(Validation, RpAddresses_AreUnicast) {
  EXPECT_EQ(refusalOf("rp-address 239.1.1.1 group 239.0.0.0/8"),
            "RP address '239.1.1.1' is not a unicast address: it is a multicast address");
  EXPECT_EQ(refusalOf("rp-address 0.0.0.0 mode bidir"),
            "RP address '0.0.0.0' is not a unicast address: it is the unspecified address");
  EXPECT_EQ(refusalOf("no rp-address ::"),
            "RP address '::' is not a unicast address: it is the unspecified address");
  EXPECT_EQ(refusalOf("rp-address 255.255.255.255 group 239.0.0.0/8"),
            "RP address '255.255.255.255' is not a unicast address: it is the broadcast address");
}

TEST(Validation, RpAddressesMappedFromIpv4_AreJudgedByTheIpv4Address) {
  EXPECT_EQ(refusalOf("rp-address ::ffff:239.1.1.1 group ff0e::/16"),
            "RP address '::ffff:239.1.1.1' is not a unicast address: it maps IPv4 address "
            "239.1.1.1, which is a multicast address");
  EXPECT_EQ(refusalOf("rp-address ::ffff:0.0.0.0 mode sparse"),
            "RP address '::ffff:0.0.0.0' is not a unicast address: it maps IPv4 address 0.0.0.0, "
            "which is the unspecified address");
  EXPECT_EQ(refusalOf("no rp-address ::ffff:255.255.255.255"),
            "RP address '::ffff:255.255.255.255' is not a unicast address: it maps IPv4 address "
            "255.255.255.255, which is the broadcast address");
  // A mapped unicast address, loopback and link-local addresses are accepted.
  EXPECT_EQ(refusalOf("rp-address ::ffff:10.0.0.1 group ff0e::/16"), "");
  EXPECT_EQ(refusalOf("rp-address 127.0.0.1 group 239.0.0.0/8"), "");
  EXPECT_EQ(refusalOf("rp-address fe80::1 group ff0e::/16"), "");
  EXPECT_EQ(refusalOf("rp-address ::1 group ff0e::/16"), "");
}

TEST(Validation, AccessLists_AreIpv4) {
  EXPECT_EQ(refusalOf("acl A seq 10 permit ff00::/8"),
            "access-list rule prefix 'ff00::/8' is not IPv4: access lists are IPv4 only");
  EXPECT_EQ(refusalOf("rp-address 2001:db8::1 acl A"),
            "RP '2001:db8::1' cannot use access list 'A': access lists are IPv4 only");
  EXPECT_EQ(refusalOf("no rp-address 2001:db8::1 acl A"),
            "RP '2001:db8::1' cannot use access list 'A': access lists are IPv4 only");
  EXPECT_EQ(refusalOf("acl A seq 10 permit 10.0.0.0/8"), "");
}

TEST(Validation, ShowRp_MulticastGroupAndJoinOfItsFamily) {
  EXPECT_EQ(refusalOf("show rp 10.1.1.1"), "group '10.1.1.1' is not a multicast address");
  EXPECT_EQ(refusalOf("show rp 239.1.1.1 join 2001:db8::1"),
            "join RP '2001:db8::1' and group '239.1.1.1' are of different families");
  EXPECT_EQ(refusalOf("show rp 239.1.1.1 join 239.2.2.2"),
            "RP address '239.2.2.2' is not a unicast address: it is a multicast address");
  EXPECT_EQ(refusalOf("show rp 239.1.1.1 join 255.255.255.255"),
            "RP address '255.255.255.255' is not a unicast address: it is the broadcast address");
  EXPECT_EQ(refusalOf("show rp ff0e::1 join ::ffff:239.1.1.1"),
            "RP address '::ffff:239.1.1.1' is not a unicast address: it maps IPv4 address "
            "239.1.1.1, which is a multicast address");
  EXPECT_EQ(refusalOf("show rp ff0e::1 join 2001:db8::1 mode bidir"), "");
}

TEST(Validation, VrfName_WithinTheLimitOfItsType) {
  EXPECT_EQ(refusalOf("vrf " + std::string(100, 'v')), "");
  EXPECT_EQ(refusalOf("vrf " + std::string(101, 'v')),
            "VRF name '" + std::string(60, 'v') + "...' is longer than 100 characters");
}

TEST(Validation, Vrf_OpensASectionAnywhere) {
  Validator validator;
  EXPECT_EQ(validator.vrf(), "default");
  EXPECT_EQ(refusalOf(validator, "rp-address 10.0.0.1 mode bidir"), "");
  EXPECT_EQ(refusalOf(validator, "vrf red"), "");
  EXPECT_EQ(validator.vrf(), "red");
  EXPECT_EQ(refusalOf(validator, "rp-address 10.0.0.1 mode bidir"), "");
  EXPECT_EQ(refusalOf(validator, "vrf default"), "");
  EXPECT_EQ(validator.vrf(), "default");
}

TEST(Validation, VrfName_ShortEnoughForTheNamesOfItsSharedTables) {
  // 200 characters at most: "lab" + ".vrf." + the name + ".ipv6.sparse.static.prefixes".
  Validator validator("", kDefaultMaxGroups, std::string(80, 'n'));
  EXPECT_EQ(refusalOf(validator, "vrf " + std::string(87, 'v')), "");
  EXPECT_EQ(refusalOf(validator, "vrf " + std::string(88, 'v')),
            "VRF name '" + std::string(60, 'v') + "...' is too long for the shared tables '" +
                std::string(80, 'n') +
                "': their names would have up to 201 characters, above the limit of 200");
  Validator reader(std::string(80, 'n'));
  EXPECT_NE(refusalOf(reader, "show rp-hash final groups mode sparse vrf " + std::string(88, 'v')),
            "");
}

TEST(Validation, Show_NamingAVrfThatIsNotOpen_Refused) {
  Validator validator;
  EXPECT_EQ(refusalOf(validator, "show candidates static vrf blue"),
            "VRF 'blue' is not open: 'vrf blue' opens it");
  EXPECT_EQ(refusalOf(validator, "show rp 239.1.1.1 vrf blue mode sparse"),
            "VRF 'blue' is not open: 'vrf blue' opens it");
  EXPECT_EQ(refusalOf(validator, "show rp-hash summary ipv4 vrf blue"),
            "VRF 'blue' is not open: 'vrf blue' opens it");
  EXPECT_EQ(refusalOf(validator, "show config vrf default"), "");
  EXPECT_EQ(refusalOf(validator, "vrf blue"), "");
  EXPECT_EQ(refusalOf(validator, "vrf red"), "");
  EXPECT_EQ(refusalOf(validator, "show candidates static vrf blue"), "");
  EXPECT_EQ(refusalOf(validator, "show rp-hash summary vrf blue"), "");
}

TEST(Validation, Vrfs_AtMostTheLimit) {
  Validator validator;
  // "default" is open from the start.
  for (std::size_t index = 1; index < kMaxVrfs; ++index) {
    ASSERT_EQ(refusalOf(validator, "vrf v" + std::to_string(index)), "");
  }
  EXPECT_EQ(refusalOf(validator, "vrf one-more"), "vrf 'one-more' would open more than 256 VRFs");
  EXPECT_EQ(refusalOf(validator, "vrf v1"), "");
  EXPECT_EQ(refusalOf(validator, "vrf default"), "");
  EXPECT_EQ(validator.vrf(), "default");
}

TEST(Validation, RefusedVrf_LeavesTheSectionAsItWas) {
  Validator validator;
  EXPECT_EQ(refusalOf(validator, "vrf red"), "");
  EXPECT_NE(refusalOf(validator, "vrf " + std::string(101, 'v')), "");
  EXPECT_EQ(validator.vrf(), "red");
}

TEST(Validation, ReadOnly_ShowRpHashAccepted) {
  Validator validator("lab");
  EXPECT_EQ(refusalOf(validator, "show rp-hash final groups mode sparse"), "");
  EXPECT_EQ(refusalOf(validator, "show rp-hash bsr prefixes mode bidir ipv6"), "");
}

// Each line with the keywords its refusal names.
using NamedLines = std::vector<std::pair<std::string, std::string>>;

TEST(Validation, ReadOnly_StatementThatChangesState_RefusedByName) {
  Validator validator("lab");
  const std::string why =
      "' would change state, and this is a read-only attachment to the shared tables 'lab'";
  for (const auto& [line, words] :
       NamedLines{{"rp-address 10.0.0.1 group 239.0.0.0/8", "rp-address"},
                  {"rp-address 10.0.0.1 mode bidir", "rp-address"},
                  {"no rp-address 10.0.0.1", "no rp-address"},
                  {"bsr-rp 239.0.0.0/8 10.0.0.1 priority 0 hashmask 30 mode sparse", "bsr-rp"},
                  {"no bsr-rp 239.0.0.0/8 10.0.0.1", "no bsr-rp"},
                  {"group 239.1.1.1", "group"},
                  {"no group 239.1.1.1", "no group"},
                  {"acl A seq 10 permit any", "acl"},
                  {"no acl A", "no acl"},
                  {"vrf red", "vrf"},
                  {"rp-hash-algorithm modulo", "rp-hash-algorithm"},
                  {"route 10.0.0.0/8 local eth0", "route"},
                  {"no route 10.0.0.0/8", "no route"},
                  {"shadow ipv4 detach", "shadow"},
                  {"attr-log clogged", "attr-log"},
                  {"run 1", "run"},
                  {"clock manual", "clock"}}) {
    EXPECT_EQ(refusalOf(validator, line), "'" + words + why) << line;
  }
}

TEST(Validation, ReadOnly_ShowThatNeedsWriterState_NotAvailable) {
  Validator validator("lab");
  const std::string why =
      "' is not available in a read-only attachment to the shared tables 'lab': it needs the "
      "writer's own state; only 'show rp-hash' reads the tables";
  for (const auto& [line, words] : NamedLines{{"show rp 239.1.1.1", "show rp"},
                                              {"show candidates static", "show candidates"},
                                              {"show acl A", "show acl"},
                                              {"show local-rp", "show local-rp"},
                                              {"show group-filter 239.1.1.1", "show group-filter"},
                                              {"show alloc-requests", "show alloc-requests"},
                                              {"show review", "show review"},
                                              {"show rp mapping", "show rp mapping"},
                                              {"show config", "show config"},
                                              {"show rp-hash summary", "show rp-hash summary"}}) {
    EXPECT_EQ(refusalOf(validator, line), "'" + words + why) << line;
  }
}

TEST(Validation, ReadOnly_RefusalLeavesTheRecordAsItWas) {
  Validator validator("lab");
  EXPECT_NE(refusalOf(validator, "group 239.1.1.1"), "");
  EXPECT_NE(refusalOf(validator, "vrf red"), "");
  EXPECT_EQ(validator.knownGroups(Ipkit::AddressFamily::ipv4), 0u);
  EXPECT_EQ(validator.vrf(), "default");
}

TEST(Validation, ReadOnly_ShowMayNameAnyVrf) {
  Validator validator("lab");
  EXPECT_EQ(refusalOf(validator, "show rp-hash final groups mode sparse ipv4 vrf blue"), "");
  EXPECT_EQ(
      refusalOf(validator, "show rp-hash final groups mode sparse vrf " + std::string(101, 'v')),
      "VRF name '" + std::string(60, 'v') + "...' is longer than 100 characters");
}

TEST(Validation, HostRouteToAnAddressNoRouterHas_Refused) {
  EXPECT_EQ(refusalOf("route 255.255.255.255/32 type 1"),
            "route prefix '255.255.255.255/32' is not a unicast prefix: it is the broadcast "
            "address");
  EXPECT_EQ(refusalOf("no route 255.255.255.255/32"),
            "route prefix '255.255.255.255/32' is not a unicast prefix: it is the broadcast "
            "address");
  EXPECT_EQ(refusalOf("route 0.0.0.0/32 type 1"),
            "route prefix '0.0.0.0/32' is not a unicast prefix: it is the unspecified address");
  EXPECT_EQ(refusalOf("route 255.255.255.254/32 type 1"), "");
  EXPECT_EQ(refusalOf("route 255.255.255.0/24 type 1"), "");
  EXPECT_EQ(refusalOf("route 0.0.0.0/0 type 1"), "");
}

TEST(Validation, KnownGroups_BoundedPerFamily_RefusedStatementCountsNothing) {
  Validator validator("", 300);
  EXPECT_EQ(refusalOf(validator, "group 239.1.1.0/24"), "");
  EXPECT_EQ(refusalOf(validator, "group 239.1.1.7"), "");
  EXPECT_EQ(refusalOf(validator, "group 239.1.2.0/27"), "");
  EXPECT_EQ(refusalOf(validator, "group 239.1.3.0/27"),
            "'239.1.3.0/27' would bring the known IPv4 groups to 320, above the limit of 300 "
            "(--max-groups)");
  EXPECT_EQ(validator.knownGroups(Ipkit::AddressFamily::ipv4), 288u);
  EXPECT_EQ(refusalOf(validator, "group ff0e::/120"), "");
  EXPECT_EQ(refusalOf(validator, "group ff0e::1:0/122"),
            "'ff0e::1:0/122' would bring the known IPv6 groups to 320, above the limit of 300 "
            "(--max-groups)");
  EXPECT_EQ(refusalOf(validator, "no group 239.1.1.0/25"), "");
  EXPECT_EQ(refusalOf(validator, "group 239.1.3.0/27"), "");
  EXPECT_EQ(validator.knownGroups(Ipkit::AddressFamily::ipv4), 192u);
  EXPECT_EQ(validator.knownGroups(Ipkit::AddressFamily::ipv6), 256u);
}

TEST(Validation, KnownGroups_CountedOverEveryVrf_AGroupOfTwoVrfsTwice) {
  Validator validator("", 300);
  EXPECT_EQ(refusalOf(validator, "group 239.1.1.0/24"), "");
  EXPECT_EQ(refusalOf(validator, "vrf red"), "");
  EXPECT_EQ(refusalOf(validator, "group 239.1.1.0/27"), "");
  EXPECT_EQ(refusalOf(validator, "group 239.1.1.0/26"),
            "'239.1.1.0/26' would bring the known IPv4 groups to 320, above the limit of 300 "
            "(--max-groups)");
  EXPECT_EQ(validator.knownGroups(Ipkit::AddressFamily::ipv4), 288u);
  EXPECT_EQ(refusalOf(validator, "vrf default"), "");
  EXPECT_EQ(refusalOf(validator, "no group 239.1.1.0/27"), "");
  EXPECT_EQ(validator.knownGroups(Ipkit::AddressFamily::ipv4), 256u);
}

TEST(Validation, KnownGroups_DefaultAdmitsFourMillionAndNoMore) {
  Validator validator;
  for (const char* range : {"239.0.0.0/12", "239.16.0.0/12", "239.32.0.0/12", "239.48.0.0/12"}) {
    EXPECT_EQ(refusalOf(validator, std::string("group ") + range), "");
  }
  EXPECT_EQ(validator.knownGroups(Ipkit::AddressFamily::ipv4), 4194304u);
  EXPECT_EQ(refusalOf(validator, "group 238.0.0.1"),
            "'238.0.0.1' would bring the known IPv4 groups to 4194305, above the limit of "
            "4194304 (--max-groups)");
  EXPECT_EQ(refusalOf(validator, "group 239.1.2.3"), "");
}

}  // namespace
