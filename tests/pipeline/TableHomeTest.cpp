#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pipeline/TableHome.h"

namespace {

using namespace PimrpPipeline;
using Ipkit::AddressFamily;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimSm;

TEST(TableRole, Role_NamesFamilyModeSourceKind) {
  EXPECT_EQ(tableRole(AddressFamily::ipv4, HashSource::staticRp, HashKind::groups, modePimSm),
            "ipv4.sparse.static.groups");
  EXPECT_EQ(tableRole(AddressFamily::ipv6, HashSource::final, HashKind::prefixes, modePimBidir),
            "ipv6.bidir.final.prefixes");
  EXPECT_EQ(tableRole(AddressFamily::ipv4, HashSource::bsr, HashKind::prefixes, modePimSm),
            "ipv4.sparse.bsr.prefixes");
}

TEST(TableRole, LongestRole_IsTheOneItsLengthSays) {
  std::size_t longest = 0;
  forEachTableRole(
      [&](AddressFamily af, HashSource source, HashKind kind, Routing::Pim::Mode mode) {
        longest = std::max(longest, tableRole(af, source, kind, mode).size() + 1);
      });
  EXPECT_EQ(longest, kLongestRoleLength);
}

TEST(TableHome, Names_All24InFixedOrder) {
  const std::vector<std::string> names = sharedTableNames("lab");
  ASSERT_EQ(names.size(), 24u);
  EXPECT_EQ(names[0], "lab.ipv4.sparse.static.groups");
  EXPECT_EQ(names[1], "lab.ipv4.sparse.static.prefixes");
  EXPECT_EQ(names[2], "lab.ipv4.sparse.bsr.groups");
  EXPECT_EQ(names[5], "lab.ipv4.sparse.final.prefixes");
  EXPECT_EQ(names[6], "lab.ipv4.bidir.static.groups");
  EXPECT_EQ(names[12], "lab.ipv6.sparse.static.groups");
  EXPECT_EQ(names[23], "lab.ipv6.bidir.final.prefixes");
}

TEST(TableHome, DefaultVrf_NamesItsTablesWithoutTheVrf) {
  EXPECT_EQ(sharedTableNames("lab", L3::VrfName("default")), sharedTableNames("lab"));
  EXPECT_EQ(sharedTableName("lab", L3::VrfName(), AddressFamily::ipv6, HashSource::bsr,
                            HashKind::groups, modePimBidir),
            "lab.ipv6.bidir.bsr.groups");
}

TEST(TableHome, OtherVrf_NamesItsTablesAfterTheCommonNameAndTheVrf) {
  const std::vector<std::string> names = sharedTableNames("lab", L3::VrfName("red"));
  ASSERT_EQ(names.size(), 24u);
  EXPECT_EQ(names[0], "lab.vrf.red.ipv4.sparse.static.groups");
  EXPECT_EQ(names[23], "lab.vrf.red.ipv6.bidir.final.prefixes");
}

TEST(TableHome, LongestTableName_CountsTheVrfAndTheLongestRole) {
  EXPECT_EQ(longestTableName("lab", L3::VrfName()), 3u + 28u);
  EXPECT_EQ(longestTableName("lab", L3::VrfName("red")), 3u + 8u + 28u);
  std::size_t longest = 0;
  for (const auto& name : sharedTableNames("lab", L3::VrfName("red"))) {
    longest = std::max(longest, name.size());
  }
  EXPECT_EQ(longest, longestTableName("lab", L3::VrfName("red")));
}

TEST(TableHome, ProcessHome_TableInProcessMemory) {
  const auto table = rpHashTableIn(TableHome(), L3::VrfName(), AddressFamily::ipv4,
                                   HashSource::final, HashKind::groups, modePimSm);
  EXPECT_FALSE(table->rpHash().shared());
  EXPECT_EQ(table->rpHashs(), 0u);
}

}  // namespace
