#pragma once
// A small entity family used to exercise the framework the way the library's own entities use it:
// a Garage with a scalar `doors`, an ordered entity collection `car` and a hash value collection
// `tag`, and Car entities keyed by name.

#include <string>

#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Exception.h"

namespace KelTest {

class Car : public Kel::Entity {
 public:
  explicit Car(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }

  class NotifieeConst : public Kel::Notifiee<Car> {
   public:
    virtual void onColour() {}
  };

  const std::string& colour() const { return colour_; }
  void colourIs(const std::string& colour) {
    if (colour_ == colour) return;
    colour_ = colour;
    notify(&NotifieeConst::onColour);
  }

 private:
  std::string name_;
  std::string colour_;
};

class Garage : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<Garage> {
   public:
    virtual void onDoors() {}
    virtual void onCar(const std::string& name) { (void)name; }
    virtual void onTag(int key) { (void)key; }
  };

  unsigned doors() const { return doors_; }
  void doorsIs(unsigned doors) {
    if (doors_ == doors) return;
    doors_ = doors;
    notify(&NotifieeConst::onDoors);
  }
  void doorsInc(unsigned n) { doorsIs(doors_ + n); }

  Kel::PtrConst<Car> car(const std::string& name) const { return cars_.find(name); }
  const Kel::OrderedCollection<std::string, Kel::Ptr<Car>, Kel::PtrConst<Car>>& car() const {
    return cars_;
  }
  Kel::Ptr<Car> carIs(const std::string& name) {
    auto [member, created] = cars_.insertNew(name, [&] { return Kel::Ptr<Car>(new Car(name)); });
    if (created) notify(&NotifieeConst::onCar, name);
    return member;
  }
  // Adopts a given car; a null one is refused like any generated mutator does.
  void carIs(const std::string& name, const Kel::Ptr<Car>& car) {
    Kel::requireEntity(car, "KelTest::Garage", "car");
    if (cars_.set(name, car)) notify(&NotifieeConst::onCar, name);
  }
  void carDel(const std::string& name) {
    if (cars_.erase(name)) notify(&NotifieeConst::onCar, name);
  }
  void carDelAll() {
    cars_.eraseAll([&](const std::string& name) { notify(&NotifieeConst::onCar, name); });
  }
  void carNotify(const std::string& name) { notify(&NotifieeConst::onCar, name); }

  int tag(int key) const { return tags_.find(key); }
  const Kel::HashCollection<int, int>& tag() const { return tags_; }
  void tagIs(int key, int value) {
    if (tags_.set(key, value)) notify(&NotifieeConst::onTag, key);
  }
  void tagDel(int key) {
    if (tags_.erase(key)) notify(&NotifieeConst::onTag, key);
  }

 private:
  unsigned doors_ = 0;
  Kel::OrderedCollection<std::string, Kel::Ptr<Car>, Kel::PtrConst<Car>> cars_;
  Kel::HashCollection<int, int> tags_;
};

}  // namespace KelTest
