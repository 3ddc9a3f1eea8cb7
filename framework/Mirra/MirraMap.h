#pragma once
// Mirra::MirraMap<K, V, KeyOf>: a single-writer table of fixed-size values, ordered by key, that
// lives either in process memory or in named shared memory that other processes read.
//
// MirraMap() makes an in-process table; attachShared(name, mode) attaches to the shared table
// `name` as its single writer (creating it, or continuing what the last writer left) or as a
// reader; unlinkShared(name) removes a shared table's segments. Both kinds keep the same layout:
// one block of memory (see internal/TableHeader.h) holding a header, a dense array of slots and a
// hash index, whose entries refer to each other by 32-bit slot index only, never by address.
//
// Members sit in the slots, each a node of a balanced search tree (a treap whose left/right links
// are slot indices) that orders the members by K's `<`, and each carrying a checksum over all its
// other bytes (state, tree links, key, value). Beside it, a compact hash index (open addressing,
// linear probing: constant-time lookup) maps a key's hash tag to its slot; every index entry
// carries its own check over the slot number, the tag and its position.
//
// Invariants:
//  1. K and V are trivially copyable and of fixed size, with ==; a value's key is KeyOf()(value).
//  2. Exactly one writer: only the attachment made by MirraMap() or attachShared(name,
//     singleWriter) changes the table; a second writer of a shared table is refused (see
//     internal/SharedTableMemory.h). Readers (reader(), attachShared(name, reader)) never write:
//     a shared reader maps the table read-only, and every mutator refuses a reader attachment.
//  3. Lookup never fails for a missing key: it returns a default-constructed V, which callers
//     treat as the absence marker. members() is the number of keys held.
//  4. Corruption: a lookup verifies every index entry it probes, including the empty one that
//     ends the probe, and every slot whose tag matches, so a damaged key or state byte of the
//     key's own slot, or a damaged index entry on its way, is reported rather than read as
//     "absent". A damaged slot of another key is not read. Positioning and iteration verify every
//     tree slot they pass. A slot that a writer left half-written (it died in the middle of the
//     write) is damage too, reported after a bounded wait.
//     A read that finds damage reports it (see corruptionDetected) and throws
//     CorruptionDetectedException; it changes nothing, so a walk that ended there can be started
//     again (it meets the same damage until the writer has dropped it). The writer's insert or
//     erase that meets damage instead reports every damaged slot and index entry, rebuilds the
//     table without them, and then does its work: it never throws for corruption. Growth (a
//     rebuild) likewise drops and reports damaged slots; nothing damaged is ever copied. A writer
//     that attaches to a shared table checks it whole and rebuilds it when it finds damage.
//  5. Iteration is in ascending key order. An iterator holds a copy of the member it stands on and
//     advances to the smallest key greater than that copy's key in the table as it is then. So a
//     writer may change the table between steps: erasing the current member, inserting behind or
//     ahead of it, growing. A member that stays in the table from the start of a walk to its end
//     is visited exactly once; one inserted ahead of the position is visited, one behind it is not.
//     Each step costs a descent from the root (O(log n)), verified as in 4.
//  6. Each attachment keeps its own record of what it detected: corruptions(), lastCorruption().
//  7. Reads never tear. A reader in another process gets values that the writer wrote whole:
//     - each slot starts with a 64-bit head word (a 16-bit sequence, the state byte, the
//       checksum). The writer makes the sequence odd (relaxed store), issues a release fence,
//       stores the slot's other words (relaxed), then stores the head with the next even sequence
//       and the new checksum (release). A reader loads the head (acquire), the other words
//       (relaxed), issues an acquire fence and loads the head again (relaxed); it keeps the copy
//       only when both heads are equal and even. Had it seen any store of a later write, its
//       acquire fence would pair with that write's release fence and the second head load would
//       see the odd sequence; so equal even heads mean one whole write.
//     - index entries are single 64-bit words, stored with release after the slot they name, and
//       loaded with acquire: an entry that names a slot is seen after the slot's contents.
//     - the header's `changes` word is odd during each write and `structure` is odd while tree
//       links change, with the same fences as a slot; a reader that met damage takes it as real
//       only when `changes` did not move around its read, and a descent counts only when
//       `structure` did not move. So a reader never reports the writer's work in progress.
//     - growth and rebuilds fill a new generation of memory and publish its number with release;
//       every read starts by loading that number with acquire and moves to the new memory.
//     Every wait is bounded: a word that stays odd after a short spin while no writer is attached,
//     or for about two seconds while one is, is taken as left by a writer that died.
//  8. Shared tables report attach, ready, detach and corruption to the framework's debug stream and
//     to the system log; in-process tables to the debug stream only.

#include <time.h>

