// What the session shows about how the library came to its answers: show rp's selection and
// answer records, its per-mode answers and scope note, and show rp mapping.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/tools/ToolTestSupport.h"
#include "tools/Session.h"

namespace {

using namespace PimrpTool;
using namespace Routing::Pim;
using Ipkit::AddressFamily;
using Ipkit::IpGenAddr;
using Ipkit::IpGenPrefix;

class SessionExplainTest : public ::testing::Test {
 protected:
  std::optional<ShowResult> apply(const std::string& line) {
    return session.apply(ToolTest::statementOf(line));
  }
  RpAnswer showRp(const std::string& query) {
    return std::get<RpAnswer>(*apply("show rp " + query));
  }
  RpMapping mapping(const std::string& family = "") {
    return std::get<RpMapping>(*apply("show rp mapping" + family));
  }
  // The per-mode answers of one range, "mode static bsr final from reason" each.
  static std::vector<std::string> modesOf(const MappingRange& range) {
    std::vector<std::string> rows;
    const auto cell = [](const RpHash& entry) -> std::string {
      if (!rpHashPresent(entry)) return "-";
      return rpHashUsable(entry) ? entry.address().valueToStrep() : "other-mode";
    };
    for (const auto& mode : range.modes) {
      rows.push_back(std::string(mode.mode == modePimSm ? "sparse" : "bidir") + " " +
                     cell(mode.staticEntry) + " " + cell(mode.bsrEntry) + " " +
                     cell(mode.finalEntry) + " " +
                     (mode.from ? (*mode.from == TableSource::staticRp ? "static" : "bsr") : "-") +
                     " " + rpSourceReasonWord(mode.reason));
    }
    return rows;
  }

  Session session;
};

using Strings = std::vector<std::string>;

// Two static RPs bound without a hash mask: the selection hashes the whole group and, for
// 239.1.1.5, picks the lower address by hash; the explanation says so and shows both hashes.
TEST_F(SessionExplainTest, ShowRpDetail_HashMaskNotSet_TheHashThatDecidedIsShown) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8 hashmask none");
  apply("rp-address 10.0.0.2 group 239.0.0.0/8 hashmask none");
  const RpAnswer answer = showRp("239.1.1.5 detail");
  EXPECT_EQ(answer.rp, IpGenAddr("10.0.0.1"));
  ASSERT_TRUE(answer.staticDetail);
  const RpSelectionRecord& record = *answer.staticDetail;
  EXPECT_EQ(record.rule(), "hash (hash mask not set: the whole group is hashed)");
  const auto& compute = session.family(AddressFamily::ipv4).compute(modePimNone)->staticCompute();
  const IpGenAddr group("239.1.1.5");
  ASSERT_EQ(record.candidates.size(), 2u);
  for (const auto& candidate : record.candidates) {
    const auto& address = candidate.info.address();
    EXPECT_EQ(candidate.hash,
              compute->doComputeHashMask(modePimSm, group, kRpHashMaskLenNone, address))
        << address;
  }
  EXPECT_GT(*record.candidates[0].hash, *record.candidates[1].hash);
  EXPECT_EQ(answer.staticSelection.address(), IpGenAddr("10.0.0.1"));
}

TEST_F(SessionExplainTest, ShowRpDetail_EveryRecordAndNoneWithoutDetail) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("bsr-rp 239.0.0.0/8 10.1.0.1 priority 10 hashmask 30 mode sparse");
  const RpAnswer plain = showRp("239.1.1.1");
  EXPECT_FALSE(plain.staticDetail);
  EXPECT_FALSE(plain.bsrDetail);
  EXPECT_FALSE(plain.answerDetail);
  const RpAnswer detail = showRp("239.1.1.1 detail");
  ASSERT_TRUE(detail.answerDetail);
  EXPECT_TRUE(detail.answerDetail->computed);
  EXPECT_EQ(detail.answerDetail->reason, RpSourceReason::bootstrapBeatsStatic);
  EXPECT_EQ(detail.answerDetail->source, RpAnswerSource::bootstrap);
  EXPECT_EQ(detail.staticDetail->rule(), "single candidate");
  EXPECT_EQ(detail.bsrDetail->rule(), "single candidate");
  EXPECT_EQ(detail.rp, plain.rp);
  EXPECT_EQ(detail.staticSelection, plain.staticSelection);
  EXPECT_EQ(detail.bsrSelection, plain.bsrSelection);
}

