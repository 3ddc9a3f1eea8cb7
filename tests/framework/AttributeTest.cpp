// The accessor family of declared attributes: scalars, counters (hooked ones too), one member
// entity, value and entity collections, the whole-collection notification and the null-mutator
// refusal; the silent owned values, counters, objects and collections of an owner without
// reactors.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/framework/KelTestEntities.h"
#include "tests/support/Refusal.h"

namespace {

using KelTest::Car;
using KelTest::Garage;

class Journal : public Garage::NotifieeConst {
 public:
  void onDoors() override { lines.push_back("doors " + std::to_string(notifier()->doors())); }
  void onVisits() override { lines.push_back("visits " + std::to_string(notifier()->visits())); }
  // With what the hook had logged by then.
  void onOpenings() override {
    const auto& log = notifier()->openingsLog;
    lines.push_back("openings " + std::to_string(notifier()->openings()) + " after " +
                    (log.empty() ? "nothing" : log.back()));
  }
  void onSign() override {
    lines.push_back("sign " + (notifier()->sign() ? notifier()->sign()->text() : "none"));
  }
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

TEST(Attribute, CounterHooked_HookRunsAfterStoreBeforeNotification_NotOnSameValue) {
  Watched w;
  EXPECT_EQ(w.garage->openingsInc(2), 2u);
  EXPECT_EQ(w.garage->openingsInc(0), 2u);
  w.garage->openingsIs(2);
  EXPECT_EQ(w.garage->openingsDec(1), 1u);
  EXPECT_EQ(w.garage->openingsLog, (std::vector<std::string>{"0 -> 2", "2 -> 1"}));
  EXPECT_EQ(w.journal->lines,
            (std::vector<std::string>{"openings 2 after 0 -> 2", "openings 1 after 2 -> 1"}));
}

TEST(Attribute, Reference_IsCreatesWhenNoneAdoptsAnotherAndDelDrops_EachChangeNotifies) {
  Watched w;
  EXPECT_FALSE(w.garage->sign());
  EXPECT_FALSE(w.garage->signMutable());
  const Kel::Ptr<KelTest::Sign> made = w.garage->signIs();
  EXPECT_EQ(w.garage->signIs(), made);
  const Kel::Ptr<KelTest::Sign> own(new KelTest::Sign);
  own->textIs("open");
  EXPECT_EQ(w.garage->signIs(own), own);
  EXPECT_EQ(w.garage->signIs(own), own);
  EXPECT_EQ(w.garage->signMutable(), own);
  EXPECT_EQ(w.garage->sign(), own);
  w.garage->signDel();
  w.garage->signDel();
  EXPECT_FALSE(w.garage->sign());
  EXPECT_EQ(w.journal->lines, (std::vector<std::string>{"sign ", "sign open", "sign none"}));
}

TEST(Attribute, Reference_NullIsRefusedLeavingStateAsItWas) {
  Watched w;
  const Kel::Ptr<KelTest::Sign> own(new KelTest::Sign);
  w.garage->signIs(own);
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { w.garage->signIs(nullptr); }),
            "null _sign parameter to mutator for KelTest::Garage::sign not allowed");
  EXPECT_EQ(w.garage->sign(), own);
  EXPECT_EQ(w.journal->lines, (std::vector<std::string>{"sign "}));
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
  EXPECT_EQ(TestSupport::refusalOf<Kel::RangeException>([&] { w.garage->carIs("a", nullptr); }),
            "null _car parameter to mutator for KelTest::Garage::car not allowed");
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

// An owner without reactors of its own: a bay number and a trip counter, one lead car made from
// arguments, a garage made by its default constructor, a plain collection of cars, a collection
// of spots whose creation and deletion the owner hooks, a value collection of notes and a counter
// collection of fuel.
class Depot {
 public:
  using SpotCollection = Kel::OrderedCollection<std::string, Kel::Ptr<Car>, Kel::PtrConst<Car>>;

  KEL_OWNED_SCALAR(bay, 7, unsigned)
  KEL_OWNED_COUNTER(trips, 0, std::uint64_t)
  KEL_OWNED_VALUE_COLLECTION(note, Kel::OrderedCollection<int, std::string>)
  KEL_OWNED_COUNTER_COLLECTION(fuel, Kel::HashCollection<std::string, unsigned>)
  KEL_OWNED(lead, Kel::create<Car>, Kel::Ptr<Car>)
  KEL_OWNED(garage, Kel::create<Garage>, Kel::Ptr<Garage>)
  KEL_OWNED_COLLECTION(car, Garage::CarCollection)
  KEL_OWNED_COLLECTION_HOOKED(spot, SpotCollection)

