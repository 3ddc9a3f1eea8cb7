#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "framework/Kel/Clock.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/System.h"
#include "tests/support/Refusal.h"

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

// Asks for the current time again from every wake-up, like a time slice that never finishes.
class Repeater : public Kel::Clock::NotifieeConst {
 public:
  Repeater(std::string name, std::vector<std::string>* journal)
      : name_(std::move(name)), journal_(journal) {}
  void onTime() override {
    journal_->push_back(name_);
    timeMinIs(Kel::System::currentTime());
  }

 private:
  std::string name_;
  std::vector<std::string>* journal_;
};

// Wakes another reactor for the current time from inside its own wake-up.
class Waker : public Kel::Clock::NotifieeConst {
 public:
  Waker(Kel::Clock::NotifieeConst* other, std::vector<std::string>* journal)
      : other_(other), journal_(journal) {}
  void onTime() override {
    journal_->push_back("waker");
    other_->timeMinIs(Kel::System::currentTime());
  }

 private:
  Kel::Clock::NotifieeConst* other_;
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

TEST_F(ClockTest, Clock_HandlerReasksNow_DeliveredOncePerPass) {
  Repeater repeater("repeater", &journal_);
  Sleeper other("other", &journal_);
  repeater.notifierIs(clock_);
  other.notifierIs(clock_);
  repeater.timeMinIs(100);
  other.timeMinIs(100);
  EXPECT_EQ(clock_->runDue(1), 2u);
  EXPECT_EQ(journal_, (std::vector<std::string>{"repeater", "other@100.000000"}));
  EXPECT_EQ(clock_->runDue(1), 1u);
  EXPECT_EQ(clock_->runDue(3), 3u);
  EXPECT_EQ(journal_.size(), 6u);
  EXPECT_EQ(repeater.wakeupsDelivered(), 5u);
  EXPECT_DOUBLE_EQ(repeater.timeMin(), 100.0);
}

TEST_F(ClockTest, Clock_WakeupAskedInsidePass_WaitsForNextPass) {
  Sleeper woken("woken", &journal_);
  Waker waker(&woken, &journal_);
  waker.notifierIs(clock_);
  woken.notifierIs(clock_);
  waker.timeMinIs(99);
  EXPECT_EQ(clock_->runDue(1), 1u);
  EXPECT_EQ(journal_, (std::vector<std::string>{"waker"}));
  EXPECT_EQ(clock_->pendingWakeups(), 1u);
  EXPECT_EQ(clock_->runDue(), 1u);
  EXPECT_EQ(journal_, (std::vector<std::string>{"waker", "woken@100.000000"}));
}

TEST_F(ClockTest, Clock_RunDue_RunsPassesUntilNothingIsDue) {
  Sleeper woken("woken", &journal_);
  Waker waker(&woken, &journal_);
  waker.notifierIs(clock_);
  woken.notifierIs(clock_);
  waker.timeMinIs(100);
  EXPECT_EQ(clock_->runDue(), 2u);
  EXPECT_EQ(journal_, (std::vector<std::string>{"waker", "woken@100.000000"}));
  EXPECT_EQ(clock_->pendingWakeups(), 0u);
}

TEST_F(ClockTest, Clock_RunUntilWithPassLimit_StopsAndKeepsTimeAtLastPass) {
  Repeater repeater("repeater", &journal_);
  repeater.notifierIs(clock_);
  repeater.timeMinIs(101);
  EXPECT_EQ(clock_->runUntil(110, 2), 2u);
  EXPECT_EQ(journal_, (std::vector<std::string>{"repeater", "repeater"}));
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 101.0);
  repeater.timeMinIs(Kel::Clock::kNever);
  EXPECT_EQ(clock_->runUntil(110, 2), 0u);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 110.0);
}

TEST_F(ClockTest, Clock_RunNext_DeliversOneWakeupMovingVirtualTime) {
  Sleeper a("a", &journal_), b("b", &journal_);
  a.notifierIs(clock_);
  b.notifierIs(clock_);
  b.timeMinIs(102);
  a.timeMinIs(101);
  EXPECT_TRUE(clock_->runNext());
  EXPECT_EQ(journal_, (std::vector<std::string>{"a@101.000000"}));
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 101.0);
  EXPECT_TRUE(clock_->runNext());
  EXPECT_EQ(journal_, (std::vector<std::string>{"a@101.000000", "b@102.000000"}));
  EXPECT_FALSE(clock_->runNext());
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 102.0);
}

TEST_F(ClockTest, Clock_RunNext_ReaskedNowGoesBehindOtherDueWakeups) {
  Repeater repeater("repeater", &journal_);
  Sleeper other("other", &journal_);
  repeater.notifierIs(clock_);
  other.notifierIs(clock_);
  repeater.timeMinIs(100);
  other.timeMinIs(100);
  for (int step = 0; step < 3; ++step) EXPECT_TRUE(clock_->runNext());
  EXPECT_EQ(journal_, (std::vector<std::string>{"repeater", "other@100.000000", "repeater"}));
}

