#pragma once
// Mirra::MirraMap<K, V, KeyOf>: a single-writer table of fixed-size values, laid out so that it can
// live in memory shared with other processes.
//
// The table is one flat array of slots (open addressing, linear probing) addressed by index only:
// no pointer into process memory is stored, and keys and values are copied in and out as plain
// bytes. Each slot carries a checksum of its bytes, so a reader that finds a slot changed behind
// the writer's back reports corruption instead of returning garbage.
//
// Invariants:
//  1. K and V are trivially copyable and of fixed size, with ==; a value's key is KeyOf()(value).
//  2. Exactly one writer: only a map attached in single-writer mode changes the table; readers
//     attached to the same storage (reader()) see every change at once and never write.
//  3. Lookup never fails for a missing key: it returns a default-constructed V, which callers
//     treat as the absence marker.
//  4. Every stored slot satisfies its checksum; a read that finds otherwise reports through the
//     debug stream ("MirraMap::corruptionDetected() ..."), calls the corruption handler with the
//     message, and throws CorruptionDetectedException.
//  5. Iteration walks slot indices; it tolerates erasure of the current member, and a writer that
//     grows the table during an iteration may make it skip or repeat members.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "framework/Kel/Debug.h"
#include "framework/Kel/Exception.h"
#include "framework/Mirra/CorruptionDetectedException.h"

namespace Mirra {

enum class AttachMode { singleWriter, reader };

template <class K, class V, class KeyOf, class Hash = std::hash<K>>
class MirraMap {
  static_assert(std::is_trivially_copyable_v<K>, "shared keys are copied as plain bytes");
  static_assert(std::is_trivially_copyable_v<V>, "shared values are copied as plain bytes");

  enum class SlotState : std::uint8_t { empty = 0, used = 1, erased = 2 };

  struct Slot {
    std::uint32_t checksum;
    SlotState state;
    V value;
  };
  static_assert(std::is_trivially_copyable_v<Slot>, "slots are plain bytes");

  // What would sit in the shared segment: the slot array and its counters.
  struct Storage {
    std::vector<Slot> slots;
    std::size_t used = 0;
    std::size_t erased = 0;
    bool ready = false;
    bool advertised = false;
  };

 public:
  using CorruptionHandler = std::function<void(const std::string&)>;

  // A new table, attached for writing.
  MirraMap() : storage_(std::make_shared<Storage>()), mode_(AttachMode::singleWriter) {
    storage_->slots.resize(kInitialSlots);
    for (auto& slot : storage_->slots) clear(slot);
  }

  // Another attachment to the same table, for reading only.
  MirraMap reader() const { return MirraMap(storage_, AttachMode::reader); }
  AttachMode mode() const { return mode_; }

  // The value stored under key, or V() when there is none.
  V lookup(const K& key) const {
    const std::size_t at = find(key);
    return at == kNone ? V() : storage_->slots[at].value;
  }
  bool contains(const K& key) const { return find(key) != kNone; }
  std::size_t members() const { return storage_->used; }

  // Inserts value under its key or replaces the value there; returns false when the same value
  // was already stored.
  // REQUIRES: mode() == singleWriter.
  bool insert(const V& value) {
    requireWriter("insert");
    const K key = KeyOf()(value);
    const std::size_t existing = find(key);
    if (existing != kNone) {
      Slot& slot = storage_->slots[existing];
      if (slot.value == value) return false;
      store(slot, value);
      return true;
    }
    if ((storage_->used + storage_->erased + 1) * 4 > storage_->slots.size() * 3) grow();
    Slot& slot = storage_->slots[freeSlotFor(key)];
    if (slot.state == SlotState::erased) --storage_->erased;
    store(slot, value);
    ++storage_->used;
    return true;
  }

  // Returns false when key was absent.
  // REQUIRES: mode() == singleWriter.
  bool erase(const K& key) {
    requireWriter("erase");
    const std::size_t at = find(key);
    if (at == kNone) return false;
    Slot& slot = storage_->slots[at];
    clear(slot);
    slot.state = SlotState::erased;
    slot.checksum = checksumOf(slot);
    --storage_->used;
    ++storage_->erased;
    return true;
  }

  // Walks the members by slot index; see invariant 5.
  class Iterator {
   public:
    Iterator(const MirraMap* map, std::size_t index) : map_(map), index_(index) { settle(); }
    V operator*() const { return map_->verified(index_).value; }
    Iterator& operator++() {
      ++index_;
      settle();
      return *this;
    }
    bool operator==(const Iterator& other) const { return index_ == other.index_; }
    bool operator!=(const Iterator& other) const { return index_ != other.index_; }

   private:
    void settle() {
      const auto& slots = map_->storage_->slots;
      while (index_ < slots.size() && slots[index_].state != SlotState::used) ++index_;
      if (index_ > slots.size()) index_ = slots.size();
    }
    const MirraMap* map_;
    std::size_t index_;
  };
  Iterator begin() const { return Iterator(this, 0); }
  Iterator end() const { return Iterator(this, storage_->slots.size()); }

  void corruptionHandlerIs(CorruptionHandler handler) { corruptionHandler_ = std::move(handler); }

