// Collection attributes: order, deletion of the current member while iterating, emptying at once,
// and members that stay readable after deletion while referenced.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
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

TEST(Collection, Ordered_SetAboveBelowAndOverLastKey_OrderAndChangeReportsKept) {
  Kel::OrderedCollection<int, int> queue;
  EXPECT_TRUE(queue.set(10, 1));
  EXPECT_TRUE(queue.set(30, 3));   // above every key
  EXPECT_TRUE(queue.set(20, 2));   // between
  EXPECT_FALSE(queue.set(30, 3));  // the last key, same value
  EXPECT_TRUE(queue.set(30, 4));   // the last key, new value
  EXPECT_TRUE(queue.set(5, 0));    // below every key
  std::vector<std::pair<int, int>> seen;
  for (const auto& member : queue) seen.push_back(member);
  EXPECT_EQ(seen, (std::vector<std::pair<int, int>>{{5, 0}, {10, 1}, {20, 2}, {30, 4}}));
}

TEST(Collection, Ordered_WalkErasingFirstAndInnerMembers_ContinuesAtNextKey) {
  Kel::OrderedCollection<int, int> queue;
  for (int key = 1; key <= 6; ++key) queue.set(key, key);
  std::vector<int> seen;
  for (auto at = queue.lowerBound(3); at != queue.end(); ++at) {
    const int key = (*at).first;
    seen.push_back(key);
    EXPECT_TRUE(queue.erase(key));
    // The first member, behind the walk; then the next member, ahead of it.
    if (key == 3) {
      EXPECT_TRUE(queue.erase(1));
    }
    if (key == 4) {
      EXPECT_TRUE(queue.erase(5));
    }
  }
  EXPECT_EQ(seen, (std::vector<int>{3, 4, 6}));
  EXPECT_FALSE(queue.erase(4));
  std::vector<int> left;
  for (const auto& [key, value] : queue) left.push_back(key);
  EXPECT_EQ(left, std::vector<int>{2});
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

TEST(Collection, Clear_EmptiesAtOnce_EndsAnIterationUnderWay) {
  Kel::OrderedCollection<int, int> ordered;
  Kel::HashCollection<int, int> hashed;
  Kel::FlatCollection<int, int> flat;
  for (int key : {3, 1, 2}) {
    ordered.set(key, key);
    hashed.set(key, key);
    flat.set(key, key);
  }
  std::vector<int> seen;
  for (const auto& [key, value] : ordered) {
    seen.push_back(key);
    ordered.clear();
  }
  for (const auto& [key, value] : hashed) {
    seen.push_back(value);
    hashed.clear();
  }
  for (const auto& [key, value] : flat) {
    seen.push_back(key);
    flat.clear();
  }
  EXPECT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen.front(), 1);
  EXPECT_TRUE(ordered.empty());
  EXPECT_TRUE(hashed.empty());
  EXPECT_TRUE(flat.empty());
  hashed.set(5, 50);
  EXPECT_EQ(hashed.find(5), 50);
  EXPECT_EQ(hashed.size(), 1u);
}

TEST(Collection, Lookup_Absent_YieldsNullOrDefault) {
  Kel::Ptr<Garage> garage(new Garage);
  EXPECT_FALSE(garage->car("nobody"));
  EXPECT_EQ(garage->tag(42), 0);
}

}  // namespace
