// The dispatch rules of reactors, including "disrupter" reactors that change the reactor list
// from inside a handler, and the generated-mutator conventions.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/framework/KelTestEntities.h"
#include "tests/support/Refusal.h"

namespace {

using KelTest::Car;
using KelTest::Garage;

// Records its calls into a shared journal and runs an optional action inside onDoors.
class Recorder : public Garage::NotifieeConst {
 public:
  Recorder(std::string name, std::vector<std::string>* journal)
      : name_(std::move(name)), journal_(journal) {}
  void onDoors() override {
    journal_->push_back(name_ + ".onDoors");
    if (action) action();
  }
  void onCar(const std::string& car) override { journal_->push_back(name_ + ".onCar " + car); }
  void onTag(int key) override { journal_->push_back(name_ + ".onTag " + std::to_string(key)); }

  std::function<void()> action;

 private:
  std::string name_;
  std::vector<std::string>* journal_;
};

Kel::Ptr<Recorder> recorderOn(const Kel::Ptr<Garage>& garage, const std::string& name,
                              std::vector<std::string>* journal) {
  Kel::Ptr<Recorder> recorder(new Recorder(name, journal));
  recorder->notifierIs(garage);
  return recorder;
}

TEST(Entity, Dispatch_SeveralReactors_CalledInRegistrationOrder) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto second = recorderOn(garage, "b", &journal);
  auto first = recorderOn(garage, "a", &journal);
  auto third = recorderOn(garage, "c", &journal);
  garage->doorsIs(2);
  EXPECT_EQ(journal, (std::vector<std::string>{"b.onDoors", "a.onDoors", "c.onDoors"}));
}

TEST(Entity, Dispatch_SameValue_NotifiesNothing) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto recorder = recorderOn(garage, "a", &journal);
  garage->doorsIs(0);
  garage->tagIs(1, 5);
  garage->tagIs(1, 5);
  garage->tagDel(7);
  garage->carIs("x");
  garage->carIs("x");
  garage->carDel("absent");
  EXPECT_EQ(journal, (std::vector<std::string>{"a.onTag 1", "a.onCar x"}));
}

TEST(Entity, Dispatch_NotifyMember_AlwaysNotifies) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  garage->carIs("x");
  auto recorder = recorderOn(garage, "a", &journal);
  garage->carNotify("x");
  garage->carNotify("x");
  EXPECT_EQ(journal, (std::vector<std::string>{"a.onCar x", "a.onCar x"}));
}

TEST(Entity, Dispatch_ReactorRemovedDuringDispatch_NotCalledAfterwards) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto disrupter = recorderOn(garage, "a", &journal);
  auto victim = recorderOn(garage, "b", &journal);
  auto bystander = recorderOn(garage, "c", &journal);
  disrupter->action = [&] { victim->notifierIs(nullptr); };
  garage->doorsIs(1);
  EXPECT_EQ(journal, (std::vector<std::string>{"a.onDoors", "c.onDoors"}));
  EXPECT_EQ(garage->notifiees(), 2u);
}

TEST(Entity, Dispatch_ReactorAddedDuringDispatch_NotCalledForThatNotification) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto disrupter = recorderOn(garage, "a", &journal);
  Kel::Ptr<Recorder> latecomer;
  disrupter->action = [&] {
    if (!latecomer) latecomer = recorderOn(garage, "late", &journal);
  };
  garage->doorsIs(1);
  EXPECT_EQ(journal, (std::vector<std::string>{"a.onDoors"}));
  garage->doorsIs(2);
  EXPECT_EQ(journal, (std::vector<std::string>{"a.onDoors", "a.onDoors", "late.onDoors"}));
}

TEST(Entity, Dispatch_HandlerDropsItsOwnReactor_ReactorLivesUntilHandlerReturns) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto self = recorderOn(garage, "a", &journal);
  auto after = recorderOn(garage, "b", &journal);
  Recorder* raw = self.ptr();
  raw->action = [&] {
    self = nullptr;  // the last outside reference
    journal.push_back("still alive: " + std::to_string(raw->references()));
  };
  garage->doorsIs(1);
  EXPECT_EQ(journal, (std::vector<std::string>{"a.onDoors", "still alive: 1", "b.onDoors"}));
  EXPECT_EQ(garage->notifiees(), 1u);
}

TEST(Entity, Dispatch_NestedChangeOfSameEntity_RunsNestedDispatch) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto first = recorderOn(garage, "a", &journal);
  auto second = recorderOn(garage, "b", &journal);
  first->action = [&] {
    if (garage->doors() < 2) garage->doorsInc(1);
  };
  garage->doorsIs(1);
  EXPECT_EQ(journal,
            (std::vector<std::string>{"a.onDoors", "a.onDoors", "b.onDoors", "b.onDoors"}));
}

TEST(Entity, Dispatch_UnregisteredReactor_ReceivesNothing) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto recorder = recorderOn(garage, "a", &journal);
  recorder->isRegisteredNotifieeIs(false);
  garage->doorsIs(3);
  EXPECT_TRUE(journal.empty());
  recorder->isRegisteredNotifieeIs(true);
  garage->doorsIs(4);
  EXPECT_EQ(journal, (std::vector<std::string>{"a.onDoors"}));
}

TEST(Entity, Dispatch_HandlerThrows_ReactorListStaysConsistent) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto thrower = recorderOn(garage, "a", &journal);
  auto victim = recorderOn(garage, "b", &journal);
  thrower->action = [&] {
    victim->notifierIs(nullptr);
    throw std::runtime_error("boom");
  };
  EXPECT_THROW(garage->doorsIs(1), std::runtime_error);
  EXPECT_EQ(garage->notifiees(), 1u);
  thrower->action = nullptr;
  garage->doorsIs(2);
  EXPECT_EQ(journal, (std::vector<std::string>{"a.onDoors", "a.onDoors"}));
}

TEST(Entity, Reactor_HoldsItsNotifier_EntityLivesWhileWatched) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto recorder = recorderOn(garage, "a", &journal);
  EXPECT_EQ(garage->references(), 2u);
  recorder->notifierIs(nullptr);
  EXPECT_EQ(garage->references(), 1u);
}

TEST(Entity, Mutator_NullEntity_RefusedWithExactText) {
  Kel::Ptr<Garage> garage(new Garage);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { garage->carIs("x", nullptr); }),
            "null _car parameter to mutator for KelTest::Garage::car not allowed");
  EXPECT_TRUE(garage->car().empty());
}

TEST(Entity, Counter_Inc_AddsAndNotifies) {
  std::vector<std::string> journal;
  Kel::Ptr<Garage> garage(new Garage);
  auto recorder = recorderOn(garage, "a", &journal);
  garage->doorsInc(3);
  garage->doorsInc(2);
  EXPECT_EQ(garage->doors(), 5u);
  EXPECT_EQ(journal.size(), 2u);
}

}  // namespace