TEST_F(SessionExplainTest, ShowRpDetailOfAKnownGroup_AnsweredFromTheFinalTable) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("group 239.1.1.1");
  const RpAnswer answer = showRp("239.1.1.1 mode sparse detail");
  ASSERT_TRUE(answer.answerDetail);
  EXPECT_EQ(answer.answerDetail->source, RpAnswerSource::table);
  EXPECT_EQ(answer.answerDetail->tableEntry.key(), IpGenPrefix("239.1.1.1/32"));
  EXPECT_FALSE(answer.answerDetail->computed);
}

// Static bidir RP and bootstrap sparse RP on one range: each mode merges its own entries, so the
// sparse answer is the bootstrap RP and the bidir one the static RP, and the group filters, kept
// from the final bidir ranges, serve the group in bidir mode only.
TEST_F(SessionExplainTest, ShowRpWithoutMode_EachModesAnswerAndTheGroupFilters) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("rp-address 10.0.0.1 mode bidir");
  apply("bsr-rp 239.0.0.0/8 10.1.0.1 priority 10 hashmask 30 mode sparse");
  apply("group 239.1.1.1");
  const RpAnswer known = showRp("239.1.1.1");
  EXPECT_EQ(known.rp, IpGenAddr("10.1.0.1"));
  ASSERT_TRUE(known.byMode);
  EXPECT_EQ(known.byMode->sparse.rp, IpGenAddr("10.1.0.1"));
  EXPECT_EQ(known.byMode->sparse.source, RpAnswerSource::table);
  EXPECT_EQ(known.byMode->bidir.rp, IpGenAddr("10.0.0.1"));
  EXPECT_EQ(known.byMode->bidir.source, RpAnswerSource::table);
  EXPECT_FALSE(known.byMode->sparseServed);
  EXPECT_TRUE(known.byMode->bidirServed);
  // A group the router does not know is computed: bootstrap beats static, and its sparse RP is
  // set aside in bidir mode.
  const RpAnswer unknown = showRp("239.1.1.2");
  EXPECT_EQ(unknown.byMode->sparse.rp, IpGenAddr("10.1.0.1"));
  EXPECT_EQ(unknown.byMode->sparse.source, RpAnswerSource::bootstrap);
  EXPECT_EQ(unknown.byMode->bidir.rp, IpGenAddr());
  EXPECT_EQ(unknown.byMode->bidir.source, RpAnswerSource::none);
  EXPECT_TRUE(unknown.byMode->bidirServed);
}

TEST_F(SessionExplainTest, ShowRpWithMode_NoPerModeAnswers) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  EXPECT_FALSE(showRp("239.1.1.1 mode sparse").byMode);
  EXPECT_FALSE(showRp("239.1.1.1 mode bidir").byMode);
}

TEST_F(SessionExplainTest, ShowRp_NotesTheScopeOfTheGroupAndAnswersAllTheSame) {
  apply("rp-address 10.0.0.1 group 224.0.0.0/4");
  const RpAnswer ssm = showRp("232.1.1.1");
  EXPECT_EQ(ssm.rp, IpGenAddr("10.0.0.1"));
  ASSERT_TRUE(ssm.scope);
  EXPECT_EQ(ssm.scope->kind, ScopeKind::sourceSpecific);
  EXPECT_EQ(ssm.scope->range, "232.0.0.0/8");
  const RpAnswer control = showRp("224.0.0.13 mode sparse");
  EXPECT_EQ(control.rp, IpGenAddr("10.0.0.1"));
  ASSERT_TRUE(control.scope);
  EXPECT_EQ(control.scope->kind, ScopeKind::linkLocal);
  EXPECT_FALSE(showRp("239.1.1.1").scope);
}

