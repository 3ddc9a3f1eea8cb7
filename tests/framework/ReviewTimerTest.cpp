#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/Clock.h"
#include "framework/Kel/Exception.h"
#include "framework/Kel/System.h"
#include "framework/Oru/ReviewTimer.h"
#include "tests/support/Refusal.h"

namespace {

constexpr float kFillInterval = 1.0f;
constexpr unsigned kMaxCredits = 4;
constexpr float kMinDelay = 0.01f;
constexpr float kMaxDelay = 0.05f;

// The clock reactor of a reviewing owner: records when it was woken, and whether the timer still
// called its review pending from inside the wake-up.
class Reviewer : public Kel::Clock::NotifieeConst {
 public:
  void onTime() override {
    wokenAt.push_back(Kel::System::currentTime());
    pendingInsideWakeup = timer->reviewPending();
    if (continueAtOnce) timeMinIs(Kel::System::currentTime());
  }
  Oru::ReviewTimer* timer = nullptr;
  std::vector<double> wokenAt;
  bool pendingInsideWakeup = true;
  bool continueAtOnce = false;
};

class ReviewTimerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Kel::System::virtualTimeIs(100.0);
    reviewer_.notifierIs(clock_);
    reviewer_.timer = &timer_;
  }
  void TearDown() override { Kel::System::realTimeIs(); }

  // Asks for a review and runs the clock until it is delivered; returns its delay.
  double kickAndDeliver() {
    const double askedAt = Kel::System::currentTime();
    timer_.doUpdateNextReview();
    EXPECT_TRUE(clock_->runNext());
    return reviewer_.wokenAt.back() - askedAt;
  }

  Kel::Ptr<Kel::Clock> clock_{new Kel::Clock};
  Reviewer reviewer_;
  Oru::ReviewTimer timer_{&reviewer_, kFillInterval, kMaxCredits, kMinDelay, kMaxDelay};
};

TEST_F(ReviewTimerTest, ReviewTimer_New_HoldsParametersAndStartsFull) {
  EXPECT_EQ(timer_.clock(), &reviewer_);
  EXPECT_EQ(timer_.fillInterval(), kFillInterval);
  EXPECT_EQ(timer_.maxCredits(), kMaxCredits);
  EXPECT_EQ(timer_.minDelay(), kMinDelay);
  EXPECT_EQ(timer_.maxDelay(), kMaxDelay);
  EXPECT_EQ(timer_.credits(), 4u);
  EXPECT_FALSE(timer_.reviewPending());
  EXPECT_EQ(timer_.lastReviewTime(), 0.0);
}

TEST_F(ReviewTimerTest, ReviewTimer_Burst_SpendsCreditsAtMinDelayThenPacesAtMaxDelay) {
  std::vector<double> delays;
  for (int kick = 0; kick < 6; ++kick) delays.push_back(kickAndDeliver());
  for (int kick = 0; kick < 4; ++kick) EXPECT_NEAR(delays[kick], kMinDelay, 1e-9) << kick;
  for (int kick = 4; kick < 6; ++kick) EXPECT_NEAR(delays[kick], kMaxDelay, 1e-9) << kick;
  EXPECT_EQ(timer_.credits(), 0u);
}

TEST_F(ReviewTimerTest, ReviewTimer_Credits_RegainedOnePerFillIntervalUpToMaximum) {
  for (int kick = 0; kick < 4; ++kick) kickAndDeliver();
  EXPECT_EQ(timer_.credits(), 0u);
  // The first credit was spent at 100.0, so credits count from there.
  clock_->runUntil(100.999);
  EXPECT_EQ(timer_.credits(), 0u);
  clock_->runUntil(101.0);
  EXPECT_EQ(timer_.credits(), 1u);
  EXPECT_NEAR(kickAndDeliver(), kMinDelay, 1e-9);
  EXPECT_NEAR(kickAndDeliver(), kMaxDelay, 1e-9);
  clock_->runUntil(103.5);
  EXPECT_EQ(timer_.credits(), 2u);
  clock_->runUntil(200.0);
  EXPECT_EQ(timer_.credits(), 4u);
}

