#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/ToolTestSupport.h"
#include "tools/Output.h"

namespace {

using namespace PimrpTool;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;
using Routing::Pim::RpCandidateInfo;

RpAnswer answerFor239() {
  RpAnswer answer;
  answer.group = IpGenAddr("239.1.1.1");
  answer.rp = IpGenAddr("10.0.0.1");
  answer.staticSelection =
      RpCandidateInfo(IpGenAddr("10.0.0.1"), 0, 30, false, Routing::Pim::modePimSm);
  return answer;
}

using ToolTest::humanOf;
using ToolTest::jsonOf;

TEST(JsonOutput, ShowRp_OneLineWithEmptySelectionValues) {
  EXPECT_EQ(jsonOf(answerFor239()),
            "{\"group\":\"239.1.1.1\",\"mode\":\"any\",\"rp\":\"10.0.0.1\","
            "\"static\":{\"address\":\"10.0.0.1\",\"priority\":0,\"hashMaskLen\":30,"
            "\"override\":false,\"mode\":\"sparse\"},"
            "\"bsr\":{\"address\":null,\"priority\":256,\"hashMaskLen\":128,\"override\":false,"
            "\"mode\":\"none\"},\"scope\":null}\n");
}

TEST(JsonOutput, ShowRpWithoutAnswer_RpIsNull) {
  RpAnswer answer;
  answer.group = IpGenAddr("ff0e::1");
  answer.queryMode = Routing::Pim::modePimBidir;
  EXPECT_EQ(jsonOf(answer).substr(0, 50),
            "{\"group\":\"ff0e::1\",\"mode\":\"bidir\",\"rp\":null,\"stati");
}

TEST(JsonOutput, ShowCandidates_SetsWithRps) {
  CandidateListing listing;
  listing.source = CandidateSource::bootstrap;
  listing.sets.push_back(
      {IpGenPrefix("239.0.0.0/8"),
       {RpCandidateInfo(IpGenAddr("10.0.0.1"), 10, 30, true, Routing::Pim::modePimBidir)}});
  EXPECT_EQ(jsonOf(listing),
            "{\"source\":\"bsr\",\"sets\":[{\"prefix\":\"239.0.0.0/8\",\"rps\":[{\"address\":"
            "\"10.0.0.1\",\"priority\":10,\"hashMaskLen\":30,\"override\":true,\"mode\":"
            "\"bidir\"}]}]}\n");
  EXPECT_EQ(jsonOf(CandidateListing{}), "{\"source\":\"static\",\"sets\":[]}\n");
}

TEST(JsonOutput, ShowAcl_NameConfiguredPrefixesAndIgnoredRules) {
  AclListing listing{"A",
                     true,
                     {IpGenPrefix("224.0.0.0/23"), IpGenPrefix("224.0.2.0/24")},
                     {{10, Acl::AclAction::deny, IpGenPrefix("10.0.0.0/8")}}};
  EXPECT_EQ(jsonOf(listing),
            "{\"acl\":\"A\",\"configured\":true,\"prefixes\":[\"224.0.0.0/23\",\"224.0.2.0/24\"],"
            "\"ignored\":[{\"seq\":10,\"action\":\"deny\",\"prefix\":\"10.0.0.0/8\"}]}\n");
  EXPECT_EQ(jsonOf(AclListing{"B", false, {}, {}}),
            "{\"acl\":\"B\",\"configured\":false,\"prefixes\":[],\"ignored\":[]}\n");
  EXPECT_EQ(jsonOf(AclListing{"C", true, {}, {}}),
            "{\"acl\":\"C\",\"configured\":true,\"prefixes\":[],\"ignored\":[]}\n");
}

TEST(HumanOutput, ShowAclIgnoredRules_OneNoteLineEach) {
  AclListing listing{"A",
                     true,
                     {IpGenPrefix("239.0.0.0/8")},
                     {{10, Acl::AclAction::permit, IpGenPrefix("10.0.0.0/8")},
                      {20, Acl::AclAction::deny, IpGenPrefix("192.168.0.0/16")}}};
  EXPECT_EQ(humanOf(listing),
            "acl A permits\n"
            "  239.0.0.0/8\n"
            "  note: seq 10 permit 10.0.0.0/8 is outside 224.0.0.0/4 and serves no group\n"
            "  note: seq 20 deny 192.168.0.0/16 is outside 224.0.0.0/4 and serves no group\n");
  listing.prefixes.clear();
  listing.ignored.pop_back();
  EXPECT_EQ(humanOf(listing),
            "acl A permits no group\n"
            "  note: seq 10 permit 10.0.0.0/8 is outside 224.0.0.0/4 and serves no group\n");
}

TEST(HumanOutput, UnsetPriorityAndHashMask_PrintAsDashes) {
  RpAnswer answer = answerFor239();
  answer.staticSelection =
      RpCandidateInfo(IpGenAddr("10.0.0.1"), Routing::Pim::kRpPriorityNone,
                      Routing::Pim::kRpHashMaskLenNone, false, Routing::Pim::modePimSm);
  EXPECT_EQ(humanOf(answer),
            "rp for 239.1.1.1 (any mode): 10.0.0.1\n"
            "  source  rp        priority  hashmask  override  mode\n"
            "  static  10.0.0.1  -         -         no        sparse\n"
            "  bsr     -\n");
}

TEST(HumanOutput, ShowRp_HeadlineAndOneRowPerSource) {
  RpAnswer answer = answerFor239();
  answer.join = IpGenAddr("10.9.9.9");
  EXPECT_EQ(humanOf(answer),
            "rp for 239.1.1.1 (any mode, join 10.9.9.9): 10.0.0.1\n"
            "  source  rp        priority  hashmask  override  mode\n"
            "  static  10.0.0.1  0         30        no        sparse\n"
            "  bsr     -\n");
}

TEST(HumanOutput, Answers_SeparatedByABlankLine) {
  std::ostringstream out;
  const auto output = humanOutputFactory(out);
  output->show(AclListing{"A", false, {}, {}});
  output->show(AclListing{"B", true, {}, {}});
  output->show(CandidateListing{});
  EXPECT_EQ(out.str(),
            "acl A is not configured\n\nacl B permits no group\n\nstatic candidates: none\n");
}

TEST(HumanOutput, ModeWords) {
  EXPECT_EQ(modeWord(Routing::Pim::modePimSm), "sparse");
  EXPECT_EQ(modeWord(Routing::Pim::modePimBidir), "bidir");
  EXPECT_EQ(modeWord(Routing::Pim::modePimNone), "none");
  EXPECT_EQ(queryModeWord(Routing::Pim::modePimNone), "any");
}

}  // namespace
