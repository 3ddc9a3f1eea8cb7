#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/tools/ToolTestSupport.h"
#include "tools/Interpreter.h"
#include "tools/WhatIf.h"

namespace {

using namespace PimrpTool;
using Ipkit::AddressFamily;
using Ipkit::IpGenAddr;
using Routing::Pim::modePimSm;

// Keeps what is shown instead of printing it.
class ShownKept : public Output {
 public:
  void show(const ShowResult& result) override { shown.push_back(result); }
  std::vector<ShowResult> shown;
};

std::vector<IpGenAddr> addresses(const std::vector<std::string>& texts) {
  std::vector<IpGenAddr> result;
  for (const auto& text : texts) result.emplace_back(text);
  return result;
}

// A move of the default VRF's IPv4 sparse tables; "none" for no RP.
RpMove move(const std::string& from, const std::string& to, std::uint64_t groups,
            std::uint64_t ranges, const std::vector<std::string>& examples) {
  return RpMove{"default",
                AddressFamily::ipv4,
                modePimSm,
                from == "none" ? IpGenAddr() : IpGenAddr(from),
                to == "none" ? IpGenAddr() : IpGenAddr(to),
                groups,
                ranges,
                addresses(examples)};
}

void expectMoves(const WhatIfReport& report, const std::vector<RpMove>& expected) {
  ASSERT_EQ(report.moves.size(), expected.size());
  for (std::size_t index = 0; index < expected.size(); ++index) {
    const RpMove& actual = report.moves[index];
    const RpMove& wanted = expected[index];
    SCOPED_TRACE("move " + std::to_string(index));
    EXPECT_EQ(actual.vrf, wanted.vrf);
    EXPECT_EQ(actual.af, wanted.af);
    EXPECT_EQ(actual.mode, wanted.mode);
    EXPECT_EQ(actual.from, wanted.from);
    EXPECT_EQ(actual.to, wanted.to);
    EXPECT_EQ(actual.groups, wanted.groups);
    EXPECT_EQ(actual.ranges, wanted.ranges);
    EXPECT_EQ(actual.examples, wanted.examples);
  }
}

// Moves as they are listed: VRF, family, mode, from, to, groups/ranges.
std::vector<std::string> movesListed(const WhatIfReport& report) {
  std::vector<std::string> listed;
  for (const RpMove& m : report.moves) {
    listed.push_back(m.vrf + ' ' + familyWord(m.af) + ' ' + modeWord(m.mode) + ' ' +
                     addressWord(m.from) + "->" + addressWord(m.to) + ' ' +
                     std::to_string(m.groups) + '/' + std::to_string(m.ranges));
  }
  return listed;
}

class WhatIfTest : public ::testing::Test {
 protected:
  // Runs the what-if of `change` after `script`, both read and judged as pimrp does.
  int whatIf(const std::string& script, const std::string& change) {
    Validator scriptJudge;
    const auto scriptText = scriptRead("s.pimrp", linesOf(script), scriptJudge, errors);
    if (!scriptText) return kExitBadScript;
    Validator changeJudge = scriptJudge;
    changeJudge.sectionDefaultIs();
    const auto changeText = scriptRead("c.pimrp", linesOf(change), changeJudge, errors);
    if (!changeText) return kExitBadScript;
    return whatIfRun(session, {"s.pimrp", *scriptText, scriptJudge},
                     {"c.pimrp", *changeText, changeJudge}, output, errors, kDefaultMaxGroups);
  }
  // The one report shown. REQUIRES: a what-if ran and reported.
  const WhatIfReport& report() {
    EXPECT_EQ(output.shown.size(), 1u);
    static const WhatIfReport kNone;
    if (output.shown.empty() || !std::holds_alternative<WhatIfReport>(output.shown[0])) {
      ADD_FAILURE() << "no what-if report shown";
      return kNone;
    }
    return std::get<WhatIfReport>(output.shown[0]);
  }

  void expectRequests(std::uint64_t alloc, std::uint64_t dealloc) {
    EXPECT_EQ(report().allocRequests, alloc);
    EXPECT_EQ(report().deallocRequests, dealloc);
  }

