#pragma once
// Storage for the collection attributes of entities: OrderedCollection (ascending key order),
// HashCollection (no promised order) and FlatCollection (ascending key order in one sorted array,
// for the small scratch collections that are filled and emptied on every call: once warm they
// allocate nothing). Entities wrap them in their generated-style accessors
// (x(key), xIs, xDel, xDelAll) and notify after each change; the collections themselves notify
// nobody.
//
// Invariants of all three:
//  1. Iteration tolerates the deletion of the member it stands on: advancing from a deleted member
//     continues with the members not yet visited.
//  2. Members added during an iteration may or may not be visited; no member is visited twice
//     unless members other than the current one are deleted during the iteration.
//  3. Iteration yields (key, value) pairs by value, so a yielded entity stays readable for as
//     long as the caller keeps it, even after its deletion from the collection.
//  4. insertNew is reentrant: the member is built first and the key looked up again afterwards,
//     so a factory that inserts other members, or the same key, leaves the collection correct.
//     When the factory itself inserted `key`, that earlier member wins: insertNew returns it,
//     reports "not created", and the member it built is dropped.
//  5. Ordered and flat collections position with lowerBound(key): the first member whose key is
//     not less than `key`, or end().
//
// `Stored` is what the collection keeps, `Exposed` what readers see (Ptr<E> kept, Ptr<const E>
// shown to const readers); `Exposed` must be constructible from `Stored`.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "framework/Kel/internal/CollectionBase.h"

namespace Kel {

template <class K, class Stored, class Exposed = Stored>
class OrderedCollection
    : public internal::CollectionBase<OrderedCollection<K, Stored, Exposed>, K, Stored, Exposed> {
  using Map = std::map<K, Stored>;
  using Base = internal::CollectionBase<OrderedCollection, K, Stored, Exposed>;
  friend Base;

 public:
  using typename Base::Entry;

  class Iterator {
   public:
    Iterator(const OrderedCollection* owner, typename Map::const_iterator at)
        : owner_(owner), at_(at), erasures_(owner->erasures_) {
      if (at_ != owner_->map_.end()) key_ = at_->first;
    }
    Entry operator*() const { return Entry(at_->first, Exposed(at_->second)); }
    Iterator& operator++() {
      // After any erasure the saved position may be gone: find the successor by key instead.
      // A walk that erases each member behind it finds the successor first in the map.
      if (erasures_ != owner_->erasures_) {
        const Map& map = owner_->map_;
        at_ = map.empty() || key_ < map.begin()->first ? map.begin() : map.upper_bound(key_);
        erasures_ = owner_->erasures_;
      } else {
        ++at_;
      }
      if (at_ != owner_->map_.end()) key_ = at_->first;
      return *this;
    }
    bool operator==(const Iterator& other) const { return at_ == other.at_; }
    bool operator!=(const Iterator& other) const { return at_ != other.at_; }

   private:
    const OrderedCollection* owner_;
    typename Map::const_iterator at_;
    std::uint64_t erasures_;
    K key_{};
  };

  Iterator begin() const { return Iterator(this, map_.begin()); }
  Iterator end() const { return Iterator(this, map_.end()); }
  Iterator lowerBound(const K& key) const { return Iterator(this, map_.lower_bound(key)); }
  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }

  const Stored* findStored(const K& key) const {
    auto found = map_.find(key);
    return found == map_.end() ? nullptr : &found->second;
  }

  // Stores `value` under `key`; returns false when the same value was already there.
  bool set(const K& key, const Stored& value) {
    // Keys that arrive in ascending order go in at the end without a search.
    if (map_.empty() || map_.rbegin()->first < key) {
      map_.emplace_hint(map_.end(), key, value);
      return true;
    }
    auto [at, inserted] = map_.try_emplace(key, value);
    if (inserted) return true;
    if (at->second == value) return false;
    at->second = value;
    return true;
  }

  // Returns false when `key` was absent.
  bool erase(const K& key) {
    // Queues worked off in order erase their first member: no search.
    if (!map_.empty() && !(map_.begin()->first < key) && !(key < map_.begin()->first)) {
      map_.erase(map_.begin());
    } else if (map_.erase(key) == 0) {
      return false;
    }
    ++erasures_;
    return true;
  }