#include <algorithm>
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
#include "framework/Mirra/internal/HeapTableMemory.h"
#include "framework/Mirra/internal/SharedTableMemory.h"
#include "framework/Mirra/internal/SharedWord.h"
#include "framework/Mirra/internal/SlotChecksum.h"
#include "framework/Mirra/internal/TableHeader.h"

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
  using KeyOfType = KeyOf;
  static constexpr SlotIndex kNoSlot = 0xffffffffu;

  // Index entries that name no slot.
  static constexpr SlotIndex kEmptyEntry = 0xffffffffu;
  static constexpr SlotIndex kErasedEntry = 0xfffffffeu;

  // Distinct bit patterns, so that a stray write to the state byte is not another valid state.
  enum class SlotState : std::uint8_t { empty = 0x3c, used = 0xa5, erased = 0x5a };

  // A slot that fits a cache line gets one of its own, so a lookup reads one line per slot.
  static constexpr std::size_t kSlotHeader = 16;
  static constexpr std::size_t kSlotAlignment = kSlotHeader + sizeof(V) <= 64 ? 64 : 8;

  // Only ever copied whole between the table's memory and a local image, word by word.
  struct alignas(kSlotAlignment) Slot {
    std::uint16_t sequence;  // odd while the writer changes the slot; outside the checksum
    SlotState state;
    std::uint8_t padding;  // named, so that every byte is written
    std::uint32_t checksum;
    SlotIndex left;
    SlotIndex right;
    V value;
  };
  static_assert(std::is_trivially_copyable_v<Slot>, "slots are plain bytes");
  static_assert(offsetof(Slot, sequence) == 0 && offsetof(Slot, checksum) == 4,
                "the head word holds the sequence, the state and the checksum");
  static constexpr std::size_t kSlotWords = sizeof(Slot) / 8;

  struct IndexEntry {
    SlotIndex slot;       // kEmptyEntry, kErasedEntry or the member's slot
    std::uint16_t tag;    // bits of the key's hash: probes pass other keys without reading them
    std::uint16_t check;  // over slot, tag and the entry's own position
  };
  static_assert(sizeof(IndexEntry) == 8, "an index entry is one shared word");

  // Where one generation of the table's memory keeps its parts.
  struct Layout {
    internal::TableHeader* header = nullptr;
    std::uint64_t* slots = nullptr;  // kSlotWords words per slot
    std::uint64_t* index = nullptr;  // one word per entry
  };

  // What a check found wrong, and where.
  enum class Fault : std::uint8_t {
    none,
    checksum,
    indexEntry,
    linkOutside,
    notMember,
    endlessWalk,
    halfWritten,
    unfinishedRelink,
    header
  };
  struct Damage {
    Fault fault = Fault::none;
    SlotIndex slot = kNoSlot;
    bool found() const { return fault != Fault::none; }
  };

  // Thrown inside a writer operation that met damage; caught there, never escapes the class.
  struct WriterMetDamage {};

  // A member found by a descent, with the copy of its value read there.
  struct Position {
    SlotIndex slot = kNoSlot;
    V value{};
  };

 public:
  using CorruptionHandler = std::function<void(const std::string&)>;

  // A new, empty table in process memory, attached for writing.
  MirraMap()
      : memory_(std::make_shared<internal::HeapTableMemory>()), mode_(AttachMode::singleWriter) {
    startFresh();
  }

  // Attaches to the shared table `name` (letters, digits, '.', '_', '-'). As singleWriter it
  // creates the table when there is none and otherwise continues it; as reader the table must
  // exist. Throws Kel::RangeException with the reason when the table cannot be attached (a
  // second writer: "MirraMap::attach() table <name> already has a writer").
  static MirraMap attachShared(const std::string& name, AttachMode mode) {
    const internal::TableShape shape{sizeof(K), sizeof(V), sizeof(Slot)};
    auto memory = std::make_shared<internal::SharedTableMemory>(
        name, mode == AttachMode::singleWriter, shape);
    MirraMap map(memory, mode);
    map.attachExisting();
    std::ostringstream message;
    message << "MirraMap::attach() " << name << " as "
            << (mode == AttachMode::singleWriter ? "writer" : "reader")
            << " members:" << map.members() << " slots:" << map.layout_.header->slots;
    map.debugReport(false, message.str());
    return map;
  }
  // Removes the shared table `name`; attachments keep reading what they have mapped. False when
  // there is no such table.
  static bool unlinkShared(const std::string& name) {
    return internal::SharedTableMemory::unlink(name);
  }

  // Another attachment to the same table, in this process, for reading only, with its own
  // corruption record and no handler.
  MirraMap reader() const { return MirraMap(memory_, AttachMode::reader); }
  AttachMode mode() const { return mode_; }
  // Whether other processes can attach to this table, and its name ("" in process memory).
  bool shared() const { return memory_->shared(); }
  const std::string& sharedName() const { return memory_->name(); }

  // The value stored under key, or V() when there is none.
  V lookup(const K& key) const {
    refresh();
    const Probe probe = probeFor(key);
    if (probe.damage.found()) reportAndThrow(probe.damage);
    return probe.slot == kNoSlot ? V() : probe.value;
  }
  bool contains(const K& key) const {
    refresh();
    const Probe probe = probeFor(key);
    if (probe.damage.found()) reportAndThrow(probe.damage);
    return probe.slot != kNoSlot;
  }
  std::size_t members() const {
    refresh();
    return static_cast<std::size_t>(internal::loadAcquire(&layout_.header->used));
  }
  // Grows with every write that changed the table; readers poll it to learn that something changed.
  std::uint64_t changeCount() const {
    refresh();
    return (internal::loadAcquire(&layout_.header->changes) + 1) / 2;
  }

  // Inserts value under its key or replaces the value there; returns false when the same value
  // was already stored.
  // REQUIRES: mode() == singleWriter.
  bool insert(const V& value) {
    requireWriter("insert");
    const WriteScope scope(this);
    try {
      return insertIntact(value);
    } catch (const WriterMetDamage&) {
      rebuild(layout_.header->slots);
      return insertIntact(value);
    }
  }

  // Returns false when key was absent. A key whose slot was damaged (its key bytes still naming
  // key) counts as present: its slot is dropped and true returned.
  // REQUIRES: mode() == singleWriter.
  bool erase(const K& key) {
    requireWriter("erase");
    const WriteScope scope(this);
    try {
      return eraseIntact(key);
    } catch (const WriterMetDamage&) {
      bool droppedKey = false;
      rebuild(layout_.header->slots, &key, &droppedKey);
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
      const Position next = map_->positionAt(Bound::after, KeyOf()(current_));
      slot_ = next.slot;
      if (next.slot != kNoSlot) current_ = next.value;
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
    Iterator(const MirraMap* map, const Position& at) : map_(map), slot_(at.slot) {
      if (at.slot != kNoSlot) current_ = at.value;
    }
    const MirraMap* map_;
    SlotIndex slot_;
    V current_{};
  };

  // Throw CorruptionDetectedException, after reporting, when positioning meets damage.
  Iterator begin() const { return Iterator(this, positionAt(Bound::first, K())); }
  Iterator end() const { return Iterator(this, Position{}); }
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
  // REQUIRES: mode() == singleWriter.
  void collectionReadyIs(bool ready, bool notifying) {
    requireWriter("collectionReadyIs");
    std::ostringstream message;
    message << "MirraMap::collectionReadyIs() ready:" << ready << " notifying:" << notifying;
    debugReport(false, message.str());
    internal::storeRelease(&layout_.header->ready, ready ? 1 : 0);
    if (ready && notifying) advertiseCollectionReady(true);
  }
  bool collectionReady() const {
    refresh();
    return internal::loadAcquire(&layout_.header->ready) != 0;
  }
  // REQUIRES: mode() == singleWriter.
  void advertiseCollectionReady(bool notifying) {
    requireWriter("advertiseCollectionReady");
    if (!notifying) {
      debugReport(false,
                  "MirraMap::advertiseCollectionReady() notifications unexpectedly disabled");
      return;
    }
    if (internal::loadAcquire(&layout_.header->advertised) != 0) {
      debugReport(false, "MirraMap::advertiseCollectionReady() collection already advertised");
      return;
    }
    // Attachments read the table's memory itself, so they see it the moment it is written.
    debugReport(false, "MirraMap::advertiseCollectionReady() in synchronous mode");
    internal::storeRelease(&layout_.header->advertised, 1);
  }
  // Lets go of the table: this attachment sees an empty table from now on and writes nothing;
  // other attachments keep the table as it is (a shared writer's lock is released).
  void detach() {
    debugReport(false, "MirraMap::detach() ");
    layout_ = Layout{};  // its memory may go with the old attachment
    memory_ = std::make_shared<internal::HeapTableMemory>();
    layoutGeneration_ = 0;
    startFresh();
    mode_ = AttachMode::reader;
  }

 private:
  friend class testing::MirraMapBackdoor;

  static constexpr std::size_t kInitialSlots = 16;  // a power of two; growth doubles it
  // Rounds of re-reading a word held odd: spun, then slept kWaitNanoseconds each while a writer
  // is attached elsewhere.
  static constexpr int kSpinRounds = 64;
  static constexpr int kSleepRounds = 20000;
  static constexpr long kWaitNanoseconds = 100000;

  // Where a key is (its index entry, slot and value), which index entry it could take, or what
  // stopped the search.
  struct Probe {
    std::size_t entry = 0;
    SlotIndex slot = kNoSlot;
    V value{};
    std::size_t freeEntry = kNoEntry;
    Damage damage;
  };
  static constexpr std::size_t kNoEntry = static_cast<std::size_t>(-1);

  // Marks a write under way in the header for the duration of a writer operation.
  class WriteScope {
   public:
    explicit WriteScope(MirraMap* map) : map_(map) {}
    ~WriteScope() { map_->settle(); }
    WriteScope(const WriteScope&) = delete;
    WriteScope& operator=(const WriteScope&) = delete;

   private:
    MirraMap* map_;
  };

  MirraMap(std::shared_ptr<internal::TableMemory> memory, AttachMode mode)
      : memory_(std::move(memory)), mode_(mode) {
    refresh();
  }

  // --- memory and generations ---

  static std::size_t bytesFor(std::size_t slots) {
    return sizeof(internal::TableHeader) + slots * sizeof(Slot) + slots * 2 * sizeof(IndexEntry);
  }
  static Layout layoutOf(unsigned char* base) {
    Layout layout;
    layout.header = reinterpret_cast<internal::TableHeader*>(base);
    layout.slots = reinterpret_cast<std::uint64_t*>(base + sizeof(internal::TableHeader));
    layout.index = layout.slots + layout.header->slots * kSlotWords;
    return layout;
  }

  // Moves to the newest generation when the writer published one.
  void refresh() const {
    if (memory_->generation() == layoutGeneration_ && layout_.header) return;
    unsigned char* base = memory_->current(&layoutGeneration_);
    layout_ = Layout{};
    if (!base) return;  // a shared table whose writer has not built it yet
    const auto* header = reinterpret_cast<const internal::TableHeader*>(base);
    const bool sound = header->magic == internal::kTableMagic &&
                       header->format == internal::kTableFormat && header->keySize == sizeof(K) &&
                       header->valueSize == sizeof(V) && header->slotSize == sizeof(Slot) &&
                       header->slots > 0 && header->entries == header->slots * 2 &&
                       (header->entries & (header->entries - 1)) == 0;
    if (!sound) reportAndThrow(Damage{Fault::header, 0});
    layout_ = layoutOf(base);
  }

  // A new generation of `slots` slots, empty, not yet published; counters carried over from the
  // current one.
  Layout prepare(std::size_t slots) {
    unsigned char* base = memory_->prepare(bytesFor(slots));
    auto* header = reinterpret_cast<internal::TableHeader*>(base);
    header->magic = internal::kTableMagic;
    header->format = internal::kTableFormat;
    header->keySize = sizeof(K);
    header->valueSize = sizeof(V);
    header->slotSize = sizeof(Slot);
    header->slots = slots;
    header->entries = slots * 2;
    const Layout layout = layoutOf(base);
    internal::storeRelaxed(&header->root, kNoSlot);
    if (layout_.header) {
      const internal::TableHeader& old = *layout_.header;
      internal::storeRelaxed(&header->changes, (internal::loadRelaxed(&old.changes) | 1) + 1);
      internal::storeRelaxed(&header->ready, internal::loadRelaxed(&old.ready));
      internal::storeRelaxed(&header->advertised, internal::loadRelaxed(&old.advertised));
    }
    // Slots past `filled` are never read, so only the index needs its empty entries.
    for (std::size_t at = 0; at < slots * 2; ++at) {
      storeEntry(layout, at, entryFor(kEmptyEntry, 0, at));
    }
    return layout;
  }
  void publish() {
    memory_->publish();
    memory_->current(&layoutGeneration_);
  }

  void startFresh() {
    layout_ = prepare(kInitialSlots);
    publish();
  }

  // A writer continues what the last writer left, after checking all of it; a reader only
  // checks that it can read the header.
  void attachExisting() {
    if (mode_ == AttachMode::reader) return;
    if (!layout_.header) {
      startFresh();
      return;
    }
    if (damagedAnywhere()) {
      const WriteScope scope(this);
      rebuild(layout_.header->slots);
    }
  }
  bool damagedAnywhere() const {
    const internal::TableHeader& header = *layout_.header;
    if (odd(internal::loadRelaxed(&header.changes)) ||
        odd(internal::loadRelaxed(&header.structure))) {
      return true;
    }
    const std::size_t filled = internal::loadRelaxed(&header.filled);
    std::size_t used = 0;
    for (std::size_t at = 0; at < filled; ++at) {
      Slot slot;
      if (!readWhole(layout_, static_cast<SlotIndex>(at), &slot) || !intact(slot)) return true;
      if (slot.state == SlotState::used) ++used;
    }
    for (std::size_t at = 0; at < header.entries; ++at) {
      const IndexEntry entry = entryAt(layout_, at);
      if (entry.check != checkOf(entry.slot, entry.tag, at)) return true;
    }
    return used != internal::loadRelaxed(&header.used);
  }

  // --- shared words ---

  static bool odd(std::uint64_t word) { return (word & 1) != 0; }

  // A reader in another process must allow for the writer's work in progress.
  bool concurrent() const { return !memory_->writable(); }

  // Called while a word stays odd; false when it is to be taken as left by a dead writer.
  bool waitForWriter(int rounds) const {
    if (rounds <= kSpinRounds) return true;
    if (rounds > kSpinRounds + kSleepRounds || !memory_->otherWriterAlive()) return false;
    const timespec pause{0, kWaitNanoseconds};
    nanosleep(&pause, nullptr);
    return true;
  }

  static std::uint64_t headOf(const Slot& slot) {
    std::uint64_t head;
    std::memcpy(&head, static_cast<const void*>(&slot), sizeof(head));
    return head;
  }
  // The sequence is the head word's first two bytes.
  static std::uint16_t sequenceOf(std::uint64_t head) {
    std::uint16_t sequence;
    std::memcpy(&sequence, &head, sizeof(sequence));
    return sequence;
  }
  static std::uint64_t withSequence(std::uint64_t head, std::uint16_t sequence) {
    std::memcpy(&head, &sequence, sizeof(sequence));
    return head;
  }

  // Copies slot `at` whole into *out (see invariant 7). False when the slot stayed half-written;
  // *out then holds what was there.
  bool readWhole(const Layout& layout, SlotIndex at, Slot* out) const {
    const std::uint64_t* words = layout.slots + static_cast<std::size_t>(at) * kSlotWords;
    auto* bytes = reinterpret_cast<unsigned char*>(out);
    std::uint64_t heldHead = 0;
    int heldRounds = 0;
    for (;;) {
      const std::uint64_t head = internal::loadAcquire(words);
      for (std::size_t word = 1; word < kSlotWords; ++word) {
        const std::uint64_t copy = internal::loadRelaxed(words + word);
        std::memcpy(bytes + word * 8, &copy, 8);
      }
      std::memcpy(bytes, &head, 8);
      if (odd(sequenceOf(head))) {
        if (head != heldHead) heldRounds = 0;
        heldHead = head;
        if (!waitForWriter(++heldRounds)) return false;
        continue;
      }
      internal::fenceAcquire();
      if (internal::loadRelaxed(words) == head) return true;
    }
  }

  // Writer: replaces slot `at` with image, under the slot's sequence (see invariant 7).
  void writeSlot(SlotIndex at, const Slot& contents) {
    Slot image = contents;
    std::uint64_t* words = layout_.slots + static_cast<std::size_t>(at) * kSlotWords;
    const std::uint64_t oldHead = internal::loadRelaxed(words);
    const auto busy = static_cast<std::uint16_t>(sequenceOf(oldHead) | 1);
    internal::storeRelaxed(words, withSequence(oldHead, busy));
    internal::fenceRelease();
    if (midWriteHook_) midWriteHook_();
    image.sequence = static_cast<std::uint16_t>(busy + 1);
    image.checksum = checksumOf(image);
    const auto* bytes = reinterpret_cast<const unsigned char*>(&image);
    for (std::size_t word = 1; word < kSlotWords; ++word) {
      std::uint64_t copy;
      std::memcpy(&copy, bytes + word * 8, 8);
      internal::storeRelaxed(words + word, copy);
    }
    internal::storeRelease(words, headOf(image));
  }

  static IndexEntry entryAt(const Layout& layout, std::size_t at) {
    const std::uint64_t word = internal::loadAcquire(layout.index + at);
    IndexEntry entry;
    std::memcpy(&entry, &word, sizeof(entry));
    return entry;
  }
  static void storeEntry(const Layout& layout, std::size_t at, IndexEntry entry) {
    std::uint64_t word;
    std::memcpy(&word, &entry, sizeof(word));
    internal::storeRelease(layout.index + at, word);
  }

  // Writer: opens a write (or a relink) in the header, so that readers can tell work in
  // progress from damage; settle() closes both.
  void beginWord(std::uint64_t* word) {
    const std::uint64_t value = internal::loadRelaxed(word);
    if (odd(value)) return;
    internal::storeRelaxed(word, value + 1);
    internal::fenceRelease();
  }
  static void settleWord(std::uint64_t* word) {
    const std::uint64_t value = internal::loadRelaxed(word);
    if (odd(value)) internal::storeRelease(word, value + 1);
  }
  void beginWrite() { beginWord(&layout_.header->changes); }
  void beginRelink() { beginWord(&layout_.header->structure); }
  void settle() {
    settleWord(&layout_.header->structure);
    settleWord(&layout_.header->changes);
  }
  void countersAre(std::size_t filled, std::size_t used) {
    internal::storeRelease(&layout_.header->filled, filled);
    internal::storeRelease(&layout_.header->used, used);
  }
  std::size_t filled() const { return internal::loadAcquire(&layout_.header->filled); }
  std::size_t used() const { return internal::loadAcquire(&layout_.header->used); }
  SlotIndex root() const {
    return static_cast<SlotIndex>(internal::loadAcquire(&layout_.header->root));
  }
  void rootIs(SlotIndex root) {
    if (this->root() != root) internal::storeRelease(&layout_.header->root, root);
  }

  // --- checks ---

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

  // Covers the state byte and every byte after the head word; the odd multiplier keeps any change
  // of the state byte a change of the sum.
  static std::uint32_t checksumOf(const Slot& slot) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&slot);
    return internal::slotChecksum(bytes + 8, sizeof(Slot) - 8) ^
           (static_cast<std::uint32_t>(slot.state) * 0x9e3779b1u);
  }
  static bool intact(const Slot& slot) {
    const bool known = slot.state == SlotState::empty || slot.state == SlotState::used ||
                       slot.state == SlotState::erased;
    return known && slot.checksum == checksumOf(slot);
  }
  static Slot blank(SlotState state) {
    Slot slot;
    std::memset(static_cast<void*>(&slot), 0, sizeof(Slot));
    slot.state = state;
    slot.left = kNoSlot;
    slot.right = kNoSlot;
    return slot;
  }

  // Writer's own reads: nobody else writes, so a slot held odd was left by a dead writer.
  Slot slotAt(SlotIndex index) const {
    Slot slot;
    readWhole(layout_, index, &slot);
    return slot;
  }
  K keyAt(SlotIndex index) const { return KeyOf()(slotAt(index).value); }

  // The bits that do not pick the home entry.
  static std::uint16_t tagOf(std::size_t hash) {
    return static_cast<std::uint16_t>(static_cast<std::uint64_t>(hash) >> 48);
  }

  // Linear probing from key's home entry; a reader in another process looks again while the
  // writer's work in progress could explain what it met (invariant 7).
  Probe probeFor(const K& key) const {
    if (!concurrent()) return probeOnce(key);
    const std::uint64_t* changes = &layout_.header->changes;
    for (int stalled = 0;;) {
      const std::uint64_t before = internal::loadAcquire(changes);
      const Probe probe = probeOnce(key);
      if (!probe.damage.found()) return probe;
      internal::fenceAcquire();
      const std::uint64_t after = internal::loadRelaxed(changes);
      if (before != after) continue;
      if (!odd(before) || !waitForWriter(kSpinRounds + ++stalled)) return probe;
    }
  }

  Probe probeOnce(const K& key) const {
    Probe probe;
    const std::size_t hash = Hash()(key);
    const std::uint16_t tag = tagOf(hash);
    const std::size_t mask = layout_.header->entries - 1;
    std::size_t at = hash & mask;
    for (std::size_t probes = 0; probes <= mask; ++probes, at = (at + 1) & mask) {
      const IndexEntry entry = entryAt(layout_, at);
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
      if (entry.slot >= filled()) {
        probe.damage = Damage{Fault::linkOutside, entry.slot};
        return probe;
      }
      Slot slot;
      if (!readWhole(layout_, entry.slot, &slot)) {
        probe.damage = Damage{Fault::halfWritten, entry.slot};
        return probe;
      }
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
        probe.value = slot.value;
        return probe;
      }
    }
    return probe;
  }

  // Which member a descent looks for.
  enum class Bound : std::uint8_t { first, atOrAfter, after };

  // The tree member that is the first one (Bound::first), the first whose key is >= key, or the
  // first whose key is > key; none when there is none. A reader in another process counts a
  // descent only when no relink ran during it (invariant 7). Damage is left in *damage.
  Position descend(Bound bound, const K& key, Damage* damage) const {
    if (!concurrent()) return descendOnce(bound, key, damage);
    const std::uint64_t* structure = &layout_.header->structure;
    for (int stalled = 0;;) {
      const std::uint64_t before = internal::loadAcquire(structure);
      Damage met;
      const Position found = descendOnce(bound, key, &met);
      internal::fenceAcquire();
      const std::uint64_t after = internal::loadRelaxed(structure);
      if (before != after) continue;
      if (!odd(before)) {
        *damage = met;
        return found;
      }
      if (!waitForWriter(kSpinRounds + ++stalled)) {
        *damage = Damage{Fault::unfinishedRelink, root()};
        return Position{};
      }
    }
  }

  Position descendOnce(Bound bound, const K& key, Damage* damage) const {
    const std::size_t size = filled();
    Position best;
    SlotIndex at = root();
    for (std::size_t steps = 0; at != kNoSlot; ++steps) {
      if (steps > size) {
        *damage = Damage{Fault::endlessWalk, at};
        return Position{};
      }
      if (at >= size) {
        *damage = Damage{Fault::linkOutside, at};
        return Position{};
      }
      Slot slot;
      if (!readWhole(layout_, at, &slot)) {
        *damage = Damage{Fault::halfWritten, at};
        return Position{};
      }
      if (!intact(slot)) {
        *damage = Damage{Fault::checksum, at};
        return Position{};
      }
      if (slot.state != SlotState::used) {
        *damage = Damage{Fault::notMember, at};
        return Position{};
      }
      const K& here = KeyOf()(slot.value);
      const bool goLeft = bound == Bound::first   ? true
                          : bound == Bound::after ? key < here
                                                  : !(here < key);
      if (goLeft) {
        best = Position{at, slot.value};
        at = slot.left;
      } else {
        at = slot.right;
      }
    }
    return best;
  }

  Position positionAt(Bound bound, const K& key) const {
    refresh();
    Damage damage;
    const Position at = descend(bound, key, &damage);
    if (damage.found()) reportAndThrow(damage);
    return at;
  }

  std::string describe(const Damage& damage) const { return describeIn(layout_, damage); }
  static std::string describeIn(const Layout& layout, const Damage& damage) {
    const std::string where = "slot " + std::to_string(damage.slot) + " of " +
                              std::to_string(layout.header ? layout.header->slots : 0);
    switch (damage.fault) {
      case Fault::checksum:
        return where + " fails its checksum";
      case Fault::indexEntry:
        return "index entry " + std::to_string(damage.slot) + " of " +
               std::to_string(layout.header->entries) + " fails its check";
      case Fault::linkOutside:
        return "a tree link names " + where;
      case Fault::notMember:
        return where + " is linked into the order but holds no member";
      case Fault::endlessWalk:
        return "the ordered walk reached " + where + " after visiting more slots than exist";
      case Fault::halfWritten:
        return where + " was left half-written";
      case Fault::unfinishedRelink:
        return "the tree was left in the middle of a change";
      case Fault::header:
        return "the table header fails its check";
      case Fault::none:
        break;
    }
    return where;
  }

  void debugReport(bool problem, const std::string& message) const {
    Kel::debugMessage(message);
    if (memory_->shared()) internal::systemLog(problem, message);
  }

  void report(const std::string& message) const {
    debugReport(true, "MirraMap::corruptionDetected() " + message);
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

  // --- writer side ---
  // Every slot whose links or key the writer is about to rely on is verified first; finding
  // damage throws WriterMetDamage, and the caller rebuilds and starts over.

  void requireIntact(SlotIndex index) const {
    if (index >= filled()) throw WriterMetDamage();
    Slot slot;
    if (!readWhole(layout_, index, &slot) || !intact(slot)) throw WriterMetDamage();
  }

  bool insertIntact(const V& value) {
    const K& key = KeyOf()(value);
    Probe probe = probeFor(key);
    if (probe.damage.found()) throw WriterMetDamage();
    if (probe.slot != kNoSlot) {
      if (probe.value == value) return false;
      Slot slot = slotAt(probe.slot);
      std::memcpy(static_cast<void*>(&slot.value), &value, sizeof(V));
      beginWrite();
      writeSlot(probe.slot, slot);
      return true;
    }
    const std::size_t size = layout_.header->slots;
    if (filled() == size) {
      rebuild((used() + 1) * 2 > size ? size * 2 : size);
      probe = probeFor(key);
      if (probe.damage.found() || probe.freeEntry == kNoEntry) throw WriterMetDamage();
    }
    // The path the new member takes down the tree is checked before anything changes, so a
    // damaged path leaves the table as it was.
    Damage damage;
    descend(Bound::atOrAfter, key, &damage);
    if (damage.found()) throw WriterMetDamage();
    beginWrite();
    place(value, hashTagOf(key), probe.freeEntry);
    return true;
  }

  // Puts value into the next unused slot, its node into the tree and then its index entry, so
  // that a reader who finds the entry finds the slot whole.
  void place(const V& value, std::uint16_t tag, std::size_t entry) {
    const SlotIndex at = static_cast<SlotIndex>(filled());
    Slot slot = blank(SlotState::used);
    std::memcpy(static_cast<void*>(&slot.value), &value, sizeof(V));
    writeSlot(at, slot);
    countersAre(at + 1, used());
    beginRelink();
    const K& key = KeyOf()(value);
    rootIs(linkUnder(root(), at, key, priorityOf(key)));
    settleWord(&layout_.header->structure);
    storeEntry(layout_, entry, entryFor(at, tag, entry));
    countersAre(filled(), used() + 1);
  }

  // The index entry goes before the slot is cleared, so that a reader who still finds the entry
  // finds the member or, once it is cleared, an entry that has moved on.
  bool eraseIntact(const K& key) {
    const Probe probe = probeFor(key);
    if (probe.damage.found()) throw WriterMetDamage();
    if (probe.slot == kNoSlot) return false;
    beginWrite();
    beginRelink();
    rootIs(unlinkUnder(root(), key));
    settleWord(&layout_.header->structure);
    storeEntry(layout_, probe.entry, entryFor(kErasedEntry, 0, probe.entry));
    writeSlot(probe.slot, blank(SlotState::erased));
    countersAre(filled(), used() - 1);
    return true;
  }

  static std::uint16_t hashTagOf(const K& key) { return tagOf(Hash()(key)); }

  // The treap's heap order (higher sits nearer the root) comes from a second mix of the hash,
  // so that it does not follow the bits that pick the home slot.
  static std::uint32_t priorityOf(const K& key) {
    std::uint64_t mixed = static_cast<std::uint64_t>(Hash()(key));
    mixed *= 0xd6e8feb86659fd93ull;
    mixed ^= mixed >> 32;
    return static_cast<std::uint32_t>(mixed);
  }
  std::uint32_t priorityAt(SlotIndex index) const { return priorityOf(keyAt(index)); }

  void linkLeft(SlotIndex parent, SlotIndex child) {
    Slot slot = slotAt(parent);
    if (slot.left == child) return;
    slot.left = child;
    writeSlot(parent, slot);
  }
  void linkRight(SlotIndex parent, SlotIndex child) {
    Slot slot = slotAt(parent);
    if (slot.right == child) return;
    slot.right = child;
    writeSlot(parent, slot);
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

  // Puts the member in slot `member` (key, priority) into the subtree under `top`; returns the
  // subtree's root. Each slot on the way is read once. Only the new member can rise above its
  // parent: every other node already sits below one of higher priority.
  // REQUIRES: the path from top down is intact (insertIntact checked it).
  SlotIndex linkUnder(SlotIndex top, SlotIndex member, const K& key, std::uint32_t priority) {
    if (top == kNoSlot) return member;
    Slot slot = slotAt(top);
    const bool left = key < KeyOf()(slot.value);
    SlotIndex& link = left ? slot.left : slot.right;
    const SlotIndex child = linkUnder(link, member, key, priority);
    const bool rises = child == member && priority > priorityOf(KeyOf()(slot.value));
    if (!rises) {
      if (link != child) {
        link = child;
        writeSlot(top, slot);
      }
      return top;
    }
    // Rotation: the member takes top's place, top becomes its child on the other side.
    Slot raised = slotAt(member);
    SlotIndex& across = left ? raised.right : raised.left;
    link = across;
    across = top;
    writeSlot(top, slot);
    writeSlot(member, raised);
    return member;
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

  // Rebuilds the table into a new generation of `size` slots from the intact members, reporting
  // and dropping every damaged slot and index entry; the old tree links and index are not
  // trusted. The members go into the new slots in key order, and the tree is built over them in
  // one pass, each slot written once. Readers keep the old generation until they see the new one
  // published. When watchKey is given, *droppedWatchKey tells whether a dropped slot's key bytes
  // named it.
  void rebuild(std::size_t size, const K* watchKey = nullptr, bool* droppedWatchKey = nullptr) {
    settle();
    const Layout old = layout_;
    for (std::size_t at = 0; at < old.header->entries; ++at) {
      const IndexEntry entry = entryAt(old, at);
      if (entry.check != checkOf(entry.slot, entry.tag, at)) {
        report(describeIn(old, Damage{Fault::indexEntry, static_cast<SlotIndex>(at)}));
      }
    }
    std::vector<V> members = intactMembers(old, watchKey, droppedWatchKey);
    layout_ = prepare(size);
    rootIs(buildTree(members));
    countersAre(members.size(), members.size());
    for (std::size_t at = 0; at < members.size(); ++at) {
      const K& key = KeyOf()(members[at]);
      const std::size_t entry = probeOnce(key).freeEntry;
      storeEntry(layout_, entry, entryFor(static_cast<SlotIndex>(at), hashTagOf(key), entry));
    }
    publish();
  }

  // The members of the old generation's intact slots in key order, one per key; damaged slots
  // are reported.
  std::vector<V> intactMembers(const Layout& old, const K* watchKey, bool* droppedWatchKey) const {
    const std::size_t oldFilled = internal::loadAcquire(&old.header->filled);
    std::vector<V> members;
    members.reserve(internal::loadAcquire(&old.header->used));
    for (std::size_t index = 0; index < oldFilled; ++index) {
      Slot slot;
      const bool whole = readWhole(old, static_cast<SlotIndex>(index), &slot);
      if (!whole || !intact(slot)) {
        const Fault fault = whole ? Fault::checksum : Fault::halfWritten;
        report(describeIn(old, Damage{fault, static_cast<SlotIndex>(index)}));
        if (watchKey && KeyOf()(slot.value) == *watchKey) *droppedWatchKey = true;
        continue;
      }
      if (slot.state == SlotState::used) members.push_back(slot.value);
    }
    const auto byKey = [](const V& a, const V& b) { return KeyOf()(a) < KeyOf()(b); };
    std::stable_sort(members.begin(), members.end(), byKey);
    // A second copy of a key can only be stray bytes: the first one in slot order stays.
    const auto sameKey = [](const V& a, const V& b) { return KeyOf()(a) == KeyOf()(b); };
    members.erase(std::unique(members.begin(), members.end(), sameKey), members.end());
    return members;
  }

  // Writes sorted members into slots 0..n-1 as a treap (a Cartesian tree over their priorities,
  // built with a stack of the right spine); returns its root.
  SlotIndex buildTree(const std::vector<V>& members) {
    const std::size_t count = members.size();
    std::vector<SlotIndex> left(count, kNoSlot);
    std::vector<SlotIndex> right(count, kNoSlot);
    std::vector<std::uint32_t> priority(count);
    std::vector<SlotIndex> spine;
    for (std::size_t at = 0; at < count; ++at) {
      priority[at] = priorityOf(KeyOf()(members[at]));
      SlotIndex below = kNoSlot;
      while (!spine.empty() && priority[spine.back()] < priority[at]) {
        below = spine.back();
        spine.pop_back();
      }
      left[at] = below;
      if (!spine.empty()) right[spine.back()] = static_cast<SlotIndex>(at);
      spine.push_back(static_cast<SlotIndex>(at));
    }
    for (std::size_t at = 0; at < count; ++at) {
      Slot slot = blank(SlotState::used);
      std::memcpy(static_cast<void*>(&slot.value), &members[at], sizeof(V));
      slot.left = left[at];
      slot.right = right[at];
      writeSlot(static_cast<SlotIndex>(at), slot);
    }
    return spine.empty() ? kNoSlot : spine.front();
  }

  std::shared_ptr<internal::TableMemory> memory_;
  AttachMode mode_;
  // The generation this attachment reads, and where its parts are.
  mutable Layout layout_;
  mutable std::uint64_t layoutGeneration_ = 0;
  CorruptionHandler corruptionHandler_;
  mutable std::size_t corruptions_ = 0;
  mutable std::string lastCorruption_;
  // The last report was made by the table's own check and not yet handed back by a caller.
  mutable bool unacknowledged_ = false;
  // Test seam (set through testing::MirraMapBackdoor only): runs inside every slot write, after
  // the slot is marked busy and before its contents change.
  std::function<void()> midWriteHook_;
};

}  // namespace Mirra
