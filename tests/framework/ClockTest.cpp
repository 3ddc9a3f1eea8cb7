#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/Clock.h"
#include "framework/Kel/System.h"

namespace {

class Sleeper : public Kel::Clock::NotifieeConst {
 public:
  Sleeper(std::string name, std::vector<std::string>* journal)
      : name_(std::move(name)), journal_(journal) {}
  void onTime() override {
    journal_->push_back(name_ + "@" + std::to_string(Kel::System::currentTime()));
    if (again > 0) timeMinIs(Kel::System::currentTime() + again);
    again = 0;
  }
  double again = 0;

 private:
  std::string name_;
  std::vector<std::string>* journal_;
};

class ClockTest : public ::testing::Test {
 protected:
  void SetUp() override { Kel::System::virtualTimeIs(100.0); }
  void TearDown() override { Kel::System::realTimeIs(); }

  Kel::Ptr<Kel::Clock> clock_{new Kel::Clock};
  std::vector<std::string> journal_;
};

TEST_F(ClockTest, Clock_WakeupsAskedOutOfOrder_DeliveredInTimeOrder) {
  Sleeper late("late", &journal_), early("early", &journal_), middle("middle", &journal_);
  for (Sleeper* s : {&late, &early, &middle}) s->notifierIs(clock_);
  late.timeMinIs(103);
  early.timeMinIs(101);
  middle.timeMinIs(102);
  EXPECT_EQ(clock_->runUntil(110), 3u);
  EXPECT_EQ(journal_,
            (std::vector<std::string>{"early@101.000000", "middle@102.000000", "late@103.000000"}));
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 110.0);
}

TEST_F(ClockTest, Clock_EqualTimes_DeliveredInOrderAsked) {
  Sleeper a("a", &journal_), b("b", &journal_);
  b.notifierIs(clock_);
  a.notifierIs(clock_);
  b.timeMinIs(105);
  a.timeMinIs(105);
  clock_->runUntil(105);
  EXPECT_EQ(journal_, (std::vector<std::string>{"b@105.000000", "a@105.000000"}));
}

TEST_F(ClockTest, Clock_AskingAgain_ReplacesPendingWakeup) {
  Sleeper a("a", &journal_);
  a.notifierIs(clock_);
  a.timeMinIs(101);
  a.timeMinIs(104);
  clock_->runUntil(110);
  EXPECT_EQ(journal_, (std::vector<std::string>{"a@104.000000"}));
}

TEST_F(ClockTest, Clock_FarFutureTime_CancelsWakeup) {
  Sleeper a("a", &journal_);
  a.notifierIs(clock_);
  a.timeMinIs(101);
  a.timeMinIs(Kel::Clock::kNever);
  EXPECT_EQ(clock_->pendingWakeups(), 0u);
  clock_->runUntil(1e9);
  EXPECT_TRUE(journal_.empty());
}

TEST_F(ClockTest, Clock_HandlerAsksAgain_LoopDeliversFollowUp) {
  Sleeper a("a", &journal_);
  a.notifierIs(clock_);
  a.again = 0.5;
  a.timeMinIs(101);
  clock_->runUntil(102);
  EXPECT_EQ(journal_, (std::vector<std::string>{"a@101.000000", "a@101.500000"}));
}

TEST_F(ClockTest, Clock_DetachedOrDestroyedReactor_NeverCalled) {
  Sleeper a("a", &journal_);
  a.notifierIs(clock_);
  a.timeMinIs(101);
  a.notifierIs(nullptr);
  {
    Sleeper b("b", &journal_);
    b.notifierIs(clock_);
    b.timeMinIs(102);
  }
  EXPECT_EQ(clock_->pendingWakeups(), 0u);
  clock_->runUntil(200);
  EXPECT_TRUE(journal_.empty());
}

TEST_F(ClockTest, Clock_RunDue_DeliversOnlyWhatIsDue) {
  Sleeper a("a", &journal_), b("b", &journal_);
  a.notifierIs(clock_);
  b.notifierIs(clock_);
  a.timeMinIs(100);
  b.timeMinIs(100.5);
  EXPECT_EQ(clock_->runDue(), 1u);
  EXPECT_EQ(journal_, (std::vector<std::string>{"a@100.000000"}));
  EXPECT_DOUBLE_EQ(clock_->nextWakeup(), 100.5);
}

TEST(SystemTime, VirtualTime_MovesOnlyWhenAdvancedAndNeverBack) {
  Kel::System::virtualTimeIs(5.0);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 5.0);
  Kel::System::virtualTimeAdvanceTo(7.5);
  Kel::System::virtualTimeAdvanceTo(6.0);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 7.5);
  Kel::System::realTimeIs();
  EXPECT_GT(Kel::System::currentTime(), 1.7e9);
}

}  // namespace
