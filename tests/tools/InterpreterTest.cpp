#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tools/Interpreter.h"

namespace {

using namespace PimrpTool;

class InterpreterTest : public ::testing::Test {
 protected:
  int runScript(const std::string& text) { return interpreter.runScript("s.pimrp", text); }
  int runStream(const std::string& text) {
    std::istringstream in(text);
    return interpreter.runStream(
        "-",
        [this, &in](std::string& line) {
          ++prompts;
          return lineFromStream(in, line);
        },
        [this] { return ++flushes <= flushesThatWork; });
  }

  Session session;
  std::ostringstream out;
  std::ostringstream errors;
  std::unique_ptr<Output> output = jsonOutputFactory(out);
  Interpreter interpreter{session, *output, errors};
  int prompts = 0;
  int flushes = 0;
  int flushesThatWork = 1000;
};

TEST_F(InterpreterTest, GoodScript_AppliedInOrder) {
  EXPECT_EQ(runScript("show acl A\nacl A seq 1 permit 239.0.0.0/8\nshow acl A"), kExitOk);
  EXPECT_EQ(out.str(),
            "{\"acl\":\"A\",\"configured\":false,\"prefixes\":[],\"ignored\":[]}\n"
            "{\"acl\":\"A\",\"configured\":true,\"prefixes\":[\"239.0.0.0/8\"],\"ignored\":[]}\n");
  EXPECT_EQ(errors.str(), "");
}

TEST_F(InterpreterTest, BadScript_EveryErrorReportedNothingApplied) {
  const std::string script =
      "acl A seq 1 permit 239.0.0.0/8\n"
      "show acl A\n"
      "\n"
      "# comment\n"
      "rp-address 10.0.0.1 group 239.0.0.0/8 priority 256\n"
      "bogus\n"
      "rp-address 10.0.0.1 group 239.0.0.0/8";
  EXPECT_EQ(runScript(script), kExitBadScript);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(errors.str(),
            "s.pimrp:5: error: priority '256' out of range 0..255\n"
            "s.pimrp:6: error: unknown statement 'bogus'\n");
  EXPECT_TRUE(session.family(Ipkit::AddressFamily::ipv4).aclConfig()->acl().empty());
  EXPECT_TRUE(session.family(Ipkit::AddressFamily::ipv4).staticConfig()->rpTable().empty());
}

TEST_F(InterpreterTest, Stream_BadStatementSkippedStateKept) {
  const std::string statements =
      "acl A seq 1 permit 239.0.0.0/8\n"
      "acl A seq 0 permit 238.0.0.0/8\n"
      "show acl A\n";
  EXPECT_EQ(runStream(statements), kExitStatementFailed);
  EXPECT_EQ(out.str(),
            "{\"acl\":\"A\",\"configured\":true,\"prefixes\":[\"239.0.0.0/8\"],\"ignored\":[]}\n");
  EXPECT_EQ(errors.str(), "-:2: error: sequence number '0' out of range 1..4294967295\n");
  EXPECT_EQ(prompts, 4);
  EXPECT_EQ(flushes, 3);
}

TEST_F(InterpreterTest, Stream_AllGood_ExitOk) {
  EXPECT_EQ(runStream("show candidates bsr\n\n# nothing\n"), kExitOk);
  EXPECT_EQ(out.str(), "{\"source\":\"bsr\",\"sets\":[]}\n");
}

TEST_F(InterpreterTest, VrfSections_HoldAcrossScriptAndStream) {
  EXPECT_EQ(runScript("vrf red\nrp-address 10.0.0.1 group 239.0.0.0/8\n"), kExitOk);
  EXPECT_EQ(runStream("show candidates static\nshow candidates static vrf default\n"), kExitOk);
  EXPECT_EQ(out.str(),
            "{\"source\":\"static\",\"sets\":[{\"prefix\":\"239.0.0.0/8\",\"rps\":[{\"address\":"
            "\"10.0.0.1\",\"priority\":0,\"hashMaskLen\":30,\"override\":false,\"mode\":"
            "\"sparse\"}]}]}\n"
            "{\"source\":\"static\",\"sets\":[]}\n");
  EXPECT_EQ(session.vrf(), L3::VrfName("red"));
}

TEST_F(InterpreterTest, RefusedScript_OpensNoVrf) {
  EXPECT_EQ(runScript("vrf red\nbogus\n"), kExitBadScript);
  EXPECT_EQ(runStream("show candidates static vrf red\n"), kExitStatementFailed);
  EXPECT_EQ(errors.str(),
            "s.pimrp:2: error: unknown statement 'bogus'\n"
            "-:1: error: VRF 'red' is not open: 'vrf red' opens it\n");
  EXPECT_EQ(session.vrf(), L3::VrfName("default"));
}

TEST(LineFromStream, LinesWithoutTheirEndsAndALastLineWithoutOne) {
  std::istringstream in("a b\n\nc\r\nlast");
  std::string line;
  std::vector<std::string> lines;
  while (lineFromStream(in, line)) lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"a b", "", "c\r", "last"}));
}

