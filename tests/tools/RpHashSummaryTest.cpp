#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "tests/tools/ToolTestSupport.h"
#include "tools/RpHashSummary.h"
#include "tools/Session.h"

namespace {

using namespace PimrpTool;
using Ipkit::AddressFamily;
using Ipkit::IpGenAddr;
using Routing::Pim::modePimBidir;
using Routing::Pim::modePimSm;

TEST(RpLoadSpreadTest, NoRp_PerfectlyEvenVacuously) {
  const RpLoadSpread spread = rpLoadSpreadOf({});
  EXPECT_EQ(spread.maxOverMin, 1.0);
  EXPECT_EQ(spread.cv, 0.0);
}

TEST(RpLoadSpreadTest, OneRp_PerfectlyEven) {
  const RpLoadSpread spread = rpLoadSpreadOf({7});
  EXPECT_EQ(spread.maxOverMin, 1.0);
  EXPECT_EQ(spread.cv, 0.0);
}

TEST(RpLoadSpreadTest, EqualCounts_RatioOneNoVariation) {
  const RpLoadSpread spread = rpLoadSpreadOf({5, 5, 5});
  EXPECT_EQ(spread.maxOverMin, 1.0);
  EXPECT_EQ(spread.cv, 0.0);
}

// Counts 1 and 3: mean 2, each 1 away, so the population deviation is 1 and cv 1/2.
TEST(RpLoadSpreadTest, UnequalCounts_LargestOverSmallestAndPopulationCv) {
  const RpLoadSpread spread = rpLoadSpreadOf({1, 3});
  EXPECT_EQ(spread.maxOverMin, 3.0);
  EXPECT_DOUBLE_EQ(spread.cv, 0.5);
}

class RpHashSummaryTest : public ::testing::Test {
 protected:
  std::optional<ShowResult> apply(const std::string& line) {
    return session.apply(ToolTest::statementOf(line));
  }
  void applyAll(const std::vector<std::string>& lines) {
    for (const auto& line : lines) apply(line);
  }
  RpHashSummary summary(const std::string& line = "show rp-hash summary") {
    const auto answer = apply(line);
    if (!answer || !std::holds_alternative<RpHashSummary>(*answer)) {
      ADD_FAILURE() << "no summary from: " << line;
      return RpHashSummary();
    }
    return std::get<RpHashSummary>(*answer);
  }

