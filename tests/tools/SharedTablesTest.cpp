#include <gtest/gtest.h>

#include <string>

#include "tools/SharedTables.h"

namespace {

using namespace PimrpTool;

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

}  // namespace
