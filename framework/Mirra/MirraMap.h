#pragma once
// Mirra::MirraMap<K, V, KeyOf>: a single-writer table of fixed-size values, ordered by key, laid
// out so that it can live in memory shared with other processes.
//
// Today the table lives in process memory: attachments made with reader() share its arrays through
// the process heap, and nothing here maps shared memory yet. Its layout is already the shared one:
// flat arrays whose entries refer to each other by 32-bit slot index only, with no pointer into
// process memory, and keys and values copied in and out as plain bytes.
//
// Members sit in a dense array of slots, each a node of a balanced search tree (a treap whose
// left/right links are slot indices) that orders the members by K's `<`, and each carrying a
// checksum over all its other bytes (state, tree links, key, value). Beside it, a compact hash
// index (open addressing, linear probing: constant-time lookup) maps a key's hash tag to its slot;
// every index entry carries its own check over the slot number, the tag and its position.
//
// Invariants:
//  1. K and V are trivially copyable and of fixed size, with ==; a value's key is KeyOf()(value).
//  2. Exactly one writer: only the attachment made by the constructor changes the table;
//     attachments made with reader() see every change at once and never write.
//  3. Lookup never fails for a missing key: it returns a default-constructed V, which callers
//     treat as the absence marker. members() is the number of keys held.
//  4. Corruption: a lookup verifies every index entry it probes, including the empty one that
//     ends the probe, and every slot whose tag matches, so a damaged key or state byte of the
//     key's own slot, or a damaged index entry on its way, is reported rather than read as
//     "absent". A damaged slot of another key is not read. Positioning and iteration verify every
//     tree slot they pass.
//     A read that finds damage reports it (see corruptionDetected) and throws
//     CorruptionDetectedException; it changes nothing, so a walk that ended there can be started
//     again (it meets the same damage until the writer has dropped it). The writer's insert or
//     erase that meets damage instead reports every damaged slot and index entry, rebuilds the
//     table without them, and then does its work: it never throws for corruption. Growth (a
//     rebuild) likewise drops and reports damaged slots; nothing damaged is ever copied.
//  5. Iteration is in ascending key order. An iterator holds a copy of the member it stands on and
//     advances to the smallest key greater than that copy's key in the table as it is then. So a
//     writer may change the table between steps: erasing the current member, inserting behind or
//     ahead of it, growing. A member that stays in the table from the start of a walk to its end
//     is visited exactly once; one inserted ahead of the position is visited, one behind it is not.
//     Each step costs a descent from the root (O(log n)), verified as in 4.
//  6. Each attachment keeps its own record of what it detected: corruptions(), lastCorruption().

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "framework/Kel/Debug.h"
#include "framework/Kel/Exception.h"
#include "framework/Mirra/CorruptionDetectedException.h"
#include "framework/Mirra/internal/SlotChecksum.h"

namespace Mirra {

namespace testing {
class MirraMapBackdoor;
}  // namespace testing

enum class AttachMode { singleWriter, reader };

template <class K, class V, class KeyOf, class Hash = std::hash<K>>
class MirraMap {
  static_assert(std::is_trivially_copyable_v<K>, "shared keys are copied as plain bytes");
  static_assert(std::is_trivially_copyable_v<V>, "shared values are copied as plain bytes");

  using SlotIndex = std::uint32_t;
  static constexpr SlotIndex kNoSlot = 0xffffffffu;

  // Index entries that name no slot.
  static constexpr SlotIndex kEmptyEntry = 0xffffffffu;
  static constexpr SlotIndex kErasedEntry = 0xfffffffeu;

  // Distinct bit patterns, so that a stray write to the state byte is not another valid state.
  enum class SlotState : std::uint8_t { empty = 0x3c, used = 0xa5, erased = 0x5a };

  // A slot that fits a cache line gets one of its own, so a lookup reads one line per slot.
  static constexpr std::size_t kSlotHeader = 16;
  static constexpr std::size_t kSlotAlignment =
      kSlotHeader + sizeof(V) <= 64 ? 64 : (alignof(V) > 4 ? alignof(V) : 4);

  struct alignas(kSlotAlignment) Slot {
    std::uint32_t checksum;
    SlotState state;
    std::uint8_t padding[3];  // named, so that every byte the checksum covers is written
    SlotIndex left;
    SlotIndex right;
    V value;
  };
  static_assert(std::is_trivially_copyable_v<Slot>, "slots are plain bytes");