TEST_F(ClockTest, Clock_RunNextOnWallClock_DeliversOnlyWhatIsDue) {
  Kel::System::realTimeIs();
  Sleeper due("due", &journal_), later("later", &journal_);
  due.notifierIs(clock_);
  later.notifierIs(clock_);
  due.timeMinIs(Kel::System::currentTime() - 1);
  later.timeMinIs(Kel::System::currentTime() + 3600);
  EXPECT_TRUE(clock_->runNext());
  EXPECT_FALSE(clock_->runNext());
  EXPECT_EQ(journal_.size(), 1u);
  EXPECT_EQ(clock_->pendingWakeups(), 1u);
}

TEST_F(ClockTest, Clock_TimeMinAskedBeforeAttach_ScheduledOnAttach) {
  Sleeper a("a", &journal_);
  a.timeMinIs(104);
  EXPECT_EQ(clock_->pendingWakeups(), 0u);
  a.notifierIs(clock_);
  EXPECT_EQ(clock_->pendingWakeups(), 1u);
  EXPECT_DOUBLE_EQ(clock_->nextWakeup(), 104.0);
  EXPECT_EQ(clock_->runUntil(110), 1u);
  EXPECT_EQ(journal_, (std::vector<std::string>{"a@104.000000"}));
}

TEST_F(ClockTest, Clock_Detach_CancelsAndForgetsWakeup) {
  Sleeper a("a", &journal_);
  a.notifierIs(clock_);
  a.timeMinIs(104);
  a.notifierIs(nullptr);
  EXPECT_EQ(a.timeMin(), Kel::Clock::kNever);
  a.notifierIs(clock_);
  EXPECT_EQ(clock_->pendingWakeups(), 0u);
  clock_->runUntil(110);
  EXPECT_TRUE(journal_.empty());
}

// A time slice over a queue of items: works until the time read after an item is later than the
// slice's deadline, then asks its clock for "now" to continue in the next pass.
class SlicedWork : public Kel::Clock::NotifieeConst {
 public:
  SlicedWork(std::size_t items, double quantum) : remaining_(items), quantum_(quantum) {}
  void onTime() override {
    ++slices_;
    const double deadline = Kel::System::currentTime() + quantum_;
    while (remaining_ > 0) {
      --remaining_;
      if (Kel::System::currentTime() > deadline) break;
    }
    if (remaining_ == 0) return;
    ++suspensions_;
    timeMinIs(Kel::System::currentTime());
  }
  std::size_t remaining_;
  std::size_t slices_ = 0;
  std::size_t suspensions_ = 0;

 private:
  double quantum_;
};

TEST_F(ClockTest, Clock_SliceOverSteppingTime_SuspendsPredictably) {
  // 1/1024 s steps and a 10/1024 s quantum keep every sum exact: about 1 ms and 10 ms. Each slice
  // reads its deadline, then the time after each item; the 11th read is past the deadline, so
  // a slice does 11 items: 90 full slices, each suspending, then one of the last 10 items.
  const double step = 1.0 / 1024;
  Kel::System::steppingTimeIs(100.0, step);
  SlicedWork work(1000, 10 * step);
  work.notifierIs(clock_);
  work.timeMinIs(100.0);
  EXPECT_EQ(clock_->runDue(), 91u);
  EXPECT_EQ(work.slices_, 91u);
  EXPECT_EQ(work.suspensions_, 90u);
  EXPECT_EQ(work.remaining_, 0u);
  EXPECT_EQ(clock_->pendingWakeups(), 0u);
}

TEST(SystemTime, SteppingTime_EachReadAdvancesByStep) {
  Kel::System::steppingTimeIs(10.0, 0.5);
  EXPECT_TRUE(Kel::System::virtualTime());
  EXPECT_DOUBLE_EQ(Kel::System::timeStep(), 0.5);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 10.0);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 10.5);
  Kel::System::virtualTimeAdvanceTo(20.0);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 20.0);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 20.5);
  Kel::System::virtualTimeIs(5.0);
  EXPECT_DOUBLE_EQ(Kel::System::timeStep(), 0.0);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 5.0);
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 5.0);
  Kel::System::realTimeIs();
}

TEST(SystemTime, SteppingTime_NegativeStep_RefusedAndTimeUnchanged) {
  Kel::System::virtualTimeIs(7.0);
  EXPECT_EQ(
      TestSupport::refusalOf<Kel::RangeException>([&] { Kel::System::steppingTimeIs(1.0, -0.25); }),
      "time step -0.250000 refused: must not be negative");
  EXPECT_DOUBLE_EQ(Kel::System::currentTime(), 7.0);
  EXPECT_DOUBLE_EQ(Kel::System::timeStep(), 0.0);
  Kel::System::realTimeIs();
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
