// The dispatch policy: depth-first order of nested changes, and what an exception thrown from a
// handler leaves behind; disrupter reactors that change collections from inside a handler.

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/framework/KelTestEntities.h"

namespace {

using KelTest::Car;
using KelTest::Garage;

class Disrupter : public Garage::NotifieeConst {
 public:
  Disrupter(std::string name, std::vector<std::string>* journal)
      : name_(std::move(name)), journal_(journal) {}
  void onTag(int key) override {
    journal_->push_back(name_ + "(" + std::to_string(key) + ")");
    if (onTagAction) onTagAction(key);
  }
  void onCar(const std::string& name) override {
    journal_->push_back(name_ + "(" + name + ")");
    if (onCarAction) onCarAction(name);
  }

  std::function<void(int)> onTagAction;
  std::function<void(const std::string&)> onCarAction;

 private:
  std::string name_;
  std::vector<std::string>* journal_;
};

struct TwoReactors {
  TwoReactors() : a(new Disrupter("A", &journal)), b(new Disrupter("B", &journal)) {
    a->notifierIs(garage);
    b->notifierIs(garage);
  }
  ~TwoReactors() {
    a->notifierIs(nullptr);
    b->notifierIs(nullptr);
  }
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage{new Garage};
  Kel::Ptr<Disrupter> a;
  Kel::Ptr<Disrupter> b;
};

TEST(DispatchPolicy, NestedChange_SecondReactorSeesItBeforeTheFirstChange) {
  TwoReactors r;
  r.a->onTagAction = [&](int key) {
    if (key == 1) r.garage->tagIs(2, 20);
  };
  r.garage->tagIs(1, 10);
  EXPECT_EQ(r.journal, (std::vector<std::string>{"A(1)", "A(2)", "B(2)", "B(1)"}));
}

TEST(DispatchPolicy, NestedChange_HandlerReadsCurrentStateOfBoth) {
  TwoReactors r;
  std::vector<std::string> seenByB;
  r.a->onTagAction = [&](int key) {
    if (key == 1) r.garage->tagIs(2, 20);
  };
  r.b->onTagAction = [&](int key) {
    seenByB.push_back(std::to_string(key) + ":" + std::to_string(r.garage->tag(1)) + "," +
                      std::to_string(r.garage->tag(2)));
  };
  r.garage->tagIs(1, 10);
  EXPECT_EQ(seenByB, (std::vector<std::string>{"2:10,20", "1:10,20"}));
}

TEST(DispatchPolicy, HandlerThrows_StoreKeptLaterReactorsSkippedEverythingConsistent) {
  TwoReactors r;
  r.a->onTagAction = [&](int key) {
    if (key == 1) {
      r.garage->tagIs(2, 20);
      throw std::runtime_error("mid-dispatch");
    }
  };
  EXPECT_THROW(r.garage->tagIs(1, 10), std::runtime_error);
  EXPECT_EQ(r.journal, (std::vector<std::string>{"A(1)", "A(2)", "B(2)"}));
  EXPECT_EQ(r.garage->tag(1), 10);
  EXPECT_EQ(r.garage->tag(2), 20);
  EXPECT_EQ(r.garage->tag().size(), 2u);
  EXPECT_EQ(r.garage->notifiees(), 2u);
  EXPECT_EQ(r.garage->references(), 3u);  // the test's and the two reactors'; no hold leaked
  EXPECT_EQ(r.a->references(), 1u);
  r.a->onTagAction = nullptr;
  r.journal.clear();
  r.garage->tagIs(3, 30);
  EXPECT_EQ(r.journal, (std::vector<std::string>{"A(3)", "B(3)"}));
}

TEST(DispatchPolicy, HandlerThrowsWhileAnotherDetaches_ListCompactedAfterwards) {
  TwoReactors r;
  r.a->onTagAction = [&](int) {
    r.b->notifierIs(nullptr);
    throw std::runtime_error("after detaching B");
  };
  EXPECT_THROW(r.garage->tagIs(1, 10), std::runtime_error);
  EXPECT_EQ(r.garage->notifiees(), 1u);
  r.a->onTagAction = nullptr;
  r.garage->tagIs(2, 20);
  EXPECT_EQ(r.journal, (std::vector<std::string>{"A(1)", "A(2)"}));
}

TEST(DispatchPolicy, HandlerDeletesMemberBeingWalked_WalkVisitsEveryOtherMemberOnce) {
  TwoReactors r;
  for (const char* name : {"a", "b", "c", "d"}) r.garage->carIs(name);
  r.a->onCarAction = [&](const std::string& name) {
    if (name == "b") r.garage->carDel("c");
  };
  std::vector<std::string> walked;
  for (const auto& [name, car] : r.garage->car()) {
    walked.push_back(name);
    r.garage->carDel(name);  // notifies A, which deletes c while the walk stands on b
  }
  EXPECT_EQ(walked, (std::vector<std::string>{"a", "b", "d"}));
  EXPECT_TRUE(r.garage->car().empty());
}

TEST(DispatchPolicy, HandlerCreatesMembersWhileCreationNotifies_EachCreatedOnceReportedOnce) {
  TwoReactors r;
  r.a->onCarAction = [&](const std::string& name) {
    if (name == "a") {
      r.garage->carIs("b");
      r.garage->carIs("a");  // the member in creation is already stored: no second creation
    }
  };
  const auto car = r.garage->carIs("a");
  EXPECT_EQ(r.garage->car("a"), car);
  EXPECT_EQ(r.journal, (std::vector<std::string>{"A(a)", "A(b)", "B(b)", "B(a)"}));
}

}  // namespace
