#pragma once
// A small entity family used to exercise the framework the way the library's own entities use it:
// a Garage with counters `doors` and `visits`, a counter `openings` whose changes it logs, one
// `sign`, an ordered entity collection `car` and a hash value collection `tag`; Car entities keyed
// by name, and Signs.

#include <string>
#include <vector>

#include "framework/Kel/Attribute.h"
#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"

namespace KelTest {

class Car : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<Car> {
   public:
    KEL_ON(Colour)
  };

  KEL_KEY(Car, name, std::string)
  KEL_SCALAR(colour, Colour, "", std::string)
};

class Sign : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::Notifiee<Sign> {
   public:
    KEL_ON(Text)
  };

  KEL_SCALAR(text, Text, "", std::string)
};

class Garage : public Kel::Entity {
 public:
  using CarCollection = Kel::OrderedCollection<std::string, Kel::Ptr<Car>, Kel::PtrConst<Car>>;

  class NotifieeConst : public Kel::Notifiee<Garage> {
   public:
    KEL_ON(Doors)
    KEL_ON(Visits)
    KEL_ON(Openings)
    KEL_ON(Sign)
    KEL_ON_KEY(Car, std::string)
    KEL_ON_KEY(Tag, int)
  };

  KEL_ENTITY_NAME("KelTest::Garage")
  KEL_COUNTER(doors, Doors, 0, unsigned)
  KEL_COUNTER(visits, Visits, 0, unsigned)
  KEL_COUNTER_HOOKED(openings, Openings, 0, unsigned)
  KEL_REFERENCE(sign, Sign, Sign)
  KEL_ENTITY_COLLECTION(car, Car, CarCollection)
  KEL_VALUE_COLLECTION(tag, Tag, Kel::HashCollection<int, int>)

  // What the openings hook saw: "previous -> stored", in order.
  std::vector<std::string> openingsLog;

 private:
  void openingsChanged(unsigned previous) {
    openingsLog.push_back(std::to_string(previous) + " -> " + std::to_string(openings()));
  }
};

}  // namespace KelTest