  Session session;
};

// The groups of three RPs at hash mask 32 over 239.1.1.0/29, by the RFC 7761 hash: 10.0.0.1
// serves .5 and .6, 10.0.0.2 .1 to .4, 10.0.0.3 .0 and .7. Counts 2, 4, 2: mean 8/3, population
// deviation sqrt(8/9), so cv sqrt(2)/4.
TEST_F(RpHashSummaryTest, ThreeRps_CountsSharesAndSpreadByHand) {
  applyAll({"rp-address 10.0.0.1 group 239.1.1.0/24 hashmask 32",
            "rp-address 10.0.0.2 group 239.1.1.0/24 hashmask 32",
            "rp-address 10.0.0.3 group 239.1.1.0/24 hashmask 32", "group 239.1.1.0/29"});
  const RpHashSummary answer = summary();
  ASSERT_EQ(answer.rows.size(), 4u);
  const RpLoadRow& row = answer.rows[0];
  EXPECT_EQ(row.vrf, "default");
  EXPECT_EQ(row.af, AddressFamily::ipv4);
  EXPECT_EQ(row.mode, modePimSm);
  EXPECT_EQ(row.groups, 8u);
  EXPECT_EQ(row.noRp, 0u);
  ASSERT_EQ(row.rps.size(), 3u);
  EXPECT_EQ(row.rps[0].address, IpGenAddr("10.0.0.1"));
  EXPECT_EQ(row.rps[0].groups, 2u);
  EXPECT_DOUBLE_EQ(row.rps[0].share, 0.25);
  EXPECT_EQ(row.rps[1].address, IpGenAddr("10.0.0.2"));
  EXPECT_EQ(row.rps[1].groups, 4u);
  EXPECT_DOUBLE_EQ(row.rps[1].share, 0.5);
  EXPECT_EQ(row.rps[2].address, IpGenAddr("10.0.0.3"));
  EXPECT_EQ(row.rps[2].groups, 2u);
  EXPECT_EQ(row.spread.maxOverMin, 2.0);
  EXPECT_DOUBLE_EQ(row.spread.cv, std::sqrt(2.0) / 4);
  // The bidir tables hold nothing for these sparse RPs: every group is without an RP there.
  EXPECT_EQ(answer.rows[1].mode, modePimBidir);
  EXPECT_EQ(answer.rows[1].groups, 8u);
  EXPECT_EQ(answer.rows[1].noRp, 8u);
  EXPECT_TRUE(answer.rows[1].rps.empty());
  EXPECT_EQ(answer.rows[2].af, AddressFamily::ipv6);
  EXPECT_EQ(answer.rows[2].groups, 0u);
}

// Every count agrees with the final per-group table it is counted from, and the groups outside
// every range are those without an RP.
TEST_F(RpHashSummaryTest, Counts_AgreeWithTheFinalPerGroupTable) {
  applyAll({"rp-address 10.0.0.1 group 239.1.0.0/16", "rp-address 10.0.0.2 group 239.1.0.0/16",
            "bsr-rp 239.1.128.0/17 10.0.0.7 priority 0 hashmask 30 mode sparse",
            "rp-address 10.0.0.4 group 239.2.0.0/16", "rp-address 10.0.0.4 mode bidir",
            "group 239.1.0.0/20", "group 239.1.128.0/22", "group 239.2.0.0/25",
            "group 239.3.0.0/27"});
  const RpHashSummary answer = summary("show rp-hash summary ipv4");
  ASSERT_EQ(answer.rows.size(), 2u);
  const std::uint64_t known = 4096 + 1024 + 128 + 32;
  for (const RpLoadRow& row : answer.rows) {
    SCOPED_TRACE(modeWord(row.mode));
    const auto listing = std::get<RpHashListing>(
        *apply("show rp-hash final groups mode " + modeWord(row.mode) + " ipv4"));
    std::map<IpGenAddr, std::uint64_t> counted;
    for (const auto& entry : listing.entries) ++counted[entry.address()];
    std::map<IpGenAddr, std::uint64_t> summarized;
    std::uint64_t served = 0;
    for (const RpLoad& rp : row.rps) {
      summarized[rp.address] = rp.groups;
      served += rp.groups;
      EXPECT_DOUBLE_EQ(rp.share, static_cast<double>(rp.groups) / known);
    }
    EXPECT_EQ(summarized, counted);
    EXPECT_EQ(row.groups, known);
    EXPECT_EQ(row.noRp, known - served);
  }
  EXPECT_EQ(answer.rows[0].rps.size(), 3u);  // 10.0.0.1, 10.0.0.2, 10.0.0.7
  EXPECT_EQ(answer.rows[0].noRp, 128u + 32u);
  EXPECT_EQ(answer.rows[1].rps.size(), 1u);  // 10.0.0.4, bidir
  EXPECT_EQ(answer.rows[1].noRp, known - 128u);
}

// Under clock manual, a group not yet reviewed has no final entry and counts as without an RP;
// one forgotten but not yet reviewed out counts for nobody.
TEST_F(RpHashSummaryTest, ClockManual_CountsKnownGroupsOnly) {
  applyAll({"rp-address 10.0.0.1 group 239.1.1.0/24", "group 239.1.1.0/30", "run", "clock manual",
            "no group 239.1.1.0", "group 239.1.1.9"});
  const RpLoadRow row = summary().rows[0];
  EXPECT_EQ(row.groups, 4u);
  EXPECT_EQ(row.noRp, 1u);
  ASSERT_EQ(row.rps.size(), 1u);
  EXPECT_EQ(row.rps[0].groups, 3u);
}

// Two VRFs with different RPs and groups: a summary answers for the VRF it names, else for the
// VRF of its section, like every show.
class RpHashSummaryVrfTest : public RpHashSummaryTest {
 protected:
  void SetUp() override {
    applyAll({"rp-address 10.0.0.1 group 239.1.1.0/24", "group 239.1.1.0/30", "vrf red",
              "rp-address 10.2.0.1 group 239.1.1.0/24", "group 239.1.1.0/31"});
  }
  // The sparse IPv4 row of the summary asked by `line`, as "VRF: GROUPS RP=COUNT ...".
  std::string sparseRow(const std::string& line) {
    const RpHashSummary answer = summary(line);
    if (answer.rows.size() != 2) return "rows: " + std::to_string(answer.rows.size());
    const RpLoadRow& row = answer.rows[0];
    std::string text = row.vrf + ": " + std::to_string(row.groups);
    for (const RpLoad& rp : row.rps) {
      text += ' ' + rp.address.valueToStrep() + '=' + std::to_string(rp.groups);
    }
    return text;
  }
};

TEST_F(RpHashSummaryVrfTest, NamedVrf_AnswersForThatVrfOnly) {
  EXPECT_EQ(sparseRow("show rp-hash summary ipv4 vrf default"), "default: 4 10.0.0.1=4");
  EXPECT_EQ(sparseRow("show rp-hash summary ipv4 vrf red"), "red: 2 10.2.0.1=2");
}

TEST_F(RpHashSummaryVrfTest, NoVrfNamed_AnswersForTheSectionsVrf) {
  EXPECT_EQ(sparseRow("show rp-hash summary ipv4"), "red: 2 10.2.0.1=2");
  apply("vrf default");
  EXPECT_EQ(sparseRow("show rp-hash summary ipv4"), "default: 4 10.0.0.1=4");
  EXPECT_EQ(summary("show rp-hash summary vrf red").rows.size(), 4u);
}

TEST_F(RpHashSummaryVrfTest, NamedVrf_JsonRowsCarryIt) {
  EXPECT_EQ(ToolTest::jsonOf(summary("show rp-hash summary ipv4 vrf red")),
            "{\"summary\":["
            "{\"vrf\":\"red\",\"family\":\"ipv4\",\"mode\":\"sparse\",\"groups\":2,\"noRp\":0,"
            "\"rps\":[{\"address\":\"10.2.0.1\",\"groups\":2,\"share\":1.0}],"
            "\"spread\":{\"maxOverMin\":1.0,\"cv\":0.0}},"
            "{\"vrf\":\"red\",\"family\":\"ipv4\",\"mode\":\"bidir\",\"groups\":2,\"noRp\":2,"
            "\"rps\":[],\"spread\":{\"maxOverMin\":1.0,\"cv\":0.0}}]}\n");
}

TEST_F(RpHashSummaryTest, Json_ShapeWithSharesAndSpread) {
  applyAll({"rp-address 10.0.0.1 group 239.1.1.0/24 priority 0",
            "rp-address 10.0.0.2 group 239.2.0.0/16", "group 239.1.1.0/31", "group 239.2.0.1",
            "group 239.3.0.1"});
  EXPECT_EQ(ToolTest::jsonOf(summary("show rp-hash summary ipv4")),
            "{\"summary\":["
            "{\"vrf\":\"default\",\"family\":\"ipv4\",\"mode\":\"sparse\",\"groups\":4,\"noRp\":1,"
            "\"rps\":[{\"address\":\"10.0.0.1\",\"groups\":2,\"share\":0.5},"
            "{\"address\":\"10.0.0.2\",\"groups\":1,\"share\":0.25}],"
            "\"spread\":{\"maxOverMin\":2.0,\"cv\":0.3333333333333333}},"
            "{\"vrf\":\"default\",\"family\":\"ipv4\",\"mode\":\"bidir\",\"groups\":4,\"noRp\":4,"
            "\"rps\":[],\"spread\":{\"maxOverMin\":1.0,\"cv\":0.0}}]}\n");
}

TEST_F(RpHashSummaryTest, Human_CountsSharesAndSpread) {
  applyAll({"rp-address 10.0.0.1 group 239.1.1.0/24", "rp-address 10.0.0.2 group 239.2.0.0/16",
            "group 239.1.1.0/31", "group 239.2.0.1", "group 239.3.0.1"});
  EXPECT_EQ(ToolTest::humanOf(summary()),
            "rp-hash summary\n"
            "  vrf default, ipv4 sparse: 4 groups, 1 without an RP; largest/smallest 2.00, cv "
            "0.333\n"
            "    rp        groups  share\n"
            "    10.0.0.1  2       50.0%\n"
            "    10.0.0.2  1       25.0%\n"
            "  vrf default, ipv4 bidir: 4 groups, 4 without an RP\n"
            "  vrf default, ipv6 sparse: no known groups\n"
            "  vrf default, ipv6 bidir: no known groups\n");
}

}  // namespace
