#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/RunningConfig.h"

namespace {

using Ipkit::AddressFamily;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using PimrpTool::groupRanges;

std::vector<std::string> texts(const std::vector<IpGenPrefix>& ranges) {
  std::vector<std::string> out;
  for (const auto& range : ranges) out.push_back(range.valueToStrep());
  return out;
}

void groupsFrom(std::uint32_t first, std::uint32_t last, Routing::Pim::GroupStatus& groups) {
  for (std::uint32_t address = first; address <= last; ++address) {
    groups.groupIs(IpGenAddr::ip4(address), true);
  }
}

TEST(GroupRanges, NoGroups_NoRange) {
  const Routing::Pim::GroupStatus groups;
  EXPECT_TRUE(groupRanges(groups, AddressFamily::ipv4, 20).empty());
}

TEST(GroupRanges, UnalignedRun_FewestAlignedRanges) {
  Routing::Pim::GroupStatus groups;
  groupsFrom(0xef000003u, 0xef00000cu, groups);  // 239.0.0.3 .. 239.0.0.12
  EXPECT_EQ(
      texts(groupRanges(groups, AddressFamily::ipv4, 20)),
      (std::vector<std::string>{"239.0.0.3/32", "239.0.0.4/30", "239.0.0.8/30", "239.0.0.12/32"}));
}

TEST(GroupRanges, RangesNoWiderThanTheCap) {
  Routing::Pim::GroupStatus groups;
  groupsFrom(0xef000000u, 0xef000009u, groups);  // 239.0.0.0 .. 239.0.0.9
  // At most 4 groups a range.
  EXPECT_EQ(texts(groupRanges(groups, AddressFamily::ipv4, 2)),
            (std::vector<std::string>{"239.0.0.0/30", "239.0.0.4/30", "239.0.0.8/31"}));
}

TEST(GroupRanges, RunsApart_EachItsOwn) {
  Routing::Pim::GroupStatus groups;
  for (const char* group :
       {"ff0e::1", "ff0e::2", "ff0e::3", "ff0e::5", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe",
        "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}) {
    groups.groupIs(IpGenAddr(group), true);
  }
  EXPECT_EQ(texts(groupRanges(groups, AddressFamily::ipv6, 20)),
            (std::vector<std::string>{"ff0e::1/128", "ff0e::2/127", "ff0e::5/128",
                                      "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe/127"}));
}

}  // namespace