TEST(LineFromStream, ReadsNoMoreThanOneByteOverTheLimitOfALine) {
  std::istringstream in(std::string(kMaxLineLength + 100, 'x') + "\nnext\n");
  std::string line;
  ASSERT_TRUE(lineFromStream(in, line));
  EXPECT_EQ(line.size(), kMaxLineLength + 1);
}

TEST_F(InterpreterTest, ScriptLineTooLong_RefusedAndNotReadPast) {
  const std::string script =
      "bogus\nshow acl A\n" + std::string(kMaxLineLength + 1, 'x') + "\nbogus again\n";
  EXPECT_EQ(runScript(script), kExitBadScript);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(errors.str(),
            "s.pimrp:1: error: unknown statement 'bogus'\n"
            "s.pimrp:3: error: line longer than 4096 bytes; the input is not read past it\n");
}

TEST_F(InterpreterTest, ScriptLineOfTheLimit_Accepted) {
  const std::string line = "show acl A" + std::string(kMaxLineLength - 10 - 2, ' ') + "#x";
  ASSERT_EQ(line.size(), kMaxLineLength);
  EXPECT_EQ(runScript(line), kExitOk);
  EXPECT_EQ(out.str(), "{\"acl\":\"A\",\"configured\":false,\"prefixes\":[],\"ignored\":[]}\n");
}

TEST_F(InterpreterTest, StreamLineTooLong_EndsTheStreamAfterWhatCameBefore) {
  const std::string statements = "acl A seq 1 permit 239.0.0.0/8\n" +
                                 std::string(kMaxLineLength + 5000, 'y') + "\nshow acl A\n";
  EXPECT_EQ(runStream(statements), kExitStatementFailed);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(errors.str(),
            "-:2: error: line longer than 4096 bytes; the input is not read past it\n");
  EXPECT_TRUE(session.family(Ipkit::AddressFamily::ipv4).aclConfig()->acl("A"));
}

TEST_F(InterpreterTest, StreamOutputFailing_StopsWithItsStatus) {
  flushesThatWork = 1;
  EXPECT_EQ(runStream("show acl A\nshow acl B\nshow acl C\n"), kExitOutputFailed);
  EXPECT_EQ(flushes, 2);
}

// A source of lines that never ends: `line` again and again, counting what it gives.
LineSource endless(const std::string& line, std::size_t& given) {
  return [line, &given](std::string& next) {
    ++given;
    next = line;
    return true;
  };
}

