#include <gtest/gtest.h>

#include "framework/Kel/Ptr.h"

namespace {

class Counted : public Kel::PtrInterface {
 public:
  explicit Counted(int* destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++*destroyed_; }

 private:
  int* destroyed_;
};

class PtrCountingTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    previous_ = Kel::threadSafePtrs();
    Kel::threadSafePtrsIs(GetParam());
  }
  void TearDown() override { Kel::threadSafePtrsIs(previous_); }

 private:
  bool previous_ = false;
};

TEST_P(PtrCountingTest, Ptr_CopiesAndDrops_CountFollowsAndLastDropDeletes) {
  EXPECT_EQ(Kel::threadSafePtrs(), GetParam());
  int destroyed = 0;
  Kel::Ptr<Counted> first(new Counted(&destroyed));
  EXPECT_EQ(first->references(), 1u);
  {
    Kel::Ptr<Counted> second = first;
    Kel::PtrConst<Counted> readOnly = first;
    EXPECT_EQ(first->references(), 3u);
  }
  EXPECT_EQ(first->references(), 1u);
  Kel::Ptr<Counted> moved = std::move(first);
  EXPECT_EQ(moved->references(), 1u);
  EXPECT_EQ(first, nullptr);
  EXPECT_EQ(destroyed, 0);
  moved = nullptr;
  EXPECT_EQ(destroyed, 1);
}

INSTANTIATE_TEST_SUITE_P(AtomicAndPlain, PtrCountingTest, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return info.param ? "Atomic" : "Plain";
                         });

TEST(PtrTest, Ptr_SelfAssignment_KeepsObjectAlive) {
  int destroyed = 0;
  Kel::Ptr<Counted> p(new Counted(&destroyed));
  Kel::Ptr<Counted>& alias = p;
  p = alias;
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(p->references(), 1u);
}

}  // namespace