TEST_F(ReviewTimerTest, ReviewTimer_ReviewPending_FromRequestUntilWakeupDelivered) {
  timer_.doUpdateNextReview();
  EXPECT_TRUE(timer_.reviewPending());
  EXPECT_DOUBLE_EQ(reviewer_.timeMin(), 100.0 + kMinDelay);
  EXPECT_TRUE(clock_->runNext());
  EXPECT_FALSE(reviewer_.pendingInsideWakeup);
  EXPECT_FALSE(timer_.reviewPending());
}

TEST_F(ReviewTimerTest, ReviewTimer_CancelledWakeup_NotPending) {
  timer_.doUpdateNextReview();
  reviewer_.timeMinIs(Kel::Clock::kNever);
  EXPECT_FALSE(timer_.reviewPending());
}

TEST_F(ReviewTimerTest, ReviewTimer_ContinueAtOnce_BypassesTimerAndSpendsNoCredit) {
  reviewer_.continueAtOnce = true;
  timer_.doUpdateNextReview();
  EXPECT_EQ(clock_->runUntil(100.5, 3), 3u);
  EXPECT_FALSE(timer_.reviewPending());
  EXPECT_EQ(timer_.credits(), 3u);
  EXPECT_EQ(reviewer_.wokenAt, (std::vector<double>(3, reviewer_.wokenAt.front())));
}

TEST_F(ReviewTimerTest, ReviewTimer_ParametersUpdatedInPlace) {
  for (int kick = 0; kick < 4; ++kick) kickAndDeliver();
  timer_.fillIntervalIs(0.5f);
  timer_.maxCreditsIs(2);
  timer_.minDelayIs(0.02f);
  timer_.maxDelayIs(0.2f);
  EXPECT_EQ(timer_.fillInterval(), 0.5f);
  EXPECT_EQ(timer_.maxCredits(), 2u);
  EXPECT_NEAR(kickAndDeliver(), 0.2f, 1e-9);
  clock_->runUntil(Kel::System::currentTime() + 0.5);
  EXPECT_EQ(timer_.credits(), 1u);
  EXPECT_NEAR(kickAndDeliver(), 0.02f, 1e-9);
  clock_->runUntil(Kel::System::currentTime() + 60.0);
  EXPECT_EQ(timer_.credits(), 2u);
}

TEST_F(ReviewTimerTest, ReviewTimer_LowerMaximum_DropsExcessCredits) {
  timer_.maxCreditsIs(1);
  EXPECT_EQ(timer_.credits(), 1u);
}

TEST_F(ReviewTimerTest, ReviewTimer_LastReviewTime_IsAnAttribute) {
  timer_.lastReviewTimeIs(123.25);
  EXPECT_EQ(timer_.lastReviewTime(), 123.25);
}

TEST_F(ReviewTimerTest, ReviewTimer_BadParameters_RefusedAndStateKept) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { timer_.fillIntervalIs(0.0f); }),
            "review timer fillInterval 0.000000 refused: must be positive");
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { timer_.minDelayIs(-1.0f); }),
            "review timer minDelay -1.000000 refused: must not be negative");
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { timer_.maxDelayIs(-0.5f); }),
            "review timer maxDelay -0.500000 refused: must not be negative");
  EXPECT_EQ(timer_.fillInterval(), kFillInterval);
  EXPECT_EQ(timer_.minDelay(), kMinDelay);
  EXPECT_EQ(timer_.maxDelay(), kMaxDelay);
}

TEST(ReviewTimerConstruction, ReviewTimer_NullClockReactor_Refused) {
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] {
              Oru::ReviewTimer timer(nullptr, kFillInterval, kMaxCredits, kMinDelay, kMaxDelay);
            }),
            "null _clock parameter to mutator for Oru::ReviewTimer::clock not allowed");
}

}  // namespace
