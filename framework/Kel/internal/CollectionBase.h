#pragma once
// Kel::internal::CollectionBase: what the three collections of Collection.h share, written once
// over the operations each keeps its own way (CRTP). A collection D provides
//   const Stored* findStored(const K&) const, bool empty() const, bool erase(const K&),
//   K nextToErase() const             the key eraseAll takes next,
//   std::pair<Stored, bool> insertMade(const K&, Stored&&)
//                                     stores a built member unless `key` is present by now.

#include <utility>

namespace Kel {
namespace internal {

template <class D, class K, class Stored, class Exposed>
class CollectionBase {
 public:
  using Key = K;
  using StoredType = Stored;
  using ExposedType = Exposed;
  using Entry = std::pair<K, Exposed>;

  // The member stored under `key`, or a default-constructed one.
  Exposed find(const K& key) const {
    const Stored* stored = self().findStored(key);
    return stored ? Exposed(*stored) : Exposed();
  }
  bool contains(const K& key) const { return self().findStored(key) != nullptr; }

  // Returns the member under `key`, creating it with make() when absent; .second tells whether
  // this call created it. The member is built before it is inserted, so make() may insert.
  template <class Make>
  std::pair<Stored, bool> insertNew(const K& key, Make&& make) {
    if (const Stored* present = self().findStored(key)) return {*present, false};
    Stored made = make();
    return mutableSelf().insertMade(key, std::move(made));
  }

  // Erases the members one at a time, calling onErased(key) after each.
  template <class OnErased>
  void eraseAll(OnErased&& onErased) {
    while (!self().empty()) {
      const K key = self().nextToErase();
      mutableSelf().erase(key);
      onErased(key);
    }
  }

 private:
  const D& self() const { return static_cast<const D&>(*this); }
  D& mutableSelf() { return static_cast<D&>(*this); }
};

}  // namespace internal
}  // namespace Kel