  Session session;
  ShownKept output;
  std::ostringstream errors;
};

// Eight groups over three RPs at hash mask 32, each group hashed alone. The RFC 7761 values
// (1103515245 * ((1103515245 * G + 12345) ^ C) + 12345 mod 2^31) give 10.0.0.3 the groups .0 and
// .7, 10.0.0.2 the groups .1 to .4 and 10.0.0.1 the groups .5 and .6; without 10.0.0.2, .1 and .2
// go to 10.0.0.1 (e.g. .1: 239626324 against 180079482) and .3 and .4 to 10.0.0.3 (.3: 387594752
// against 328047910). The range's own entry, hashed on 239.1.1.0, stays with 10.0.0.3.
const char* const kThreeRps =
    "rp-address 10.0.0.1 group 239.1.1.0/24 hashmask 32\n"
    "rp-address 10.0.0.2 group 239.1.1.0/24 hashmask 32\n"
    "rp-address 10.0.0.3 group 239.1.1.0/24 hashmask 32\n"
    "group 239.1.1.0/29\n";

TEST_F(WhatIfTest, RpRemoved_ItsGroupsSpreadOverTheRestByTheHash) {
  ASSERT_EQ(whatIf(kThreeRps, "no rp-address 10.0.0.2\n"), kExitOk);
  EXPECT_EQ(errors.str(), "");
  expectMoves(report(), {move("10.0.0.2", "10.0.0.1", 2, 0, {"239.1.1.1", "239.1.1.2"}),
                         move("10.0.0.2", "10.0.0.3", 2, 0, {"239.1.1.3", "239.1.1.4"})});
  EXPECT_EQ(report().groupsChanged, 4u);
  EXPECT_EQ(report().rangesChanged, 0u);
  // Each moved group: its old RP released, its new one allocated.
  expectRequests(4, 4);
}

// A bootstrap candidate beats a static one whatever their priorities: every group of its range
// moves, and so does the range.
TEST_F(WhatIfTest, BootstrapCandidateAdded_TakesEveryGroupAndTheRange) {
  ASSERT_EQ(whatIf("rp-address 10.0.0.1 group 239.1.1.0/24\ngroup 239.1.1.0/30\n",
                   "bsr-rp 239.1.1.0/24 10.0.0.9 priority 0 hashmask 30 mode sparse\n"),
            kExitOk);
  expectMoves(report(),
              {move("10.0.0.1", "10.0.0.9", 4, 1, {"239.1.1.0", "239.1.1.1", "239.1.1.2"})});
  EXPECT_EQ(report().groupsChanged, 4u);
  EXPECT_EQ(report().rangesChanged, 1u);
  expectRequests(5, 5);
}

TEST_F(WhatIfTest, OverrideSet_StaticRpTakesBackTheBootstrapRpsGroups) {
  ASSERT_EQ(whatIf("rp-address 10.0.0.1 group 239.1.1.0/24\n"
                   "bsr-rp 239.1.1.0/24 10.0.0.9 priority 0 hashmask 30 mode sparse\n"
                   "group 239.1.1.0/31\n",
                   "rp-address 10.0.0.1 group 239.1.1.0/24 override\n"),
            kExitOk);
  expectMoves(report(), {move("10.0.0.9", "10.0.0.1", 2, 1, {"239.1.1.0", "239.1.1.1"})});
  expectRequests(3, 3);
}

// A deny rule cuts 239.1.1.0/24 out of the list's 239.1.0.0/16: the list now gives the eight
// prefixes around the hole, the /16 itself goes, and the hole's groups fall to the /8's RP.
TEST_F(WhatIfTest, AccessListRuleAdded_HoleGroupsMoveAndTheListsRangesSplit) {
  ASSERT_EQ(whatIf("acl A seq 10 permit 239.1.0.0/16\n"
                   "rp-address 10.0.0.1 acl A\n"
                   "rp-address 10.0.0.2 group 239.0.0.0/8\n"
                   "group 239.1.1.0/30\n"
                   "group 239.1.2.0/31\n",
                   "acl A seq 5 deny 239.1.1.0/24\n"),
            kExitOk);
  expectMoves(report(),
              {move("none", "10.0.0.1", 0, 8, {}), move("10.0.0.1", "none", 0, 1, {}),
               move("10.0.0.1", "10.0.0.2", 4, 0, {"239.1.1.0", "239.1.1.1", "239.1.1.2"})});
  EXPECT_EQ(report().groupsChanged, 4u);
  EXPECT_EQ(report().rangesChanged, 9u);
}

// Under the modulo rule a group's RP is its address modulo the number of candidates, counted in
// ascending address order: even groups (239.1.1.0 is 4009820416) to 10.0.0.1, odd ones to
// 10.0.0.2. Before, the lower priority value of 10.0.0.1 gave it every group; modulo ignores
// priority. The range's own entry, on 239.1.1.0, stays.
TEST_F(WhatIfTest, AlgorithmSwitchedToModulo_OddGroupsMoveToTheSecondRp) {
  ASSERT_EQ(whatIf("rp-address 10.0.0.1 group 239.1.1.0/24 priority 0\n"
                   "rp-address 10.0.0.2 group 239.1.1.0/24 priority 1\n"
                   "group 239.1.1.0/29\n",
                   "rp-hash-algorithm modulo\n"),
            kExitOk);
  expectMoves(report(),
              {move("10.0.0.1", "10.0.0.2", 4, 0, {"239.1.1.1", "239.1.1.3", "239.1.1.5"})});
  EXPECT_EQ(report().groupsChanged, 4u);
}

TEST_F(WhatIfTest, ChangeThatChangesNothing_ReportsNoMoveAndNoRequest) {
  ASSERT_EQ(whatIf(kThreeRps,
                   "rp-address 10.0.0.2 group 239.1.1.0/24 hashmask 32\n"
                   "show rp 239.1.1.1\n"),
            kExitOk);
  expectMoves(report(), {});
  EXPECT_EQ(report().groupsChanged, 0u);
  EXPECT_EQ(report().rangesChanged, 0u);
  expectRequests(0, 0);
}

// A range's entry is written the moment its RP is bound; bound and removed again within the
// change, it moves nothing, but the allocator saw both requests.
TEST_F(WhatIfTest, BindingMadeAndRemoved_NoMoveButItsRequestsCounted) {
  ASSERT_EQ(whatIf(kThreeRps,
                   "rp-address 10.0.0.9 group 239.9.0.0/16\n"
                   "no rp-address 10.0.0.9\n"),
            kExitOk);
  expectMoves(report(), {});
  expectRequests(1, 1);
}

// Entries rewritten with another priority keep their RP: no move, and no request.
TEST_F(WhatIfTest, PriorityChanged_EntriesRewrittenNoMoveNoRequest) {
  ASSERT_EQ(whatIf("rp-address 10.0.0.1 group 239.1.1.0/24\ngroup 239.1.1.0/30\n",
                   "rp-address 10.0.0.1 group 239.1.1.0/24 priority 7\n"),
            kExitOk);
  expectMoves(report(), {});
  expectRequests(0, 0);
}

// A group the change makes known moves from no RP; one it forgets moves to none.
TEST_F(WhatIfTest, KnownGroupsChanged_MoveFromAndToNoRp) {
  ASSERT_EQ(whatIf("rp-address 10.0.0.1 group 239.1.1.0/24\ngroup 239.1.1.0/31\n",
                   "no group 239.1.1.0\ngroup 239.1.1.8\n"),
            kExitOk);
  expectMoves(report(), {move("none", "10.0.0.1", 1, 0, {"239.1.1.8"}),
                         move("10.0.0.1", "none", 1, 0, {"239.1.1.0"})});
}

// Moves come by family, then mode: IPv4 before IPv6, sparse before bidir. 239.1.1.0/24 has a
// sparse and a bidir RP: bidir is preferred, so its group and range go to the bidir tables and
// the sparse tables hold only 239.0.0.0/8.
TEST_F(WhatIfTest, MovesOfSeveralTables_OrderedByFamilyThenMode) {
  ASSERT_EQ(whatIf("group 239.1.1.1\ngroup ff3e::1\n",
                   "rp-address 2001:db8::1 group ff3e::/16\n"
                   "rp-address 10.0.0.2 group 239.1.1.0/24\n"
                   "rp-address 10.0.0.1 group 239.0.0.0/8\n"
                   "rp-address 10.0.0.3 group 239.1.1.0/24\n"
                   "rp-address 10.0.0.3 mode bidir\n"),
            kExitOk);
  EXPECT_EQ(movesListed(report()),
            (std::vector<std::string>{"default ipv4 sparse none->10.0.0.1 0/1",
                                      "default ipv4 bidir none->10.0.0.3 1/1",
                                      "default ipv6 sparse none->2001:db8::1 1/1"}));
}

TEST_F(WhatIfTest, VrfNamed_MovesCarryTheirVrf) {
  ASSERT_EQ(
      whatIf("vrf blue\ngroup 239.1.1.1\n", "vrf blue\nrp-address 10.0.0.1 group 239.1.1.0/24\n"),
      kExitOk);
  EXPECT_EQ(movesListed(report()),
            (std::vector<std::string>{"blue ipv4 sparse none->10.0.0.1 1/1"}));
}

// The same three RPs and groups in the VRFs default and red, the script ending in red's section.
const std::string kThreeRpsTwice = std::string(kThreeRps) + "vrf red\n" + kThreeRps;

TEST_F(WhatIfTest, ChangeInOneVrf_MovesNothingInTheOther) {
  ASSERT_EQ(whatIf(kThreeRpsTwice, "vrf red\nno rp-address 10.0.0.2\n"), kExitOk);
  EXPECT_EQ(movesListed(report()),
            (std::vector<std::string>{"red ipv4 sparse 10.0.0.2->10.0.0.1 2/0",
                                      "red ipv4 sparse 10.0.0.2->10.0.0.3 2/0"}));
  EXPECT_EQ(report().groupsChanged, 4u);
  // The requests of red alone: default's allocator saw none.
  expectRequests(4, 4);
}

// A change starts in the section of default, as any script does, whatever section the script
// ended in.
TEST_F(WhatIfTest, ChangeWithoutVrf_AppliesToDefaultWhereverTheScriptEnded) {
  ASSERT_EQ(whatIf(kThreeRpsTwice, "no rp-address 10.0.0.2\n"), kExitOk);
  EXPECT_EQ(movesListed(report()),
            (std::vector<std::string>{"default ipv4 sparse 10.0.0.2->10.0.0.1 2/0",
                                      "default ipv4 sparse 10.0.0.2->10.0.0.3 2/0"}));
}

// A VRF that the change opens had nothing before: its groups and ranges move from no RP. VRFs
// are listed as the tool lists them, default first, then by name ("blue" after "default").
TEST_F(WhatIfTest, VrfOpenedByTheChange_MovesFromNoRpAndListedAfterDefault) {
  ASSERT_EQ(whatIf(kThreeRps,
                   "vrf blue\n"
                   "rp-address 10.0.0.9 group 239.1.1.0/24\n"
                   "group 239.1.1.1\n"
                   "vrf default\n"
                   "no rp-address 10.0.0.2\n"),
            kExitOk);
  EXPECT_EQ(movesListed(report()),
            (std::vector<std::string>{"default ipv4 sparse 10.0.0.2->10.0.0.1 2/0",
                                      "default ipv4 sparse 10.0.0.2->10.0.0.3 2/0",
                                      "blue ipv4 sparse none->10.0.0.9 1/1"}));
  // Default's four groups moved, and blue's group and range were bound: counted over both VRFs.
  expectRequests(6, 4);
}

// With embedded RP on, a known IPv6 group whose address names its RP (RIID 1, plen 48, network
// prefix 2001:db8:ffff::/48) uses that RP above the static one; ff3e::1 names none and stays.
TEST_F(WhatIfTest, EmbeddedRpEnabled_Ipv6GroupMovesToItsEmbeddedRp) {
  ASSERT_EQ(whatIf("rp-address 2001:db8::1 group ff00::/8\n"
                   "group ff75:130:2001:db8:ffff::100\n"
                   "group ff3e::1\n",
                   "embedded-rp enable\n"),
            kExitOk);
  expectMoves(report(), {RpMove{"default", AddressFamily::ipv6, modePimSm, IpGenAddr("2001:db8::1"),
                                IpGenAddr("2001:db8:ffff::1"), 1, 0,
                                addresses({"ff75:130:2001:db8:ffff::100"})}});
  expectRequests(1, 1);
}

TEST_F(WhatIfTest, BadChange_RefusedWithFileAndLineNothingReported) {
  EXPECT_EQ(whatIf(kThreeRps,
                   "no rp-address 10.0.0.2\nrp-address 10.0.0.1 group 239.1.1.0/24 "
                   "priority 300\n"),
            kExitBadScript);
  EXPECT_EQ(errors.str(), "c.pimrp:2: error: priority '300' out of range 0..255\n");
  EXPECT_TRUE(output.shown.empty());
}

// The change is judged after the script: a show may name a VRF that the script opened, and no
// other.
TEST_F(WhatIfTest, ChangeJudgedAfterTheScript_VrfsOpenedByTheScriptMayBeNamed) {
  EXPECT_EQ(whatIf("vrf blue\n", "show rp 239.1.1.1 vrf blue\nshow rp 239.1.1.1 vrf green\n"),
            kExitBadScript);
  EXPECT_EQ(errors.str(), "c.pimrp:2: error: VRF 'green' is not open: 'vrf green' opens it\n");
  EXPECT_TRUE(output.shown.empty());
}

// Shows of either script are answered but not printed; only the report is.
TEST_F(WhatIfTest, ShowsInTheScripts_NotPrinted) {
  ASSERT_EQ(whatIf(std::string(kThreeRps) + "show rp 239.1.1.1\n", "show review\n"), kExitOk);
  EXPECT_EQ(output.shown.size(), 1u);
}

// Under clock manual the what-if still settles each script before it compares.
TEST_F(WhatIfTest, ClockManual_EachScriptSettledAnyway) {
  ASSERT_EQ(whatIf(std::string("clock manual\n") + kThreeRps, "no rp-address 10.0.0.2\n"), kExitOk);
  EXPECT_EQ(report().groupsChanged, 4u);
}

TEST_F(WhatIfTest, Report_JsonShape) {
  ASSERT_EQ(whatIf(kThreeRps, "no rp-address 10.0.0.2\n"), kExitOk);
  EXPECT_EQ(ToolTest::jsonOf(report()),
            "{\"whatIf\":{\"groupsChanged\":4,\"rangesChanged\":0,\"moves\":["
            "{\"vrf\":\"default\",\"family\":\"ipv4\",\"mode\":\"sparse\",\"from\":\"10.0.0.2\","
            "\"to\":\"10.0.0.1\",\"groups\":2,\"ranges\":0,\"examples\":[\"239.1.1.1\","
            "\"239.1.1.2\"]},"
            "{\"vrf\":\"default\",\"family\":\"ipv4\",\"mode\":\"sparse\",\"from\":\"10.0.0.2\","
            "\"to\":\"10.0.0.3\",\"groups\":2,\"ranges\":0,\"examples\":[\"239.1.1.3\","
            "\"239.1.1.4\"]}],"
            "\"allocRequests\":4,\"deallocRequests\":4}}\n");
}

TEST_F(WhatIfTest, Report_NoRpIsNullInJson) {
  ASSERT_EQ(whatIf("group 239.1.1.1\n", "rp-address 10.0.0.1 group 239.1.1.0/24\n"), kExitOk);
  const std::string json = ToolTest::jsonOf(report());
  EXPECT_NE(json.find("\"from\":null,\"to\":\"10.0.0.1\",\"groups\":1,\"ranges\":1"),
            std::string::npos)
      << json;
}

TEST_F(WhatIfTest, Report_HumanTableWithExamplesAndEllipsis) {
  ASSERT_EQ(whatIf("rp-address 10.0.0.1 group 239.1.1.0/24\ngroup 239.1.1.0/30\n",
                   "bsr-rp 239.1.1.0/24 10.0.0.9 priority 0 hashmask 30 mode sparse\n"),
            kExitOk);
  EXPECT_EQ(ToolTest::humanOf(report()),
            "what-if: 4 groups and 1 range change RP; 5 allocation requests, 5 deallocation "
            "requests\n"
            "  vrf      family  mode    from      to        groups  ranges  examples\n"
            "  default  ipv4    sparse  10.0.0.1  10.0.0.9  4       1       239.1.1.0, 239.1.1.1, "
            "239.1.1.2, ...\n");
}

TEST_F(WhatIfTest, Report_HumanNothingMoved) {
  ASSERT_EQ(whatIf(kThreeRps, "show review\n"), kExitOk);
  EXPECT_EQ(ToolTest::humanOf(report()),
            "what-if: no group or range changes RP; 0 allocation requests, 0 deallocation "
            "requests\n");
}

}  // namespace