  // eraseAll (lowest key first) and insertNew come from CollectionBase.

  // Empties the collection at once, telling nobody; an iteration under way ends.
  void clear() {
    if (map_.empty()) return;
    map_.clear();
    ++erasures_;
  }

 private:
  K nextToErase() const { return map_.begin()->first; }
  std::pair<Stored, bool> insertMade(const K& key, Stored&& made) {
    auto [at, inserted] = map_.try_emplace(key, std::move(made));
    return {at->second, inserted};
  }

  Map map_;
  std::uint64_t erasures_ = 0;
};

template <class K, class Stored, class Exposed = Stored, class Hash = std::hash<K>>
class HashCollection : public internal::CollectionBase<HashCollection<K, Stored, Exposed, Hash>, K,
                                                       Stored, Exposed> {
  using Base = internal::CollectionBase<HashCollection, K, Stored, Exposed>;
  friend Base;

 public:
  using typename Base::Entry;

  // Walks the dense member array from the back, so that deleting the current member (which moves
  // the last, already visited member into its slot) never skips or repeats one.
  class Iterator {
   public:
    Iterator(const HashCollection* owner, std::size_t position)
        : owner_(owner), position_(position) {}
    Entry operator*() const {
      const auto& slot = owner_->slots_[position_ - 1];
      return Entry(slot.first, Exposed(slot.second));
    }
    Iterator& operator++() {
      position_ = std::min(position_ - 1, owner_->slots_.size());
      return *this;
    }
    bool operator==(const Iterator& other) const { return position_ == other.position_; }
    bool operator!=(const Iterator& other) const { return position_ != other.position_; }

   private:
    const HashCollection* owner_;
    std::size_t position_;  // one past the current slot; 0 is the end
  };

  Iterator begin() const { return Iterator(this, slots_.size()); }
  Iterator end() const { return Iterator(this, 0); }
  std::size_t size() const { return slots_.size(); }
  bool empty() const { return slots_.empty(); }

  const Stored* findStored(const K& key) const {
    auto found = index_.find(key);
    return found == index_.end() ? nullptr : &slots_[found->second].second;
  }

  bool set(const K& key, const Stored& value) {
    auto [at, inserted] = index_.try_emplace(key, slots_.size());
    if (inserted) {
      slots_.emplace_back(key, value);
      return true;
    }
    Stored& current = slots_[at->second].second;
    if (current == value) return false;
    current = value;
    return true;
  }

  bool erase(const K& key) {
    auto found = index_.find(key);
    if (found == index_.end()) return false;
    const std::size_t position = found->second;
    index_.erase(found);
    if (position + 1 != slots_.size()) {
      slots_[position] = std::move(slots_.back());
      index_[slots_[position].first] = position;
    }
    slots_.pop_back();
    return true;
  }

  // eraseAll (last slot first, so nothing moves) and insertNew come from CollectionBase.

  // Empties the collection at once, telling nobody; an iteration under way ends.
  void clear() {
    slots_.clear();
    index_.clear();
  }

 private:
  K nextToErase() const { return slots_.back().first; }
  std::pair<Stored, bool> insertMade(const K& key, Stored&& made) {
    auto [at, inserted] = index_.try_emplace(key, slots_.size());
    if (!inserted) return {slots_[at->second].second, false};
    slots_.emplace_back(key, std::move(made));
    return {slots_.back().second, true};
  }

  std::vector<std::pair<K, Stored>> slots_;
  std::unordered_map<K, std::size_t, Hash> index_;
};

// `Slots` may be a small-buffer vector for collections that usually hold a handful of members.
template <class K, class Stored, class Exposed = Stored,
          class Slots = std::vector<std::pair<K, Stored>>>
