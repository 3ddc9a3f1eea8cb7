#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/ToolTestSupport.h"
#include "tools/StatementWarnings.h"

namespace {

using PimrpTool::statementWarnings;
using ToolTest::statementOf;
using Warnings = std::vector<std::string>;

Warnings warningsOf(const std::string& line) { return statementWarnings(statementOf(line)); }

TEST(StatementWarnings, ValuesSetOrLeftToDefaults_WarnNothing) {
  EXPECT_EQ(warningsOf("rp-address 10.0.0.1 group 239.0.0.0/8"), Warnings{});
  EXPECT_EQ(warningsOf("rp-address 10.0.0.1 group 239.0.0.0/8 priority 255 hashmask 0"),
            Warnings{});
  EXPECT_EQ(warningsOf("rp-address 2001:db8::1 group ff0e::/16 hashmask 97"), Warnings{});
  EXPECT_EQ(warningsOf("rp-address 2001:db8::1 group ff0e::/16"), Warnings{});
  EXPECT_EQ(warningsOf("bsr-rp ff0e::/16 2001:db8::9 priority 1 hashmask 126 mode sparse"),
            Warnings{});
  EXPECT_EQ(warningsOf("show rp 239.1.1.1"), Warnings{});
}

TEST(StatementWarnings, GroupBindingWithValuesNone_LeavesThemNotSet) {
  EXPECT_EQ(warningsOf("rp-address 10.0.0.1 group 239.0.0.0/8 priority none"),
            Warnings{"RP 10.0.0.1 for 239.0.0.0/8: 'priority none' leaves the priority not set; "
                     "the per-range RP hash tables get no entry from this candidate until it is "
                     "set"});
  EXPECT_EQ(warningsOf("rp-address 10.0.0.1 group 239.0.0.0/8 hashmask none priority none"),
            Warnings{"RP 10.0.0.1 for 239.0.0.0/8: 'priority none' leaves the priority not set "
                     "and 'hashmask none' leaves the hash mask not set; the per-range RP hash "
                     "tables get no entry from this candidate until both are set"});
}

TEST(StatementWarnings, ListBindingWithValuesNone_SetsNone) {
  EXPECT_EQ(warningsOf("rp-address 10.0.0.1 acl A hashmask none"),
            Warnings{"RP 10.0.0.1 for access list 'A': 'hashmask none' sets no hash mask; a "
                     "candidate the list creates for this RP has it not set, and the per-range "
                     "RP hash tables get no entry from it until it is set"});
}

TEST(StatementWarnings, Ipv6HashMask128_IsTheValueNotSet) {
  EXPECT_EQ(warningsOf("rp-address 2001:db8::1 group ff0e::/16 hashmask 128"),
            Warnings{"RP 2001:db8::1 for ff0e::/16: 'hashmask 128' is, for IPv6, the library's "
                     "value of a hash mask not set; the per-range RP hash tables get no entry "
                     "from this candidate until it is set"});
  EXPECT_EQ(warningsOf("bsr-rp ff0e::/16 2001:db8::9 priority 1 hashmask 128 mode bidir"),
            Warnings{"bootstrap candidate 2001:db8::9 for ff0e::/16: 'hashmask 128' is, for "
                     "IPv6, the library's value of a hash mask not set; the per-range RP hash "
                     "tables get no entry from this candidate until it is set"});
  EXPECT_EQ(warningsOf("rp-address 10.0.0.1 group 239.0.0.0/8 hashmask 32"), Warnings{});
}

TEST(StatementWarnings, Ipv6HashMaskOf96OrLess_SendsTheRangeToOneRp) {
  const std::string why =
      "' hashes every group of the range alike, so one RP serves them all: the IPv6 hash reads "
      "only a group's last 32 bits, which a mask of 96 or less clears";
  EXPECT_EQ(warningsOf("rp-address 2001:db8::1 group ff0e::/16 hashmask 96"),
            Warnings{"RP 2001:db8::1 for ff0e::/16: 'hashmask 96" + why});
  EXPECT_EQ(warningsOf("bsr-rp ff0e::/16 2001:db8::9 priority 1 hashmask 0 mode sparse"),
            Warnings{"bootstrap candidate 2001:db8::9 for ff0e::/16: 'hashmask 0" + why});
  EXPECT_EQ(warningsOf("rp-address 10.0.0.1 group 239.0.0.0/8 hashmask 0"), Warnings{});
}

TEST(StatementWarnings, BothKinds_OneEachInOrder) {
  const Warnings warnings = warningsOf(
      "rp-address 2001:db8::1 group ff0e::/16 priority none "
      "hashmask 64");
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_EQ(warnings[0].substr(0, 57), "RP 2001:db8::1 for ff0e::/16: 'priority none' leaves the ");
  EXPECT_EQ(warnings[1].substr(0, 42), "RP 2001:db8::1 for ff0e::/16: 'hashmask 64");
}

}  // namespace