  struct IndexEntry {
    SlotIndex slot;       // kEmptyEntry, kErasedEntry or the member's slot
    std::uint16_t tag;    // bits of the key's hash: probes pass other keys without reading them
    std::uint16_t check;  // over slot, tag and the entry's own position
  };

  // What would sit in the shared segment: the slots, the index, the tree root and the counters.
  // Slots [0, filled) have been handed out since the last rebuild; erased ones wait for it.
  struct Storage {
    std::vector<Slot> slots;
    std::vector<IndexEntry> index;  // twice as many entries as slots, a power of two
    SlotIndex root = kNoSlot;
    std::size_t filled = 0;
    std::size_t used = 0;
    bool ready = false;
    bool advertised = false;
  };

  // What a check found wrong, and where.
  enum class Fault : std::uint8_t {
    none,
    checksum,
    indexEntry,
    linkOutside,
    notMember,
    endlessWalk
  };
  struct Damage {
    Fault fault = Fault::none;
    SlotIndex slot = kNoSlot;
    bool found() const { return fault != Fault::none; }
  };

  // Thrown inside a writer operation that met damage; caught there, never escapes the class.
  struct WriterMetDamage {};

 public:
  using CorruptionHandler = std::function<void(const std::string&)>;

  // A new, empty table, attached for writing.
  MirraMap() : storage_(freshStorage()), mode_(AttachMode::singleWriter) {}

  // Another attachment to the same table, for reading only, with its own corruption record and
  // no handler.
  MirraMap reader() const { return MirraMap(storage_, AttachMode::reader); }
  AttachMode mode() const { return mode_; }

  // The value stored under key, or V() when there is none.
  V lookup(const K& key) const {
    const Probe probe = probeFor(key);
    if (probe.damage.found()) reportAndThrow(probe.damage);
    return probe.slot == kNoSlot ? V() : valueAt(probe.slot);
  }
  bool contains(const K& key) const {
    const Probe probe = probeFor(key);
    if (probe.damage.found()) reportAndThrow(probe.damage);
    return probe.slot != kNoSlot;
  }
  std::size_t members() const { return storage_->used; }

  // Inserts value under its key or replaces the value there; returns false when the same value
  // was already stored.
  // REQUIRES: mode() == singleWriter.
  bool insert(const V& value) {
    requireWriter("insert");
    try {
      return insertIntact(value);
    } catch (const WriterMetDamage&) {
      rebuild(storage_->slots.size());
      return insertIntact(value);
    }
  }

  // Returns false when key was absent. A key whose slot was damaged (its key bytes still naming
  // key) counts as present: its slot is dropped and true returned.
  // REQUIRES: mode() == singleWriter.
  bool erase(const K& key) {
    requireWriter("erase");
    try {
      return eraseIntact(key);
    } catch (const WriterMetDamage&) {
      bool droppedKey = false;
      rebuild(storage_->slots.size(), &key, &droppedKey);
      return eraseIntact(key) || droppedKey;
    }
  }

  // Walks the members in ascending key order; see invariant 5. Dereferencing yields the copy of
  // the member taken when the iterator reached it.
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = V;
    using difference_type = std::ptrdiff_t;
    using pointer = const V*;
    using reference = const V&;

    const V& operator*() const { return current_; }
    const V* operator->() const { return &current_; }
    // Throws CorruptionDetectedException, after reporting, when the step meets damage; the
    // iterator then stays where it was.
    Iterator& operator++() {
      const SlotIndex next = map_->positionAt(Bound::after, KeyOf()(current_));
      slot_ = next;
      if (next != kNoSlot) current_ = map_->valueAt(next);
      return *this;
    }
    bool atEnd() const { return slot_ == kNoSlot; }
    bool operator==(const Iterator& other) const {
      if (atEnd() || other.atEnd()) return atEnd() == other.atEnd();
      return KeyOf()(current_) == KeyOf()(other.current_);
    }
    bool operator!=(const Iterator& other) const { return !(*this == other); }

   private:
    friend class MirraMap;
    Iterator(const MirraMap* map, SlotIndex slot) : map_(map), slot_(slot) {
      if (slot != kNoSlot) current_ = map->valueAt(slot);
    }
    const MirraMap* map_;
    SlotIndex slot_;
    V current_{};
  };

