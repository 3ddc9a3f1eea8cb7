#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/SharedTables.h"

namespace {

using namespace PimrpTool;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimSm;

TEST(SharedTables, PlainName_Accepted) {
  EXPECT_EQ(sharedNameRefusal("lab"), "");
  EXPECT_EQ(sharedNameRefusal("Lab_2.test-run"), "");
  EXPECT_EQ(sharedNameRefusal(std::string(kMaxSharedNameLength, 'a')), "");
}

TEST(SharedTables, BadName_RefusedWithReason) {
  EXPECT_EQ(sharedNameRefusal(""), "the table name is empty");
  EXPECT_EQ(sharedNameRefusal("a/b"),
            "table name 'a/b' holds '/': use only letters, digits, '.', '_' and '-'");
  EXPECT_EQ(sharedNameRefusal("a b"),
            "table name 'a b' holds ' ': use only letters, digits, '.', '_' and '-'");
  EXPECT_EQ(sharedNameRefusal("lab\x01"),
            "table name 'lab\\x01' holds '\\x01': use only letters, digits, '.', '_' and '-'");
  EXPECT_EQ(sharedNameRefusal(".lab"), "table name '.lab' starts with '.'");
  EXPECT_EQ(sharedNameRefusal(std::string(kMaxSharedNameLength + 1, 'a')),
            "table name '" + std::string(60, 'a') + "...' is longer than 172 characters");
}

TEST(SharedTables, Role_NamesFamilyModeSourceKind) {
  EXPECT_EQ(
      tableRole(Ipkit::AddressFamily::ipv4, HashSource::staticRp, HashKind::groups, modePimSm),
      "ipv4.sparse.static.groups");
  EXPECT_EQ(
      tableRole(Ipkit::AddressFamily::ipv6, HashSource::final, HashKind::prefixes, modePimBidir),
      "ipv6.bidir.final.prefixes");
  EXPECT_EQ(tableRole(Ipkit::AddressFamily::ipv4, HashSource::bsr, HashKind::prefixes, modePimSm),
            "ipv4.sparse.bsr.prefixes");
}

TEST(SharedTables, Names_All24InFixedOrder) {
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

TEST(SharedTables, ProcessHome_TableInProcessMemory) {
  const auto table = rpHashTableIn(TableHome(), Ipkit::AddressFamily::ipv4, HashSource::final,
                                   HashKind::groups, modePimSm);
  EXPECT_FALSE(table->rpHash().shared());
  EXPECT_EQ(table->rpHashs(), 0u);
}

}  // namespace
