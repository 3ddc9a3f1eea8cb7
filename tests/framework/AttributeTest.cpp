// The accessor family of declared attributes: scalars, counters, value and entity collections,
// the whole-collection notification and the null-mutator refusal.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/framework/KelTestEntities.h"

namespace {

using KelTest::Car;
using KelTest::Garage;

class Journal : public Garage::NotifieeConst {
 public:
  void onDoors() override { lines.push_back("doors " + std::to_string(notifier()->doors())); }
  void onVisits() override { lines.push_back("visits " + std::to_string(notifier()->visits())); }
  void onCar(const std::string& name) override {
    lines.push_back("car " + name + (notifier()->car(name) ? " present" : " absent"));
  }
  void onCar() override { lines.push_back("car *"); }
  void onTag(int key) override { lines.push_back("tag " + std::to_string(key)); }
  void onTag() override { lines.push_back("tag *"); }

  std::vector<std::string> lines;
};

struct Watched {
  Watched() : journal(new Journal) { journal->notifierIs(garage); }
  ~Watched() { journal->notifierIs(nullptr); }
  Kel::Ptr<Garage> garage{new Garage};
  Kel::Ptr<Journal> journal;
};

TEST(Attribute, Scalar_ChangeStoresThenNotifies_SameValueNothing) {
  Watched w;
  w.garage->doorsIs(4);
  w.garage->doorsIs(4);
  w.garage->doorsIs(0);
  EXPECT_EQ(w.journal->lines, (std::vector<std::string>{"doors 4", "doors 0"}));
}

TEST(Attribute, Counter_IncAndDec_ReturnStoredValueAndNotifyEachChange) {
  Watched w;
  EXPECT_EQ(w.garage->visitsInc(3), 3u);
  EXPECT_EQ(w.garage->visitsDec(1), 2u);
  EXPECT_EQ(w.garage->visitsInc(0), 2u);
  EXPECT_EQ(w.garage->visitsDec(3), 4294967295u);
  EXPECT_EQ(w.journal->lines,
            (std::vector<std::string>{"visits 3", "visits 2", "visits 4294967295"}));
}

TEST(Attribute, EntityCollection_IsCreatesOnceAndNotifiesOnCreation) {
  Watched w;
  const auto first = w.garage->carIs("a");
  const auto again = w.garage->carIs("a");
  EXPECT_EQ(first, again);
  EXPECT_EQ(first->name(), "a");
  EXPECT_EQ(w.garage->carMutable("a"), first);
  EXPECT_FALSE(w.garage->carMutable("b"));
  EXPECT_EQ(w.journal->lines, (std::vector<std::string>{"car a present"}));
}

TEST(Attribute, EntityCollection_AdoptReplacesAndNullIsRefusedLeavingStateAsItWas) {
  Watched w;
  const Kel::Ptr<Car> own(new Car("own"));
  w.garage->carIs("a", own);
  w.garage->carIs("a", own);
  try {
    w.garage->carIs("a", nullptr);
    FAIL() << "a null car was accepted";
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "null _car parameter to mutator for KelTest::Garage::car not allowed");
  }
  EXPECT_EQ(w.garage->car("a"), own);
  EXPECT_EQ(w.journal->lines, (std::vector<std::string>{"car a present"}));
}

TEST(Attribute, Collection_DelOfAbsentKeyNotifiesNothing_DelAllNotifiesEachKeyAfterItGoes) {
  Watched w;
  w.garage->carIs("b");
  w.garage->carIs("a");
  w.garage->carDel("zz");
  w.journal->lines.clear();
  w.garage->carDelAll();
  EXPECT_EQ(w.journal->lines, (std::vector<std::string>{"car a absent", "car b absent"}));
}

TEST(Attribute, Collection_NotifyWithKeyAndWhole_AlwaysNotify) {
  Watched w;
  w.garage->tagIs(1, 10);
  w.garage->tagIs(1, 10);
  w.garage->tagNotify(1);
  w.garage->tagNotify();
  w.garage->carNotify();
  EXPECT_EQ(w.journal->lines, (std::vector<std::string>{"tag 1", "tag 1", "tag *", "car *"}));
  EXPECT_EQ(w.garage->tag(1), 10);
  EXPECT_EQ(w.garage->tag(2), 0);
}

TEST(Attribute, Mutators_WithoutReactors_StoreOnly) {
  const Kel::Ptr<Garage> garage(new Garage);
  garage->doorsIs(2);
  garage->tagIs(3, 4);
  garage->carIs("x")->colourIs("blue");
  EXPECT_EQ(garage->doors(), 2u);
  EXPECT_EQ(garage->tag(3), 4);
  EXPECT_EQ(garage->car("x")->colour(), "blue");
  EXPECT_EQ(garage->references(), 1u);
}

}  // namespace