  // The collection-ready protocol of shared tables: a writer marks the table ready, then
  // advertises it once so that readers may start.
  void collectionReadyIs(bool ready, bool notifying) {
    std::ostringstream message;
    message << "MirraMap::collectionReadyIs() ready:" << ready << " notifying:" << notifying;
    Kel::debugMessage(message.str());
    storage_->ready = ready;
    if (ready && notifying) advertiseCollectionReady(true);
  }
  bool collectionReady() const { return storage_->ready; }
  void advertiseCollectionReady(bool notifying) {
    if (!notifying) {
      Kel::debugMessage("MirraMap::advertiseCollectionReady() notifications unexpectedly disabled");
      return;
    }
    if (storage_->advertised) {
      Kel::debugMessage("MirraMap::advertiseCollectionReady() collection already advertised");
      return;
    }
    // In-process attachments share the storage and see the table at once.
    Kel::debugMessage("MirraMap::advertiseCollectionReady() in synchronous mode");
    storage_->advertised = true;
  }
  // Lets go of the table: this attachment sees an empty table from now on and writes nothing;
  // other attachments keep the table as it is.
  void detach() {
    Kel::debugMessage("MirraMap::detach() ");
    storage_ = std::make_shared<Storage>();
    storage_->slots.resize(kInitialSlots);
    for (auto& slot : storage_->slots) clear(slot);
    mode_ = AttachMode::reader;
  }

  // Fault injection for tests and diagnostics: changes one byte of the stored value of key as a
  // stray write from another process would, leaving its checksum stale. No effect when absent.
  void damageForTest(const K& key) {
    const std::size_t at = find(key);
    if (at == kNone) return;
    auto* bytes = reinterpret_cast<unsigned char*>(&storage_->slots[at].value);
    bytes[sizeof(V) - 1] ^= 0x5a;
  }

 private:
  static constexpr std::size_t kInitialSlots = 16;  // a power of two; growth doubles it
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  MirraMap(std::shared_ptr<Storage> storage, AttachMode mode)
      : storage_(std::move(storage)), mode_(mode) {}

  static void clear(Slot& slot) {
    std::memset(static_cast<void*>(&slot), 0, sizeof(Slot));
    slot.checksum = checksumOf(slot);
  }

  static std::uint32_t checksumOf(const Slot& slot) {
    // Eight bytes at a time over everything after the checksum field: lookups verify the slot
    // they return, so this sits on the read path.
    const auto* bytes = reinterpret_cast<const unsigned char*>(&slot) + sizeof(slot.checksum);
    std::size_t left = sizeof(Slot) - sizeof(slot.checksum);
    std::uint64_t hash = 0x9e3779b97f4a7c15ull;
    while (left > 0) {
      std::uint64_t word = 0;
      const std::size_t take = left < 8 ? left : 8;
      std::memcpy(&word, bytes, take);
      hash = (hash ^ word) * 0xff51afd7ed558ccdull;
      hash ^= hash >> 29;
      bytes += take;
      left -= take;
    }
    return static_cast<std::uint32_t>(hash ^ (hash >> 32));
  }

  static void store(Slot& slot, const V& value) {
    std::memset(static_cast<void*>(&slot), 0, sizeof(Slot));
    slot.state = SlotState::used;
    std::memcpy(static_cast<void*>(&slot.value), &value, sizeof(V));
    slot.checksum = checksumOf(slot);
  }

  void requireWriter(const char* operation) const {
    if (mode_ != AttachMode::singleWriter) {
      throw Kel::RangeException(std::string("MirraMap::") + operation +
                                "() on a reader attachment not allowed");
    }
  }

  const Slot& verified(std::size_t index) const {
    const Slot& slot = storage_->slots[index];
    if (slot.checksum != checksumOf(slot)) corruptionDetected(index);
    return slot;
  }

  [[noreturn]] void corruptionDetected(std::size_t index) const {
    const std::string message = "slot " + std::to_string(index) + " of " +
                                std::to_string(storage_->slots.size()) + " fails its checksum";
    Kel::debugMessage("MirraMap::corruptionDetected() " + message);
    if (corruptionHandler_) corruptionHandler_(message);
    throw CorruptionDetectedException(message);
  }

  std::size_t home(const K& key) const { return Hash()(key) & (storage_->slots.size() - 1); }

  // The slot holding key, verified against its checksum, or kNone.
  std::size_t find(const K& key) const {
    const auto& slots = storage_->slots;
    const std::size_t mask = slots.size() - 1;
    for (std::size_t at = home(key), probes = 0; probes <= mask; at = (at + 1) & mask, ++probes) {
      const Slot& slot = slots[at];
      if (slot.state == SlotState::empty) return kNone;
      if (slot.state == SlotState::used && KeyOf()(slot.value) == key) {
        verified(at);
        return at;
      }
    }
    return kNone;
  }

  std::size_t freeSlotFor(const K& key) const {
    const std::size_t mask = storage_->slots.size() - 1;
    std::size_t at = home(key);
    while (storage_->slots[at].state == SlotState::used) at = (at + 1) & mask;
    return at;
  }

  // Rebuilds the array without erased slots, doubling it when live members fill half of it.
  // Every member is verified first, so a corrupt table is reported and left as it was.
  void grow() {
    for (std::size_t i = 0; i < storage_->slots.size(); ++i) {
      if (storage_->slots[i].state == SlotState::used) verified(i);
    }
    std::vector<Slot> old = std::move(storage_->slots);
    const std::size_t size = storage_->used * 2 >= old.size() / 2 ? old.size() * 2 : old.size();
    storage_->slots.assign(size, Slot{});
    for (auto& slot : storage_->slots) clear(slot);
    storage_->erased = 0;
    for (const Slot& slot : old) {
      if (slot.state == SlotState::used) {
        store(storage_->slots[freeSlotFor(KeyOf()(slot.value))], slot.value);
      }
    }
  }

  std::shared_ptr<Storage> storage_;
  AttachMode mode_;
  CorruptionHandler corruptionHandler_;
};

}  // namespace Mirra