  // Throw CorruptionDetectedException, after reporting, when positioning meets damage.
  Iterator begin() const { return Iterator(this, positionAt(Bound::first, K())); }
  Iterator end() const { return Iterator(this, kNoSlot); }
  // The first member whose key is not less than key: key itself when present, else the next
  // one after it (so a bookmark whose key has gone resumes at its successor).
  Iterator lowerBound(const K& key) const {
    return Iterator(this, positionAt(Bound::atOrAfter, key));
  }

  // Reports corruption: writes "MirraMap::corruptionDetected() " + message to the debug stream,
  // records it in this attachment and calls the corruption handler. The table's own checks call
  // it before they throw; a caller that catches that exception and hands its message back here
  // (as callers that treat a corrupt read as "absent" do) acknowledges the report already made,
  // so one detection is reported once. Any other message is reported as a new detection.
  void corruptionDetected(const std::string& message) const {
    if (unacknowledged_ && message == lastCorruption_) {
      unacknowledged_ = false;
      return;
    }
    report(message);
    unacknowledged_ = false;
  }
  void corruptionHandlerIs(CorruptionHandler handler) { corruptionHandler_ = std::move(handler); }
  // How many corruptions this attachment has reported, and the last one's message.
  std::size_t corruptions() const { return corruptions_; }
  const std::string& lastCorruption() const { return lastCorruption_; }

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
    storage_ = freshStorage();
    mode_ = AttachMode::reader;
  }

 private:
  friend class testing::MirraMapBackdoor;

  static constexpr std::size_t kInitialSlots = 16;  // a power of two; growth doubles it

  // Where a key is (its index entry and slot), which index entry it could take, or what stopped
  // the search.
  struct Probe {
    std::size_t entry = 0;
    SlotIndex slot = kNoSlot;
    std::size_t freeEntry = kNoEntry;
    Damage damage;
  };
  static constexpr std::size_t kNoEntry = static_cast<std::size_t>(-1);

  MirraMap(std::shared_ptr<Storage> storage, AttachMode mode)
      : storage_(std::move(storage)), mode_(mode) {}

  static std::shared_ptr<Storage> freshStorage() {
    auto storage = std::make_shared<Storage>();
    resetStorage(*storage, kInitialSlots);
    return storage;
  }
  static void resetStorage(Storage& storage, std::size_t slots) {
    storage.slots.assign(slots, Slot{});
    for (auto& slot : storage.slots) clear(slot, SlotState::empty);
    storage.index.assign(slots * 2, IndexEntry{});
    for (std::size_t at = 0; at < storage.index.size(); ++at) {
      storage.index[at] = entryFor(kEmptyEntry, 0, at);
    }
    storage.root = kNoSlot;
    storage.filled = 0;
    storage.used = 0;
  }

  // Each 16-bit word of slot and tag is weighted by an odd number, which is invertible modulo
  // 2^16: any change confined to one word, so any single damaged byte, changes the check. The
  // position enters too, so an entry copied to another place does not pass.
  static std::uint16_t checkOf(SlotIndex slot, std::uint16_t tag, std::size_t position) {
    const std::uint64_t sum = (slot & 0xffffu) * 0x9e37u + (slot >> 16) * 0x79b9u + tag * 0x7f4bu +
                              position * 0xc2b3u + 0x5bd1u;
    return static_cast<std::uint16_t>(sum);
  }
  static IndexEntry entryFor(SlotIndex slot, std::uint16_t tag, std::size_t position) {
    return IndexEntry{slot, tag, checkOf(slot, tag, position)};
  }

  static std::uint32_t checksumOf(const Slot& slot) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&slot);
    return internal::slotChecksum(bytes + sizeof(slot.checksum),
                                  sizeof(Slot) - sizeof(slot.checksum));
  }
  static bool intact(const Slot& slot) {
    const bool known = slot.state == SlotState::empty || slot.state == SlotState::used ||
                       slot.state == SlotState::erased;
    return known && slot.checksum == checksumOf(slot);
  }
  static void seal(Slot& slot) { slot.checksum = checksumOf(slot); }

  static void clear(Slot& slot, SlotState state) {
    std::memset(static_cast<void*>(&slot), 0, sizeof(Slot));
    slot.state = state;
    slot.left = kNoSlot;
    slot.right = kNoSlot;
    seal(slot);
  }
  static void storeValue(Slot& slot, const V& value) {
    std::memcpy(static_cast<void*>(&slot.value), &value, sizeof(V));
    seal(slot);
  }

  const Slot& slotAt(SlotIndex index) const { return storage_->slots[index]; }
  Slot& slotAt(SlotIndex index) { return storage_->slots[index]; }
  V valueAt(SlotIndex index) const { return slotAt(index).value; }
  const K& keyAt(SlotIndex index) const { return KeyOf()(slotAt(index).value); }

  // The bits that do not pick the home entry.
  static std::uint16_t tagOf(std::size_t hash) {
    return static_cast<std::uint16_t>(static_cast<std::uint64_t>(hash) >> 48);
  }

  // Linear probing of the index from key's home entry (see invariant 4 for what it verifies).
  Probe probeFor(const K& key) const {
    Probe probe;
    const Storage& storage = *storage_;
    const std::size_t hash = Hash()(key);
    const std::uint16_t tag = tagOf(hash);
    const std::size_t mask = storage.index.size() - 1;
    std::size_t at = hash & mask;
    for (std::size_t probes = 0; probes <= mask; ++probes, at = (at + 1) & mask) {
      const IndexEntry& entry = storage.index[at];
      if (entry.check != checkOf(entry.slot, entry.tag, at)) {
        probe.damage = Damage{Fault::indexEntry, static_cast<SlotIndex>(at)};
        return probe;
      }
      if (entry.slot == kEmptyEntry) {
        if (probe.freeEntry == kNoEntry) probe.freeEntry = at;
        return probe;
      }
      if (entry.slot == kErasedEntry) {
        if (probe.freeEntry == kNoEntry) probe.freeEntry = at;
        continue;
      }
      if (entry.tag != tag) continue;
      if (entry.slot >= storage.filled) {
        probe.damage = Damage{Fault::linkOutside, entry.slot};
        return probe;
      }
      const Slot& slot = storage.slots[entry.slot];
      if (!intact(slot)) {
        probe.damage = Damage{Fault::checksum, entry.slot};
        return probe;
      }
      if (slot.state != SlotState::used) {
        probe.damage = Damage{Fault::notMember, entry.slot};
        return probe;
      }
      if (KeyOf()(slot.value) == key) {
        probe.entry = at;
        probe.slot = entry.slot;
        return probe;
      }
    }
    return probe;
  }

  // Which member a descent looks for.
  enum class Bound : std::uint8_t { first, atOrAfter, after };

  // The tree member that is the first one (Bound::first), the first whose key is >= key, or the
  // first whose key is > key; kNoSlot when there is none. Each tree slot on the way is verified;
  // damage is left in *damage.
  SlotIndex descend(Bound bound, const K& key, Damage* damage) const {
    const std::size_t size = storage_->filled;
    SlotIndex best = kNoSlot;
    SlotIndex at = storage_->root;
    for (std::size_t steps = 0; at != kNoSlot; ++steps) {
      if (steps > size) {
        *damage = Damage{Fault::endlessWalk, at};
        return kNoSlot;
      }
      if (at >= size) {
        *damage = Damage{Fault::linkOutside, at};
        return kNoSlot;
      }
      const Slot& slot = slotAt(at);
      if (!intact(slot)) {
        *damage = Damage{Fault::checksum, at};
        return kNoSlot;
      }
      if (slot.state != SlotState::used) {
        *damage = Damage{Fault::notMember, at};
        return kNoSlot;
      }
      const K& here = KeyOf()(slot.value);
      const bool goLeft = bound == Bound::first   ? true
                          : bound == Bound::after ? key < here
                                                  : !(here < key);
      if (goLeft) {
        best = at;
        at = slot.left;
      } else {
        at = slot.right;
      }
    }
    return best;
  }

  SlotIndex positionAt(Bound bound, const K& key) const {
    Damage damage;
    const SlotIndex at = descend(bound, key, &damage);
    if (damage.found()) reportAndThrow(damage);
    return at;
  }

  std::string describe(const Damage& damage) const { return describeIn(*storage_, damage); }
  static std::string describeIn(const Storage& storage, const Damage& damage) {
    const std::string where =
        "slot " + std::to_string(damage.slot) + " of " + std::to_string(storage.slots.size());
    switch (damage.fault) {
      case Fault::checksum:
        return where + " fails its checksum";
      case Fault::indexEntry:
        return "index entry " + std::to_string(damage.slot) + " of " +
               std::to_string(storage.index.size()) + " fails its check";
      case Fault::linkOutside:
        return "a tree link names " + where;
      case Fault::notMember:
        return where + " is linked into the order but holds no member";
      case Fault::endlessWalk:
        return "the ordered walk reached " + where + " after visiting more slots than exist";
      case Fault::none:
        break;
    }
    return where;
  }

  void report(const std::string& message) const {
    Kel::debugMessage("MirraMap::corruptionDetected() " + message);
    ++corruptions_;
    lastCorruption_ = message;
    if (corruptionHandler_) corruptionHandler_(message);
  }

  [[noreturn]] void reportAndThrow(const Damage& damage) const {
    const std::string message = describe(damage);
    report(message);
    unacknowledged_ = true;
    throw CorruptionDetectedException(message);
  }

  void requireWriter(const char* operation) const {
    if (mode_ != AttachMode::singleWriter) {
      throw Kel::RangeException(std::string("MirraMap::") + operation +
                                "() on a reader attachment not allowed");
    }
  }

  // Writer side. Every slot whose links or key the writer is about to rely on is verified first;
  // finding damage throws WriterMetDamage, and the caller rebuilds and starts over.
  void requireIntact(SlotIndex index) const {
    if (index >= storage_->filled || !intact(slotAt(index))) throw WriterMetDamage();
  }

  bool insertIntact(const V& value) {
    const K& key = KeyOf()(value);
    Probe probe = probeFor(key);
    if (probe.damage.found()) throw WriterMetDamage();
    if (probe.slot != kNoSlot) {
      if (valueAt(probe.slot) == value) return false;
      storeValue(slotAt(probe.slot), value);
      return true;
    }
    if (storage_->filled == storage_->slots.size()) {
      const std::size_t size = storage_->slots.size();
      rebuild((storage_->used + 1) * 2 > size ? size * 2 : size);
      probe = probeFor(key);
      if (probe.damage.found() || probe.freeEntry == kNoEntry) throw WriterMetDamage();
    }
    // The path the new member takes down the tree is checked before anything changes, so a
    // damaged path leaves the table as it was.
    Damage damage;
    descend(Bound::atOrAfter, key, &damage);
    if (damage.found()) throw WriterMetDamage();
    place(value, hashTagOf(key), probe.freeEntry);
    return true;
  }

  // Puts value into the next unused slot, its index entry at `entry` and its node into the tree.
  void place(const V& value, std::uint16_t tag, std::size_t entry) {
    const SlotIndex at = static_cast<SlotIndex>(storage_->filled++);
    Slot& slot = slotAt(at);
    clear(slot, SlotState::used);
    storeValue(slot, value);
    storage_->index[entry] = entryFor(at, tag, entry);
    storage_->root = linkUnder(storage_->root, at);
    ++storage_->used;
  }

  bool eraseIntact(const K& key) {
    const Probe probe = probeFor(key);
    if (probe.damage.found()) throw WriterMetDamage();
    if (probe.slot == kNoSlot) return false;
    storage_->root = unlinkUnder(storage_->root, key);
    clear(slotAt(probe.slot), SlotState::erased);
    storage_->index[probe.entry] = entryFor(kErasedEntry, 0, probe.entry);
    --storage_->used;
    return true;
  }

  static std::uint16_t hashTagOf(const K& key) { return tagOf(Hash()(key)); }

  // The treap's heap order (higher sits nearer the root) comes from a second mix of the hash,
  // so that it does not follow the bits that pick the home slot.
  std::uint32_t priorityAt(SlotIndex index) const {
    std::uint64_t mixed = static_cast<std::uint64_t>(Hash()(keyAt(index)));
    mixed *= 0xd6e8feb86659fd93ull;
    mixed ^= mixed >> 32;
    return static_cast<std::uint32_t>(mixed);
  }

  void linkLeft(SlotIndex parent, SlotIndex child) {
    Slot& slot = slotAt(parent);
    if (slot.left == child) return;
    slot.left = child;
    seal(slot);
  }
  void linkRight(SlotIndex parent, SlotIndex child) {
    Slot& slot = slotAt(parent);
    if (slot.right == child) return;
    slot.right = child;
    seal(slot);
  }
  // Both return the new root of the subtree.
  SlotIndex rotateRight(SlotIndex top) {
    const SlotIndex left = slotAt(top).left;
    requireIntact(left);
    linkLeft(top, slotAt(left).right);
    linkRight(left, top);
    return left;
  }
  SlotIndex rotateLeft(SlotIndex top) {
    const SlotIndex right = slotAt(top).right;
    requireIntact(right);
    linkRight(top, slotAt(right).left);
    linkLeft(right, top);
    return right;
  }

  // Puts the member in slot `member` into the subtree under `top`; returns the subtree's root.
  SlotIndex linkUnder(SlotIndex top, SlotIndex member) {
    if (top == kNoSlot) return member;
    if (keyAt(member) < keyAt(top)) {
      linkLeft(top, linkUnder(slotAt(top).left, member));
      if (priorityAt(slotAt(top).left) > priorityAt(top)) return rotateRight(top);
    } else {
      linkRight(top, linkUnder(slotAt(top).right, member));
      if (priorityAt(slotAt(top).right) > priorityAt(top)) return rotateLeft(top);
    }
    return top;
  }

  // Takes key's member out of the subtree under `top`; returns the subtree's root.
  // REQUIRES: key is a member.
  SlotIndex unlinkUnder(SlotIndex top, const K& key) {
    requireIntact(top);
    if (key < keyAt(top)) {
      linkLeft(top, unlinkUnder(slotAt(top).left, key));
      return top;
    }
    if (keyAt(top) < key) {
      linkRight(top, unlinkUnder(slotAt(top).right, key));
      return top;
    }
    return unlinkTop(top);
  }

  // Rotates `top` down below the child with the higher priority until it has at most one child,
  // then lets that child take its place.
  SlotIndex unlinkTop(SlotIndex top) {
    const SlotIndex left = slotAt(top).left;
    const SlotIndex right = slotAt(top).right;
    if (left == kNoSlot) return right;
    if (right == kNoSlot) return left;
    requireIntact(left);
    requireIntact(right);
    if (priorityAt(left) > priorityAt(right)) {
      const SlotIndex raised = rotateRight(top);
      linkRight(raised, unlinkTop(top));
      return raised;
    }
    const SlotIndex raised = rotateLeft(top);
    linkLeft(raised, unlinkTop(top));
    return raised;
  }

  // Rebuilds the table into `size` slots from the intact members, reporting and dropping every
  // damaged slot and index entry; the old tree links and index are not trusted. When watchKey is
  // given, *droppedWatchKey tells whether a dropped slot's key bytes named it.
  void rebuild(std::size_t size, const K* watchKey = nullptr, bool* droppedWatchKey = nullptr) {
    Storage old;
    old.slots = std::move(storage_->slots);
    old.index = std::move(storage_->index);
    old.filled = storage_->filled;
    for (std::size_t at = 0; at < old.index.size(); ++at) {
      const IndexEntry& entry = old.index[at];
      if (entry.check != checkOf(entry.slot, entry.tag, at)) {
        report(describeIn(old, Damage{Fault::indexEntry, static_cast<SlotIndex>(at)}));
      }
    }
    resetStorage(*storage_, size);
    for (std::size_t index = 0; index < old.filled; ++index) {
      const Slot& slot = old.slots[index];
      if (!intact(slot)) {
        report(describeIn(old, Damage{Fault::checksum, static_cast<SlotIndex>(index)}));
        if (watchKey && KeyOf()(slot.value) == *watchKey) *droppedWatchKey = true;
        continue;
      }
      if (slot.state != SlotState::used) continue;
      const Probe probe = probeFor(KeyOf()(slot.value));
      if (probe.slot != kNoSlot) continue;  // a second copy of a key can only be stray bytes
      place(slot.value, hashTagOf(KeyOf()(slot.value)), probe.freeEntry);
    }
  }

  std::shared_ptr<Storage> storage_;
  AttachMode mode_;
  CorruptionHandler corruptionHandler_;
  mutable std::size_t corruptions_ = 0;
  mutable std::string lastCorruption_;
  // The last report was made by the table's own check and not yet handed back by a caller.
  mutable bool unacknowledged_ = false;
};

}  // namespace Mirra