TEST_F(InterpreterTest, BoundTwice_WarnedWhereItArisesAndWhereARemovalLeavesValuesNotSet) {
  const std::string script =
      "acl A seq 10 permit 239.0.0.0/8\n"
      "rp-address 10.0.0.1 acl A priority 5\n"
      "rp-address 10.0.0.1 group 239.0.0.0/8 priority 7\n"
      "no rp-address 10.0.0.1 group 239.0.0.0/8\n"
      "show candidates static\n";
  EXPECT_EQ(runScript(script), kExitOk);
  EXPECT_EQ(errors.str(),
            "s.pimrp:3: warning: RP 10.0.0.1 is bound to 239.0.0.0/8 both by a group binding and "
            "by access list 'A': its candidate holds the values written last (priority 7, hash "
            "mask 30, no override), and removing one binding can leave them not set while "
            "another still names it\n"
            "s.pimrp:4: warning: removing the group binding left RP 10.0.0.1's candidate for "
            "239.0.0.0/8 with no priority and no hash mask, while access list 'A' still names "
            "it; to set them, remove that binding and add it again\n");
  EXPECT_EQ(out.str(),
            "{\"source\":\"static\",\"sets\":[{\"prefix\":\"239.0.0.0/8\",\"rps\":[{\"address\":"
            "\"10.0.0.1\",\"priority\":256,\"hashMaskLen\":128,\"override\":false,\"mode\":"
            "\"sparse\"}]}]}\n");
}

TEST_F(InterpreterTest, BoundTwiceByARunOfRules_WarnedAtTheRunsLastRule) {
  const std::string script =
      "rp-address 10.0.0.1 acl A\n"
      "rp-address 10.0.0.1 group 239.0.0.0/8\n"
      "acl A seq 10 deny 238.0.0.0/8\n"
      "acl A seq 20 permit 239.0.0.0/8\n"
      "acl B seq 10 permit any\n";
  EXPECT_EQ(runScript(script), kExitOk);
  EXPECT_EQ(errors.str(),
            "s.pimrp:4: warning: RP 10.0.0.1 is bound to 239.0.0.0/8 both by a group binding and "
            "by access list 'A': its candidate holds the values written last (priority 0, hash "
            "mask 30, no override), and removing one binding can leave them not set while "
            "another still names it\n");
}

TEST_F(InterpreterTest, BoundTwiceByARule_OnAStreamWarnedAtThatRule) {
  const std::string statements =
      "rp-address 10.0.0.1 acl A\n"
      "rp-address 10.0.0.1 group 239.0.0.0/8\n"
      "acl A seq 10 permit 239.0.0.0/8\n"
      "acl A seq 20 permit 238.0.0.0/8\n";
  EXPECT_EQ(runStream(statements), kExitOk);
  EXPECT_EQ(errors.str(),
            "-:3: warning: RP 10.0.0.1 is bound to 239.0.0.0/8 both by a group binding and by "
            "access list 'A': its candidate holds the values written last (priority 0, hash mask "
            "30, no override), and removing one binding can leave them not set while another "
            "still names it\n");
}

TEST_F(InterpreterTest, BoundTwiceThroughTwoLists_OneWarningNamingBoth) {
  const std::string script =
      "acl A seq 10 permit 239.0.0.0/8\n"
      "acl B seq 10 permit 239.0.0.0/8\n"
      "acl B seq 20 permit 236.0.0.0/8\n"
      "rp-address 10.0.0.1 acl A priority 3\n"
      "rp-address 10.0.0.1 acl B priority 4\n"
      "rp-address 10.0.0.1 group 239.0.0.0/8 priority 2 override\n"
      "rp-address 10.0.0.1 group 236.0.0.0/8\n";
  EXPECT_EQ(runScript(script), kExitOk);
  EXPECT_EQ(errors.str(),
            "s.pimrp:6: warning: RP 10.0.0.1 is bound to 239.0.0.0/8 both by a group binding and "
            "by access lists 'A' and 'B': its candidate holds the values written last (priority "
            "2, hash mask 30, override), and removing one binding can leave them not set while "
            "another still names it\n"
            "s.pimrp:7: warning: RP 10.0.0.1 is bound to 236.0.0.0/8 both by a group binding and "
            "by access list 'B': its candidate holds the values written last (priority 0, hash "
            "mask 30, no override), and removing one binding can leave them not set while "
            "another still names it\n");
}

