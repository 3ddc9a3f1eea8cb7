// The nested-reactor pattern the library's state machines follow: one reactor per member of a
// watched collection, kept in a collection keyed like it, created when the member appears and
// dropped when it goes, with a full pass in handleInitialized once the inputs are present.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/Kel/Collection.h"
#include "tests/framework/KelTestEntities.h"

namespace {

using KelTest::Car;
using KelTest::Garage;

class PaintShopSm : public Kel::PtrInterface {
 public:
  class KelCar : public Car::NotifieeConst {
   public:
    KelCar(PaintShopSm* owner, const Kel::PtrConst<Car>& car) : owner_(owner) { notifierIs(car); }
    void onColour() override { owner_->handleColour(notifier()->name()); }

   private:
    PaintShopSm* owner_;
  };

  class KelGarage : public Garage::NotifieeConst {
   public:
    KelGarage(PaintShopSm* owner, const Kel::PtrConst<Garage>& garage) : owner_(owner) {
      notifierIs(garage);
    }
    void onCar(const std::string& name) override { owner_->handleCar(name); }

   private:
    PaintShopSm* owner_;
  };

  explicit PaintShopSm(const Kel::PtrConst<Garage>& garage)
      : kelGarage_(new KelGarage(this, garage)) {
    handleInitialized();
  }
  ~PaintShopSm() override { kelGarage_->notifierIs(nullptr); }

  void handleInitialized() {
    initialized_ = true;
    for (const auto& [name, car] : kelGarage_->notifier()->car()) handleCar(name);
  }
  void handleCar(const std::string& name) {
    if (!initialized_) return;
    const auto car = kelGarage_->notifier()->car(name);
    if (car) {
      kelCar_.insertNew(name, [&] { return Kel::Ptr<KelCar>(new KelCar(this, car)); });
    } else {
      kelCar_.erase(name);
    }
  }
  void handleColour(const std::string& name) { repainted.push_back(name); }

  const Kel::OrderedCollection<std::string, Kel::Ptr<KelCar>>& kelCar() const { return kelCar_; }
  std::vector<std::string> repainted;

 private:
  Kel::Ptr<KelGarage> kelGarage_;
  Kel::OrderedCollection<std::string, Kel::Ptr<KelCar>> kelCar_;
  bool initialized_ = false;
};

TEST(NestedReactors, ExistingMembers_GetReactorsAtInitialization) {
  Kel::Ptr<Garage> garage(new Garage);
  garage->carIs("a");
  garage->carIs("b");
  Kel::Ptr<PaintShopSm> shop(new PaintShopSm(garage));
  EXPECT_EQ(shop->kelCar().size(), 2u);
  garage->carIs("a")->colourIs("red");
  EXPECT_EQ(shop->repainted, std::vector<std::string>{"a"});
}

TEST(NestedReactors, MemberAddedAndRemoved_ReactorFollows) {
  Kel::Ptr<Garage> garage(new Garage);
  Kel::Ptr<PaintShopSm> shop(new PaintShopSm(garage));
  auto car = garage->carIs("c");
  EXPECT_EQ(shop->kelCar().size(), 1u);
  EXPECT_EQ(car->notifiees(), 1u);
  garage->carDel("c");
  EXPECT_TRUE(shop->kelCar().empty());
  EXPECT_EQ(car->notifiees(), 0u);
  car->colourIs("blue");  // the removed car is no longer watched
  EXPECT_TRUE(shop->repainted.empty());
}

TEST(NestedReactors, OwnerDropped_NothingLeftWatching) {
  Kel::Ptr<Garage> garage(new Garage);
  auto car = garage->carIs("a");
  Kel::Ptr<PaintShopSm> shop(new PaintShopSm(garage));
  shop = nullptr;
  EXPECT_EQ(garage->notifiees(), 0u);
  EXPECT_EQ(car->notifiees(), 0u);
  EXPECT_EQ(garage->references(), 1u);
}

}  // namespace
