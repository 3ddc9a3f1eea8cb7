#pragma once
// A small entity family used to exercise the framework the way the library's own entities use it:
// a Garage with a scalar `doors`, a counter `visits`, an ordered entity collection `car` and a
// hash value collection `tag`, and Car entities keyed by name.

#include <string>

#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"

namespace KelTest {

class Car : public Kel::Entity {
 public:
  explicit Car(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }

  class NotifieeConst : public Kel::Notifiee<Car> {
   public:
    KEL_ON(Colour)
  };

  KEL_SCALAR(colour, Colour, "", std::string)

 private:
  std::string name_;
};

class Garage : public Kel::Entity {
 public:
  using CarCollection = Kel::OrderedCollection<std::string, Kel::Ptr<Car>, Kel::PtrConst<Car>>;

  class NotifieeConst : public Kel::Notifiee<Garage> {
   public:
    KEL_ON(Doors)
    KEL_ON(Visits)
    KEL_ON_KEY(Car, std::string)
    KEL_ON_KEY(Tag, int)
  };

  KEL_ENTITY_NAME("KelTest::Garage")
  KEL_SCALAR(doors, Doors, 0, unsigned)
  void doorsInc(unsigned n) { doorsIs(doors() + n); }
  KEL_COUNTER(visits, Visits, 0, unsigned)
  KEL_ENTITY_COLLECTION(car, Car, CarCollection)
  KEL_VALUE_COLLECTION(tag, Tag, Kel::HashCollection<int, int>)
};

}  // namespace KelTest