  std::vector<std::string> log;

 private:
  void spotCreated(const Kel::Ptr<Car>& car) { log.push_back("created " + car->name()); }
  void spotDeleting(const std::string& name) {
    log.push_back("deleting " + name + (spot(name) ? " present" : " absent"));
  }
};

TEST(Attribute, OwnedScalarAndCounter_StoreAndCount) {
  Depot depot;
  EXPECT_EQ(depot.bay(), 7u);
  depot.bayIs(3);
  EXPECT_EQ(depot.bay(), 3u);
  EXPECT_EQ(depot.trips(), 0u);
  EXPECT_EQ(depot.tripsInc(5), 5u);
  EXPECT_EQ(depot.tripsDec(2), 3u);
  depot.tripsIs(10);
  EXPECT_EQ(depot.trips(), 10u);
}

TEST(Attribute, OwnedValueCollection_SetReadDelete_DelAllEmptiesAtOnce) {
  Depot depot;
  depot.noteIs(2, "b");
  depot.noteIs(1, "a");
  depot.noteIs(2, "B");
  EXPECT_EQ(depot.note(2), "B");
  EXPECT_EQ(depot.note(9), "");
  std::vector<int> keys;
  for (const auto& [key, text] : depot.note()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<int>{1, 2}));
  depot.noteDel(9);
  depot.noteDel(1);
  EXPECT_EQ(depot.note().size(), 1u);
  depot.noteIs(3, "c");
  depot.noteDelAll();
  EXPECT_TRUE(depot.note().empty());
}

TEST(Attribute, OwnedCounterCollection_AbsentCountsFromZero_DecWraps) {
  Depot depot;
  EXPECT_EQ(depot.fuel("a"), 0u);
  EXPECT_EQ(depot.fuelInc("a", 3), 3u);
  EXPECT_EQ(depot.fuelDec("a", 1), 2u);
  EXPECT_EQ(depot.fuelDec("b", 1), 4294967295u);
  EXPECT_EQ(depot.fuel("a"), 2u);
  depot.fuelDel("b");
  EXPECT_EQ(depot.fuel().size(), 1u);
  depot.fuelDelAll();
  EXPECT_TRUE(depot.fuel().empty());
}

TEST(Attribute, Owned_IsCreatesWhenAbsentOnly_DelDrops) {
  Depot depot;
  EXPECT_FALSE(depot.lead());
  const Kel::Ptr<Car> first = depot.leadIs(std::string("a"));
  EXPECT_EQ(first->name(), "a");
  EXPECT_EQ(depot.leadIs(std::string("b")), first);
  EXPECT_EQ(depot.lead(), first);
  depot.leadDel();
  EXPECT_FALSE(depot.lead());
  EXPECT_EQ(depot.leadIs(std::string("b"))->name(), "b");
  const Kel::Ptr<Garage> garage = depot.garageIs();
  EXPECT_EQ(depot.garageIs(), garage);
  EXPECT_EQ(garage->references(), 2u);
}

TEST(Attribute, OwnedCollection_IsCreatesOnce_DelAllLowestFirst) {
  Depot depot;
  const Kel::Ptr<Car> b = depot.carIs("b");
  depot.carIs("a");
  EXPECT_EQ(depot.carIs("b"), b);
  EXPECT_EQ(depot.car("b"), b);
  EXPECT_EQ(depot.carMutable("b"), b);
  EXPECT_FALSE(depot.carMutable("z"));
  EXPECT_FALSE(depot.car("z"));
  depot.carDel("z");
  EXPECT_EQ(depot.car().size(), 2u);
  depot.carDel("b");
  EXPECT_FALSE(depot.car("b"));
  EXPECT_EQ(b->references(), 1u);
  depot.carIs("c");
  depot.carDelAll();
  EXPECT_TRUE(depot.car().empty());
}

TEST(Attribute, OwnedCollectionHooked_HooksRunOnCreationAndBeforeRemoval) {
  Depot depot;
  depot.spotIs("q");
  depot.spotIs("q");
  depot.spotIs("p");
  depot.spotDel("x");
  depot.spotDel("q");
  depot.spotIs("r");
  depot.spotDelAll();
  EXPECT_TRUE(depot.spot().empty());
  EXPECT_EQ(depot.log,
            (std::vector<std::string>{"created q", "created p", "deleting q present", "created r",
                                      "deleting p present", "deleting r present"}));
}

}  // namespace