class FlatCollection : public internal::CollectionBase<FlatCollection<K, Stored, Exposed, Slots>, K,
                                                       Stored, Exposed> {
  using Base = internal::CollectionBase<FlatCollection, K, Stored, Exposed>;
  friend Base;

 public:
  using typename Base::Entry;

  class Iterator {
   public:
    Iterator(const FlatCollection* owner, std::size_t position)
        : owner_(owner), position_(position), changes_(owner->changes_) {
      if (position_ < owner_->slots_.size()) key_ = owner_->slots_[position_].first;
    }
    Entry operator*() const {
      const auto& slot = owner_->slots_[position_];
      return Entry(slot.first, Exposed(slot.second));
    }
    Iterator& operator++() {
      // Inserts and erasures shift the array: find the successor by key instead.
      if (changes_ != owner_->changes_) {
        position_ = owner_->upperPosition(key_);
        changes_ = owner_->changes_;
      } else {
        ++position_;
      }
      if (position_ < owner_->slots_.size()) key_ = owner_->slots_[position_].first;
      return *this;
    }
    bool operator==(const Iterator& other) const { return clamped() == other.clamped(); }
    bool operator!=(const Iterator& other) const { return clamped() != other.clamped(); }

   private:
    std::size_t clamped() const { return std::min(position_, owner_->slots_.size()); }

    const FlatCollection* owner_;
    std::size_t position_;
    std::uint64_t changes_;
    K key_{};
  };

  Iterator begin() const { return Iterator(this, 0); }
  Iterator end() const { return Iterator(this, slots_.size()); }
  Iterator lowerBound(const K& key) const { return Iterator(this, lowerPosition(key)); }
  std::size_t size() const { return slots_.size(); }
  bool empty() const { return slots_.empty(); }

  const Stored* findStored(const K& key) const {
    const std::size_t at = lowerPosition(key);
    return at < slots_.size() && !(key < slots_[at].first) ? &slots_[at].second : nullptr;
  }

  bool set(const K& key, const Stored& value) {
    const std::size_t at = lowerPosition(key);
    if (at < slots_.size() && !(key < slots_[at].first)) {
      if (slots_[at].second == value) return false;
      slots_[at].second = value;
      return true;
    }
    slots_.emplace(slots_.begin() + static_cast<std::ptrdiff_t>(at), key, value);
    ++changes_;
    return true;
  }

  bool erase(const K& key) {
    const std::size_t at = lowerPosition(key);
    if (at == slots_.size() || key < slots_[at].first) return false;
    slots_.erase(slots_.begin() + static_cast<std::ptrdiff_t>(at));
    ++changes_;
    return true;
  }

  // eraseAll (lowest key first) and insertNew come from CollectionBase.

  // Empties the collection without telling anyone, keeping its storage for the next fill.
  void clear() {
    if (slots_.empty()) return;
    slots_.clear();
    ++changes_;
  }
  // As clear(), after handing each stored member, lowest key first, to take(Stored&), which may
  // move it out. take must not change the collection.
  template <class Take>
  void clear(Take&& take) {
    for (auto& slot : slots_) take(slot.second);
    clear();
  }

 private:
  K nextToErase() const { return slots_.front().first; }
  std::pair<Stored, bool> insertMade(const K& key, Stored&& made) {
    // The factory may have inserted or erased members: the position is found afterwards.
    const std::size_t at = lowerPosition(key);
    if (at < slots_.size() && !(key < slots_[at].first)) return {slots_[at].second, false};
    slots_.emplace(slots_.begin() + static_cast<std::ptrdiff_t>(at), key, std::move(made));
    ++changes_;
    return {slots_[at].second, true};
  }

  std::size_t lowerPosition(const K& key) const {
    auto at = std::lower_bound(slots_.begin(), slots_.end(), key,
                               [](const auto& slot, const K& k) { return slot.first < k; });
    return static_cast<std::size_t>(at - slots_.begin());
  }
  std::size_t upperPosition(const K& key) const {
    auto at = std::upper_bound(slots_.begin(), slots_.end(), key,
                               [](const K& k, const auto& slot) { return k < slot.first; });
    return static_cast<std::size_t>(at - slots_.begin());
  }

  Slots slots_;
  std::uint64_t changes_ = 0;
};

}  // namespace Kel
