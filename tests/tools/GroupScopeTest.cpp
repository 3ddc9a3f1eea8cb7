#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/GroupScope.h"

namespace {

using namespace PimrpTool;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;

// "within|includes RANGE kind" for each note of a range.
std::vector<std::string> notesOf(const char* range) {
  std::vector<std::string> notes;
  for (const auto& note : rangeScope(IpGenPrefix(range))) {
    notes.push_back(std::string(note.within ? "within " : "includes ") + note.scope.range + " " +
                    scopeKindWord(note.scope.kind));
  }
  return notes;
}

std::string scopeOf(const char* group) {
  const auto scope = groupScope(IpGenAddr(group));
  return scope ? scope->range + " " + scopeKindWord(scope->kind) : "none";
}

using Strings = std::vector<std::string>;

TEST(GroupScope, Group_InTheRangeThatHoldsIt) {
  EXPECT_EQ(scopeOf("232.0.0.0"), "232.0.0.0/8 source-specific");
  EXPECT_EQ(scopeOf("232.255.255.255"), "232.0.0.0/8 source-specific");
  EXPECT_EQ(scopeOf("224.0.0.255"), "224.0.0.0/24 link-local");
  EXPECT_EQ(scopeOf("ff02::1:2"), "ff02::/16 link-local");
  EXPECT_EQ(scopeOf("ff30::1"), "ff3x::/32 source-specific");
  EXPECT_EQ(scopeOf("ff3e::8000:1"), "ff3x::/32 source-specific");
  EXPECT_EQ(scopeOf("ff3f:0:ffff::1"), "ff3x::/32 source-specific");
}

TEST(GroupScope, Group_OutsideEveryRange) {
  EXPECT_EQ(scopeOf("224.0.1.1"), "none");
  EXPECT_EQ(scopeOf("233.0.0.1"), "none");
  EXPECT_EQ(scopeOf("239.1.1.1"), "none");
  EXPECT_EQ(scopeOf("ff3e:1::1"), "none");  // past the /32
  EXPECT_EQ(scopeOf("ff0e::1"), "none");
  EXPECT_EQ(scopeOf("ff12::1"), "none");
}

TEST(GroupScope, Range_WithinOrIncludingEachScopeRange) {
  EXPECT_EQ(notesOf("224.0.0.0/4"),
            (Strings{"includes 224.0.0.0/24 link-local", "includes 232.0.0.0/8 source-specific"}));
  EXPECT_EQ(notesOf("232.0.0.0/8"), (Strings{"within 232.0.0.0/8 source-specific"}));
  EXPECT_EQ(notesOf("232.1.0.0/16"), (Strings{"within 232.0.0.0/8 source-specific"}));
  EXPECT_EQ(notesOf("224.0.0.0/28"), (Strings{"within 224.0.0.0/24 link-local"}));
  EXPECT_EQ(notesOf("224.0.0.0/16"), (Strings{"includes 224.0.0.0/24 link-local"}));
  EXPECT_EQ(notesOf("239.0.0.0/8"), Strings{});
  EXPECT_EQ(notesOf("ff00::/8"),
            (Strings{"includes ff02::/16 link-local", "includes ff3x::/32 source-specific"}));
  EXPECT_EQ(notesOf("ff35::/16"), (Strings{"includes ff3x::/32 source-specific"}));
  EXPECT_EQ(notesOf("ff35::/32"), (Strings{"within ff3x::/32 source-specific"}));
  EXPECT_EQ(notesOf("ff35:0:1::/48"), (Strings{"within ff3x::/32 source-specific"}));
  EXPECT_EQ(notesOf("ff0e::/16"), Strings{});
}

TEST(GroupScope, KindWordsAndMeanings) {
  EXPECT_STREQ(scopeKindWord(ScopeKind::sourceSpecific), "source-specific");
  EXPECT_STREQ(scopeKindWord(ScopeKind::linkLocal), "link-local");
  EXPECT_STREQ(scopeKindMeaning(ScopeKind::sourceSpecific), "routers serve them without an RP");
  EXPECT_STREQ(scopeKindMeaning(ScopeKind::linkLocal), "they are never routed");
}

}  // namespace
