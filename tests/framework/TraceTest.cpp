#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "framework/Kel/Assert.h"
#include "framework/Kel/Trace.h"
#include "tests/support/Refusal.h"

namespace {

// Counts how often it is formatted.
struct Expensive {
  int* formatted;
};
std::ostream& operator<<(std::ostream& out, const Expensive& e) {
  ++*e.formatted;
  return out << "expensive";
}

class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Kel::TraceRing::instance().clear();
    file_.levelsUpToIs(-1);
  }
  void TearDown() override { file_.levelsUpToIs(-1); }

  Kel::TraceFile& file_ = Kel::TraceFile::named("KelTraceTest");
};

TEST_F(TraceTest, Trace_LevelOff_NothingFormattedNothingWritten) {
  int formatted = 0;
  file_.levelIs(5, true);
  KEL_TRACE(file_, 8, "value " << Expensive{&formatted});
  KEL_TRACE(file_, 9, Expensive{&formatted});
  EXPECT_EQ(formatted, 0);
  EXPECT_TRUE(Kel::TraceRing::instance().records().empty());
}

TEST_F(TraceTest, Trace_LevelOn_RecordReadBackWhole) {
  int formatted = 0;
  file_.levelIs(5, true);
  KEL_TRACE(file_, 5, "value " << Expensive{&formatted} << ", n=" << 42);
  EXPECT_EQ(formatted, 1);
  const auto& records = Kel::TraceRing::instance().records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, "value expensive, n=42");
  EXPECT_EQ(records[0].level, 5);
  EXPECT_EQ(records[0].traceFile, "KelTraceTest");
  EXPECT_EQ(records[0].function, "TestBody");
  EXPECT_EQ(Kel::TraceRing::instance().lines("KelTraceTest"),
            std::vector<std::string>{"value expensive, n=42"});
}

TEST_F(TraceTest, Trace_LevelsUpTo_EnablesThatLevelAndBelowOnly) {
  file_.levelsUpToIs(5);
  EXPECT_TRUE(file_.enabled(0));
  EXPECT_TRUE(file_.enabled(5));
  EXPECT_FALSE(file_.enabled(6));
  EXPECT_FALSE(file_.enabled(9));
  file_.levelIs(9, true);
  file_.levelIs(0, false);
  EXPECT_FALSE(file_.enabled(0));
  EXPECT_TRUE(file_.enabled(9));
}

TEST_F(TraceTest, Trace_SameName_SharesLevels) {
  Kel::TraceFile::named("KelTraceTest").levelIs(3, true);
  EXPECT_TRUE(file_.enabled(3));
  EXPECT_EQ(&Kel::TraceFile::named("KelTraceTest"), &file_);
}

TEST_F(TraceTest, Ring_Full_DropsOldestFirst) {
  auto& ring = Kel::TraceRing::instance();
  ring.capacityIs(3);
  file_.levelIs(0, true);
  for (int i = 0; i < 5; ++i) KEL_TRACE(file_, 0, "line " << i);
  EXPECT_EQ(ring.lines("KelTraceTest"), (std::vector<std::string>{"line 2", "line 3", "line 4"}));
  ring.capacityIs(Kel::TraceRing::kDefaultCapacity);
}

TEST_F(TraceTest, Sink_ReceivesEveryRecordAsWritten) {
  auto& ring = Kel::TraceRing::instance();
  std::vector<std::string> streamed;
  ring.sinkIs([&](const Kel::TraceRecord& record) {
    streamed.push_back(record.traceFile + ":" + std::to_string(record.level) + ":" + record.text);
  });
  file_.levelIs(4, true);
  KEL_TRACE(file_, 4, "hello");
  ring.sinkIs(nullptr);
  EXPECT_EQ(streamed, std::vector<std::string>{"KelTraceTest:4:hello"});
}

int checkedHalf(int value) {
  KEL_ASSERT(Kel::TraceFile::named("KelTraceTest"), value % 2 == 0);
  return value / 2;
}

TEST(Assertion, Failure_CarriesExpressionTraceFileLineAndSignature) {
  EXPECT_EQ(checkedHalf(4), 2);
  const auto e = TestSupport::thrownBy<Kel::AssertionException>([&] { checkedHalf(3); });
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->what(), "value % 2 == 0");
  EXPECT_EQ(e->expression(), "value % 2 == 0");
  EXPECT_EQ(e->traceFile(), "KelTraceTest");
  EXPECT_EQ(e->function(), "int {anonymous}::checkedHalf(int)");
  EXPECT_GT(e->line(), 0);
}

}  // namespace