TEST_F(InterpreterTest, ListBinding_WarnsOnceForEachRangeItBindsTwice) {
  const std::string script =
      "acl B seq 10 permit 239.0.0.0/8\n"
      "acl B seq 20 permit 236.0.0.0/8\n"
      "rp-address 10.0.0.2 group 239.0.0.0/8\n"
      "rp-address 10.0.0.2 group 236.0.0.0/8 hashmask 4\n"
      "rp-address 10.0.0.2 group 237.0.0.0/8\n"
      "rp-address 10.0.0.2 acl B priority 9\n";
  EXPECT_EQ(runScript(script), kExitOk);
  EXPECT_EQ(errors.str(),
            "s.pimrp:6: warning: RP 10.0.0.2 is bound to 236.0.0.0/8 both by a group binding and "
            "by access list 'B': its candidate holds the values written last (priority 9, hash "
            "mask 30, no override), and removing one binding can leave them not set while "
            "another still names it\n"
            "s.pimrp:6: warning: RP 10.0.0.2 is bound to 239.0.0.0/8 both by a group binding and "
            "by access list 'B': its candidate holds the values written last (priority 9, hash "
            "mask 30, no override), and removing one binding can leave them not set while "
            "another still names it\n");
}

TEST_F(InterpreterTest, RefusedScript_WarnsOfItsGoodLinesReadAloneInLineOrder) {
  const std::string script =
      "rp-address 10.0.0.1 group 239.0.0.0/8 priority none\n"
      "acl A seq 10 permit 239.0.0.0/8\n"
      "rp-address 10.0.0.1 acl A\n"
      "bogus\n"
      "rp-address 2001:db8::1 group ff0e::/16 hashmask 96\n";
  EXPECT_EQ(runScript(script), kExitBadScript);
  EXPECT_EQ(errors.str(),
            "s.pimrp:1: warning: RP 10.0.0.1 for 239.0.0.0/8: 'priority none' leaves the "
            "priority not set; the per-range RP hash tables get no entry from this candidate "
            "until it is set\n"
            "s.pimrp:4: error: unknown statement 'bogus'\n"
            "s.pimrp:5: warning: RP 2001:db8::1 for ff0e::/16: 'hashmask 96' hashes every group "
            "of the range alike, so one RP serves them all: the IPv6 hash reads only a group's "
            "last 32 bits, which a mask of 96 or less clears\n");
  EXPECT_TRUE(session.family(Ipkit::AddressFamily::ipv4).staticConfig()->rpTable().empty());
}

TEST_F(InterpreterTest, ByteOrderMarkAtTheStart_Skipped) {
  EXPECT_EQ(runScript("\xef\xbb\xbfshow acl A\n"), kExitOk);
  EXPECT_EQ(runStream("\xef\xbb\xbfshow acl B\n\xef\xbb\xbfshow acl C\n"), kExitStatementFailed);
  EXPECT_EQ(out.str(),
            "{\"acl\":\"A\",\"configured\":false,\"prefixes\":[],\"ignored\":[]}\n"
            "{\"acl\":\"B\",\"configured\":false,\"prefixes\":[],\"ignored\":[]}\n");
  EXPECT_EQ(errors.str(), "-:2: error: unknown statement '\\xef\\xbb\\xbfshow'\n");
}

TEST_F(InterpreterTest, EndlessBadScript_StopsReadingAtTheHundredthError) {
  std::size_t given = 0;
  EXPECT_EQ(interpreter.runScript("s.pimrp", endless("bogus", given)), kExitBadScript);
  EXPECT_EQ(given, kMaxScriptErrors);
  const std::string text = errors.str();
  EXPECT_EQ(text.substr(text.rfind("s.pimrp:99:")),
            "s.pimrp:99: error: unknown statement 'bogus'\n"
            "s.pimrp:100: error: unknown statement 'bogus'\n"
            "s.pimrp:100: error: 100 errors; the input is not read past this line\n");
}