TEST_F(SessionExplainTest, ShowRpMapping_PerModeEntriesSourceAndReason) {
  apply("rp-address 10.0.0.1 group 239.0.0.0/8");
  apply("rp-address 10.0.0.1 mode bidir");
  apply("bsr-rp 239.0.0.0/8 10.1.0.1 priority 10 hashmask 30 mode sparse");
  apply("rp-address 10.0.0.2 group 238.0.0.0/8 override");
  apply("bsr-rp 238.0.0.0/8 10.1.0.2 priority 10 hashmask 30 mode sparse");
  apply("bsr-rp 237.0.0.0/8 10.1.0.3 priority 10 hashmask 30 mode sparse");
  apply("rp-address 10.0.0.4 group 237.0.0.0/8");
  apply("rp-address 10.0.0.5 group 236.0.0.0/8 priority none");
  const RpMapping map = mapping();
  EXPECT_FALSE(map.af);
  ASSERT_EQ(map.vrfs.size(), 1u);
  EXPECT_EQ(map.vrfs[0].vrf, "default");
  const auto& ranges = map.vrfs[0].ranges;
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(ranges[0].range, IpGenPrefix("236.0.0.0/8"));
  EXPECT_EQ(modesOf(ranges[0]), (Strings{"sparse - - - - no RP", "bidir - - - - no RP"}));
  EXPECT_EQ(modesOf(ranges[1]),
            (Strings{"sparse 10.0.0.4 10.1.0.3 10.1.0.3 bsr bootstrap beats static",
                     "bidir other-mode other-mode - - no RP"}));
  EXPECT_EQ(modesOf(ranges[2]), (Strings{"sparse 10.0.0.2 10.1.0.2 10.0.0.2 static static override",
                                         "bidir other-mode other-mode - - no RP"}));
  EXPECT_EQ(modesOf(ranges[3]), (Strings{"sparse other-mode 10.1.0.1 10.1.0.1 bsr only bootstrap",
                                         "bidir 10.0.0.1 other-mode 10.0.0.1 static only static"}));
  ASSERT_EQ(ranges[2].candidates.size(), 2u);
  EXPECT_EQ(ranges[2].candidates[0].source, CandidateSource::staticConfig);
  EXPECT_EQ(ranges[2].candidates[0].info,
            RpCandidateInfo(IpGenAddr("10.0.0.2"), 0, 30, true, modePimSm));
  EXPECT_EQ(ranges[2].candidates[1].source, CandidateSource::bootstrap);
  EXPECT_EQ(ranges[0].candidates[0].info.priority(), kRpPriorityNone);
}

TEST_F(SessionExplainTest, ShowRpMapping_OneFamilyAndItsScopeNotes) {
  apply("rp-address 10.0.0.1 group 224.0.0.0/4");
  apply("rp-address 2001:db8::1 group ff3e::/16");
  const RpMapping ipv6 = mapping(" ipv6");
  EXPECT_EQ(ipv6.af, AddressFamily::ipv6);
  ASSERT_EQ(ipv6.vrfs[0].ranges.size(), 1u);
  const auto& range = ipv6.vrfs[0].ranges[0];
  EXPECT_EQ(range.range, IpGenPrefix("ff3e::/16"));
  ASSERT_EQ(range.scope.size(), 1u);
  EXPECT_EQ(range.scope[0].scope.range, "ff3x::/32");
  EXPECT_FALSE(range.scope[0].within);
  const RpMapping ipv4 = mapping(" ipv4");
  ASSERT_EQ(ipv4.vrfs[0].ranges.size(), 1u);
  EXPECT_EQ(ipv4.vrfs[0].ranges[0].scope.size(), 2u);
  EXPECT_EQ(mapping().vrfs[0].ranges.size(), 2u);
}

TEST_F(SessionExplainTest, ShowRpMapping_NamesTheVrf) {
  apply("vrf blue");
  EXPECT_EQ(mapping().vrfs[0].vrf, "blue");
  EXPECT_TRUE(mapping().vrfs[0].ranges.empty());
}

}  // namespace
