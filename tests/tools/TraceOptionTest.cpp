#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "framework/Kel/Trace.h"
#include "tests/support/Refusal.h"
#include "tools/TraceOption.h"

namespace {

using namespace PimrpTool;

std::string refusalOf(const std::string& text) {
  return TestSupport::refusalOf<TraceRequestError>([&] { traceRequestFromText(text); });
}

TEST(TraceOption, NameAndLevel_Read) {
  const TraceRequest request = traceRequestFromText("PimRpCompute=5");
  EXPECT_EQ(request.name, "PimRpCompute");
  EXPECT_EQ(request.level, 5);
  EXPECT_EQ(traceRequestFromText("all=0").name, "all");
}

TEST(TraceOption, BadRequests_QuoteTheText) {
  EXPECT_EQ(refusalOf("PimRpCompute"), "expected NAME=LEVEL, got 'PimRpCompute'");
  EXPECT_EQ(refusalOf("PimRpCompute=10"), "level '10' out of range 0..9");
  EXPECT_EQ(refusalOf("PimRpCompute=010"), "level '010' out of range 0..9");
  EXPECT_EQ(refusalOf("PimRpCompute="),
            "missing LEVEL after 'PimRpCompute=': expected NAME=LEVEL, LEVEL 0..9");
  EXPECT_EQ(refusalOf("PimRpCompute=abc"), "level 'abc' is not a number: expected 0..9");
  EXPECT_EQ(refusalOf("PimRpCompute=-1"), "level '-1' is not a number: expected 0..9");
  EXPECT_EQ(refusalOf("Nope=1"),
            "unknown trace file 'Nope' (known: all PimCrpGrpTrieBuilderSm PimGroupFilter "
            "PimGroupFilterSm PimRpCandidateStaticSm PimRpCompute PimRpHashSm)");
}

TEST(TraceOption, All_ReachesTraceFilesNotYetUsed) {
  traceRequestApply(traceRequestFromText("all=3"));
  for (const auto& name : libraryTraceFiles()) {
    EXPECT_TRUE(Kel::TraceFile::named(name).enabled(3)) << name;
    EXPECT_FALSE(Kel::TraceFile::named(name).enabled(4)) << name;
  }
  Kel::traceLevelsUpToIs(-1);
}

TEST(TraceOption, Sink_WritesEachRecordAsItComes) {
  std::ostringstream out;
  traceSinkIs(out);
  Kel::TraceFile& file = Kel::TraceFile::named("PimRpCompute");
  file.levelsUpToIs(5);
  KEL_TRACE(file, 5, "Computed RP " << 7);
  file.levelsUpToIs(-1);
  Kel::TraceRing::instance().sinkIs(nullptr);
  EXPECT_EQ(out.str(), "[PimRpCompute 5] Computed RP 7\n");
}

}  // namespace