TEST(ScriptRead, EndlessGoodScript_StopsReadingAtTheSizeLimit) {
  std::size_t given = 0;
  Validator checking;
  std::ostringstream diagnostics;
  // 11 bytes a line with its end: the 10th line would make 110 bytes.
  EXPECT_FALSE(scriptRead("s.pimrp", endless("show acl A", given), checking, diagnostics, 100));
  EXPECT_EQ(given, 10u);
  EXPECT_EQ(diagnostics.str(),
            "s.pimrp:10: error: script longer than 100 bytes; the input is not read past this "
            "line\n");
}

TEST(ScriptRead, GoodScript_TextWithoutItsByteOrderMark) {
  Validator checking;
  std::ostringstream diagnostics;
  const std::string script = "\xef\xbb\xbfgroup 239.1.1.1\n# note\nshow acl A";
  EXPECT_EQ(scriptRead("s.pimrp", linesOf(script), checking, diagnostics),
            std::optional<std::string>("group 239.1.1.1\n# note\nshow acl A\n"));
  EXPECT_EQ(diagnostics.str(), "");
  EXPECT_EQ(checking.knownGroups(Ipkit::AddressFamily::ipv4), 1u);
}

TEST(LinesOf, CutsALineOneByteOverTheLimitAsAStreamDoes) {
  const std::string text = "a\n" + std::string(kMaxLineLength + 3, 'x') + "\nlast";
  std::istringstream in(text);
  const LineSource lines = linesOf(text);
  std::string fromText, fromStream;
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(lines(fromText), lineFromStream(in, fromStream)) << i;
    EXPECT_EQ(fromText, fromStream) << i;
  }
  EXPECT_FALSE(lines(fromText));
}

TEST(InterpreterLimits, ScriptPassingTheGroupLimit_RefusedWholeNothingApplied) {
  Session session;
  std::ostringstream out, errors;
  const auto output = jsonOutputFactory(out);
  Interpreter interpreter(session, *output, errors, 20);
  EXPECT_EQ(interpreter.runScript("s.pimrp",
                                  "rp-address 10.0.0.1 group 239.0.0.0/8\n"
                                  "group 239.1.1.0/28\n"
                                  "group 239.1.2.0/29\n"
                                  "group ff0e::/124\n"),
            kExitBadScript);
  EXPECT_EQ(errors.str(),
            "s.pimrp:3: error: '239.1.2.0/29' would bring the known IPv4 groups to 24, above the "
            "limit of 20 (--max-groups)\n");
  EXPECT_TRUE(session.family(Ipkit::AddressFamily::ipv4).groups()->group().empty());
  EXPECT_TRUE(session.family(Ipkit::AddressFamily::ipv4).staticConfig()->rpTable().empty());
}

TEST_F(InterpreterTest, ConfigurationScope_LeavesOutKnownGroupsAndShows) {
  Validator checking;
  const std::string text =
      "group 239.1.1.1\n"
      "rp-address 10.0.0.1 group 239.0.0.0/8 hashmask none\n"
      "show candidates static\n"
      "no group 239.1.1.1\n";
  ASSERT_TRUE(scriptRead("s.pimrp", linesOf(text), checking, errors));
  EXPECT_EQ(interpreter.applyScript("s.pimrp", text, checking, ApplyScope::configuration), kExitOk);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(errors.str(),
            "s.pimrp:2: warning: RP 10.0.0.1 for 239.0.0.0/8: 'hashmask none' leaves the hash "
            "mask not set; the per-range RP hash tables get no entry from this candidate until "
            "it is set\n");
  EXPECT_TRUE(session.family(Ipkit::AddressFamily::ipv4).groups()->group().empty());
  EXPECT_TRUE(session.family(Ipkit::AddressFamily::ipv4)
                  .staticConfig()
                  ->rpTable(Ipkit::IpGenAddr("10.0.0.1")));
}

}  // namespace
