// Collection attributes: order, deletion of the current member while iterating, and members that
// stay readable after deletion while referenced.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/framework/KelTestEntities.h"

namespace {

using KelTest::Car;
using KelTest::Garage;

TEST(Collection, Ordered_Iteration_AscendingKeyOrder) {
  Kel::Ptr<Garage> garage(new Garage);
  for (const char* name : {"delta", "alpha", "charlie", "bravo"}) garage->carIs(name);
  std::vector<std::string> seen;
  for (const auto& [name, car] : garage->car()) seen.push_back(car->name());
  EXPECT_EQ(seen, (std::vector<std::string>{"alpha", "bravo", "charlie", "delta"}));
}

TEST(Collection, Ordered_DeleteCurrentWhileIterating_VisitsEveryOtherMemberOnce) {
  Kel::Ptr<Garage> garage(new Garage);
  for (const char* name : {"a", "b", "c", "d", "e"}) garage->carIs(name);
  std::vector<std::string> seen;
  for (const auto& [name, car] : garage->car()) {
    seen.push_back(name);
    if (name != "c") garage->carDel(name);
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "c", "d", "e"}));
  ASSERT_EQ(garage->car().size(), 1u);
  EXPECT_TRUE(garage->car("c"));
}

TEST(Collection, Hash_DeleteCurrentWhileIterating_VisitsEveryMemberOnce) {
  Kel::Ptr<Garage> garage(new Garage);
  for (int key = 0; key < 100; ++key) garage->tagIs(key, key * 10);
  std::multiset<int> seen;
  for (const auto& [key, value] : garage->tag()) {
    EXPECT_EQ(value, key * 10);
    seen.insert(key);
    if (key % 3 != 0) garage->tagDel(key);
  }
  EXPECT_EQ(seen.size(), 100u);
  EXPECT_EQ(std::set<int>(seen.begin(), seen.end()).size(), 100u);
  EXPECT_EQ(garage->tag().size(), 34u);
  EXPECT_EQ(garage->tag(3), 30);
  EXPECT_EQ(garage->tag(4), 0);
}

TEST(Collection, DeletedMember_StillReadableWhileReferenced) {
  Kel::Ptr<Garage> garage(new Garage);
  garage->carIs("x")->colourIs("red");
  Kel::PtrConst<Car> held = garage->car("x");
  garage->carDel("x");
  EXPECT_FALSE(garage->car("x"));
  ASSERT_TRUE(held);
  EXPECT_EQ(held->colour(), "red");
  EXPECT_EQ(held->references(), 1u);
}

TEST(Collection, DelAll_NotifiesEachKey_AndEmpties) {
  struct Keys : Garage::NotifieeConst {
    std::vector<std::string> keys;
    void onCar(const std::string& name) override { keys.push_back(name); }
  };
  Kel::Ptr<Garage> garage(new Garage);
  for (const char* name : {"b", "a", "c"}) garage->carIs(name);
  Keys keys;
  keys.notifierIs(garage);
  garage->carDelAll();
  EXPECT_TRUE(garage->car().empty());
  EXPECT_EQ(keys.keys, (std::vector<std::string>{"a", "b", "c"}));
  keys.notifierIs(nullptr);
}

TEST(Collection, Lookup_Absent_YieldsNullOrDefault) {
  Kel::Ptr<Garage> garage(new Garage);
  EXPECT_FALSE(garage->car("nobody"));
  EXPECT_EQ(garage->tag(42), 0);
}

}  // namespace
