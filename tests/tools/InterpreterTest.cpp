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

TEST_F(InterpreterTest, OrderRules_HoldAcrossScriptAndStream) {
  EXPECT_EQ(runScript("rp-address 10.0.0.1 mode bidir\n"), kExitOk);
  EXPECT_EQ(runStream("vrf red\n"), kExitStatementFailed);
  EXPECT_EQ(errors.str(), "-:1: error: vrf 'red' must come before the first rp-address\n");
}

TEST_F(InterpreterTest, RefusedScript_LeavesOrderRulesAsTheyWere) {
  EXPECT_EQ(runScript("rp-address 10.0.0.1 mode bidir\nbogus\n"), kExitBadScript);
  EXPECT_EQ(runStream("vrf red\n"), kExitOk);
  EXPECT_EQ(session.vrf(), L3::VrfName("red"));
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

}  // namespace
