// Collections whose member factory inserts other members, or the same key, and positioning with
// lowerBound: the same rules for the ordered, hash and flat collections.

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "framework/Kel/Collection.h"

namespace {

template <class C>
std::vector<std::pair<int, std::string>> contents(const C& collection) {
  std::vector<std::pair<int, std::string>> out;
  for (const auto& [key, value] : collection) out.emplace_back(key, value);
  std::sort(out.begin(), out.end());
  return out;
}

template <class C>
class ReentrantCollection : public ::testing::Test {};

using Kinds =
    ::testing::Types<Kel::OrderedCollection<int, std::string>,
                     Kel::HashCollection<int, std::string>, Kel::FlatCollection<int, std::string>>;
TYPED_TEST_SUITE(ReentrantCollection, Kinds);

TYPED_TEST(ReentrantCollection, FactoryInsertsOtherKeys_EveryMemberStoredUnderItsKey) {
  TypeParam collection;
  collection.set(5, "five");
  const auto [value, created] = collection.insertNew(3, [&] {
    for (int key = 0; key < 20; ++key) {
      if (key != 3) collection.insertNew(key, [key] { return "nested " + std::to_string(key); });
    }
    return std::string("three");
  });
  EXPECT_TRUE(created);
  EXPECT_EQ(value, "three");
  EXPECT_EQ(collection.size(), 20u);
  EXPECT_EQ(collection.find(3), "three");
  EXPECT_EQ(collection.find(5), "five");
  EXPECT_EQ(collection.find(19), "nested 19");
}

TYPED_TEST(ReentrantCollection, FactoryInsertsSameKey_NestedMemberWinsAndOuterReportsNotCreated) {
  TypeParam collection;
  bool nestedCreated = false;
  const auto [value, created] = collection.insertNew(7, [&] {
    nestedCreated = collection.insertNew(7, [] { return std::string("inner"); }).second;
    return std::string("outer");
  });
  EXPECT_TRUE(nestedCreated);
  EXPECT_FALSE(created);
  EXPECT_EQ(value, "inner");
  EXPECT_EQ(contents(collection), (std::vector<std::pair<int, std::string>>{{7, "inner"}}));
}

TYPED_TEST(ReentrantCollection, FactoryErasesOtherKeys_InsertLandsInPlace) {
  TypeParam collection;
  for (int key : {1, 2, 4, 6}) collection.set(key, std::to_string(key));
  collection.insertNew(3, [&] {
    collection.erase(2);
    collection.erase(4);
    return std::string("3");
  });
  EXPECT_EQ(contents(collection),
            (std::vector<std::pair<int, std::string>>{{1, "1"}, {3, "3"}, {6, "6"}}));
}

TYPED_TEST(ReentrantCollection, FactoryThrows_CollectionUnchanged) {
  TypeParam collection;
  collection.set(1, "1");
  EXPECT_THROW(collection.insertNew(2, []() -> std::string { throw std::runtime_error("no"); }),
               std::runtime_error);
  EXPECT_EQ(contents(collection), (std::vector<std::pair<int, std::string>>{{1, "1"}}));
  EXPECT_TRUE(collection.insertNew(2, [] { return std::string("2"); }).second);
}

template <class C>
class PositionedCollection : public ::testing::Test {};

using OrderedKinds = ::testing::Types<Kel::OrderedCollection<int, std::string>,
                                      Kel::FlatCollection<int, std::string>>;
TYPED_TEST_SUITE(PositionedCollection, OrderedKinds);

TYPED_TEST(PositionedCollection, LowerBound_FirstKeyAtOrAfter) {
  TypeParam collection;
  for (int key : {10, 20, 30}) collection.set(key, std::to_string(key));
  EXPECT_EQ((*collection.lowerBound(20)).first, 20);
  EXPECT_EQ((*collection.lowerBound(11)).first, 20);
  EXPECT_EQ((*collection.lowerBound(-5)).first, 10);
  EXPECT_TRUE(collection.lowerBound(31) == collection.end());
}

TYPED_TEST(PositionedCollection, LowerBound_WalksOnToTheEndInKeyOrder) {
  TypeParam collection;
  for (int key : {40, 10, 30, 20}) collection.set(key, std::to_string(key));
  std::vector<int> seen;
  for (auto at = collection.lowerBound(15); at != collection.end(); ++at) {
    seen.push_back((*at).first);
    if ((*at).first == 20) collection.erase(20);  // the bookmark's member may go under it
  }
  EXPECT_EQ(seen, (std::vector<int>{20, 30, 40}));
}

}  // namespace
