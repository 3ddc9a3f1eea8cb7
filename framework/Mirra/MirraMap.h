#pragma once
// Mirra::MirraMap<K, V, KeyOf>: a single-writer table of fixed-size values, ordered by key, that
// lives either in process memory or in named shared memory that other processes read.
//
// MirraMap() makes an in-process table; attachShared(name, mode, options) attaches to the shared
// table `name` as its single writer (creating it, or continuing what the last writer left) or as a
// reader; unlinkShared(name) removes a shared table's segments. SharedTable.h says who may write
// and who may read a shared table. Both kinds keep the same layout: one block of memory (see
// internal/TableHeader.h) holding a header, a dense array of slots and a hash index, whose entries
// refer to each other by 32-bit slot index only, never by address.
//
// Members sit in the slots (internal/SlotArray.h), each a node of a balanced search tree
// (internal/OrderedTree.h: a treap whose left/right links are slot indices) that orders the members
// by K's `<`, and each carrying a checksum over all its other bytes (state, tree links, key,
// value). Beside it, a compact hash index (internal/HashIndex.h: open addressing, linear probing,
// constant-time lookup) maps a key's hash tag to its slot; every index entry carries its own check
// over the slot number, the tag and its position. Every word of the header carries its own check
// too, and its fixed part one over all of it. This class holds the public operations, the
// generations of memory (growth, rebuilds, repair) and the reports.
//
// Growth is spread over writes. When half the slots are handed out and none is free, the writer
// prepares a generation of twice the slots (or, when erased index entries have piled up to a
// quarter of the slots, one of the same size with a clean index) and fills it a few slots per
// later write (internal/NextGeneration.h), keeping slot numbers; readers go on reading the current
// generation until the new one, complete, is published, which at that pace happens well before
// the current one is full. Erased slots are reused through a free list. So no single write does
// work in proportion to the table's size; only the repair rebuild (damage found) and the check a
// writer makes of a shared table it attaches to read the whole table at once. New members go into
// the tree with one verified descent whose path is reused for the relink
// (internal/TreeWriter.h); each write rewrites only the slots whose links change. A new generation
// that cannot be made (shared memory exhausted) is tried again some writes later; the table only
// fails a write when it is full and still cannot grow.
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
//     tree slot they pass and the header words they rely on (the root, the count of slots handed
//     out), members() and the other counters the word they return. A generation's fixed part and
//     every header word are checked, and its sizes against the memory mapped, when an attachment
//     maps it; from then on the attachment uses its own copy of the sizes, so no damaged byte can
//     lead a read outside the mapping.
//     A read that finds damage reports it (see corruptionDetected) and throws
//     CorruptionDetectedException; it changes nothing, so a walk that ended there can be started
//     again (it meets the same damage until the writer has dropped it). The writer reads its own
//     copy of the header words (internal/WriterHeader.h) and puts back, each time it opens a
//     write, any that a stray write changed, so that header damage never makes the writer's own
//     reads fail. The writer's insert or erase that meets damage instead
//     reports every damaged slot and index entry, rebuilds the table without them, and then does
//     its work: it never throws for corruption. Growth verifies every slot it copies and every
//     index entry it leaves behind, and damage met there is repaired the same way; nothing damaged
//     is ever copied. A writer that attaches to a shared table checks it whole and rebuilds it when
//     it finds damage, from the slots that check out; when the memory is not the size its header
//     gives it reads the header's slots that lie within the memory (reporting those past its end
//     as lost), when even the header's sizes cannot be trusted it reads the slots by the size of
//     the memory, and when nothing can be read it starts the table afresh, reporting that its
//     members are lost. A growth that a writer left unfinished (it died) is started afresh by the
//     next one.
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
//     - index entries and header words are single 64-bit words, stored with release after the
//       slot they name, and loaded with acquire: an entry that names a slot is seen after the
//       slot's contents.
//     - the header's `changes` word is odd during each write and `structure` is odd while tree
//       links change, with the same fences as a slot; a reader that met damage takes it as real
//       only when `changes` did not move around its read, and a descent counts only when
//       `structure` did not move. So a reader never reports the writer's work in progress.
//     - growth and rebuilds fill a new generation of memory and publish its number with release;
//       every read starts by loading that number with acquire and moves to the new memory.
//     Every wait is bounded, per read (internal/WriterWait.h): a word held odd while no writer is
//     alive is taken at once as left by a writer that died ("left half-written"); while the writer
//     process is alive the read waits at most kWriterWaitLimit (SharedTable.h) in all and then
//     reports that the writer is stalled (or stopped), never that the slot was left half-written.
//     Whether an attachment must allow for a writer at work is decided once, when it is made: the
//     writer's own attachment and those that share its memory in its process (reader()) never
//     meet a write in progress, so they check each slot where it lies, copy out only the value
//     they return, and take a word found odd as left by a write that never finished.
//  8. Shared tables report attach, ready, detach and corruption to the framework's debug stream and
//     to the system log, naming the table; in-process tables to the debug stream only. Each
//     attachment writes at most internal::ReportLimiter::kReportsPerSecond reports a second and
//     counts the rest, reporting the count with the next report it writes.

#include <algorithm>
#include <chrono>
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
#include "framework/Mirra/SharedTable.h"
#include "framework/Mirra/internal/DamageText.h"
#include "framework/Mirra/internal/GenerationCheck.h"
#include "framework/Mirra/internal/HashIndex.h"
#include "framework/Mirra/internal/HeapTableMemory.h"
#include "framework/Mirra/internal/NextGeneration.h"
#include "framework/Mirra/internal/OrderedTree.h"
#include "framework/Mirra/internal/ReportLimiter.h"
#include "framework/Mirra/internal/SharedTableMemory.h"
#include "framework/Mirra/internal/SharedWord.h"
#include "framework/Mirra/internal/SlotArray.h"
#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/internal/TableLayout.h"
#include "framework/Mirra/internal/TreeWriter.h"
#include "framework/Mirra/internal/WriterHeader.h"
#include "framework/Mirra/internal/WriterWait.h"

namespace Mirra {

namespace testing {
class MirraMapBackdoor;
}  // namespace testing

template <class K, class V, class KeyOf, class Hash = std::hash<K>>
class MirraMap {
  static_assert(std::is_trivially_copyable_v<K>, "shared keys are copied as plain bytes");
  static_assert(std::is_trivially_copyable_v<V>, "shared values are copied as plain bytes");

  using SlotIndex = internal::SlotIndex;
  using KeyOfType = KeyOf;
  static constexpr SlotIndex kNoSlot = internal::kNoSlot;

  using Slots = internal::SlotArray<V>;
  using Slot = typename Slots::Slot;
  using SlotState = typename Slots::SlotState;
  static constexpr std::size_t kSlotWords = Slots::kSlotWords;
  using Index = internal::HashIndex<K, V, KeyOf, Hash>;
  using IndexEntry = typename Index::Entry;
  using Location = typename Index::Location;
  using Probe = typename Index::Probe;
  using Concurrency = typename Slots::Concurrency;
  using Tree = internal::OrderedTree<K, V, KeyOf, Hash>;
  using Bound = typename Tree::Bound;
  using Position = typename Tree::Position;
  using Layout = internal::TableLayout;
  using Fault = internal::Fault;
  using Damage = internal::Damage;
  using WriterMetDamage = internal::WriterMetDamage;
  using WriterWait = internal::WriterWait;
  using HeaderWord = internal::HeaderWord;

 public:
  using CorruptionHandler = std::function<void(const std::string&)>;

  // A new, empty table in process memory, attached for writing.
  MirraMap()
      : memory_(std::make_shared<internal::HeapTableMemory>()),
        mode_(AttachMode::singleWriter),
        concurrency_(Concurrency::none) {
    startFresh("attach");
  }

  // Attaches to the shared table `name` (letters, digits, '.', '_', '-'; not ending like one of a
  // table's own segments, ".lock" or ".g" and digits). As singleWriter it creates the table when
  // there is none and otherwise continues it, repairing what it finds damaged; as reader the table
  // must exist. Throws Kel::RangeException with the reason when the table cannot be attached (a
  // second writer: "MirraMap::attach() table <name> already has a writer"; a table another user
  // owns), and a reader CorruptionDetectedException, after reporting, when it finds the table
  // damaged.
  static MirraMap attachShared(const std::string& name, AttachMode mode,
                               const AttachOptions& options = AttachOptions()) {
    auto memory = std::make_shared<internal::SharedTableMemory>(name, mode, shape(), options);
    MirraMap map(memory, mode);
    if (mode == AttachMode::singleWriter) map.attachExisting();
    std::ostringstream message;
    message << "MirraMap::attach() " << name << " as "
            << (mode == AttachMode::singleWriter ? "writer" : "reader")
            << " members:" << map.members() << " slots:" << map.layout_.slotCount;
    map.debugReport(false, message.str());
    return map;
  }
  // Removes the segments of the shared table `name`, every generation of it included, whatever a
  // writer that died left; attachments keep reading what they have mapped. The report lists what
  // was removed and what could not be.
  static UnlinkReport unlinkShared(const std::string& name) {
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
    Slot image;
    const V* member = find(key, &image);
    return member ? *member : V();
  }
  bool contains(const K& key) const {
    Slot image;
    return find(key, &image) != nullptr;
  }
  std::size_t members() const {
    refresh();
    const std::uint64_t used = wordValue(HeaderWord::used);
    // The word passed its check; a count beyond the slots is a damaged header all the same.
    if (used > layout_.slotCount) {
      reportAndThrow(Damage{Fault::headerWord, static_cast<SlotIndex>(HeaderWord::used)});
    }
    return static_cast<std::size_t>(used);
  }
  // Grows with every write that changed the table; readers poll it to learn that something changed.
  std::uint64_t changeCount() const {
    refresh();
    return (wordValue(HeaderWord::changes) + 1) / 2;
  }

  // Inserts value under its key or replaces the value there; returns false when the same value
  // was already stored. Throws Kel::RangeException only when the table is full and no larger
  // generation can be made.
  // REQUIRES: mode() == singleWriter.
  bool insert(const V& value) {
    requireWriter("insert");
    const WriteScope scope(this);
    prefetchHome(KeyOf()(value));
    try {
      advanceGeneration();
      return insertIntact(value);
    } catch (const WriterMetDamage&) {
      rebuildCurrent();
      return insertIntact(value);
    }
  }

  // Returns false when key was absent. A key whose slot was damaged (its key bytes still naming
  // key) counts as present: its slot is dropped and true returned.
  // REQUIRES: mode() == singleWriter.
  bool erase(const K& key) {
    requireWriter("erase");
    const WriteScope scope(this);
    prefetchHome(key);
    try {
      advanceGeneration();
      return eraseIntact(key);
    } catch (const WriterMetDamage&) {
      bool droppedKey = false;
      rebuildCurrent(&key, &droppedKey);
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

  // Reports corruption: writes "MirraMap::corruptionDetected() " + message to the debug stream
  // (for a shared table with "table <name>: " before the message), records it in this attachment
  // and calls the corruption handler. The table's own checks report this way before they throw.
  void corruptionDetected(const std::string& message) const {
    report(message);
    unacknowledged_ = false;
  }
  // Hands back an exception a caller caught (as callers that treat a corrupt read as "absent" do,
  // through Mirra::tolerantRead): the report this attachment made as it raised it is acknowledged,
  // so that one detection is reported once; an exception this attachment did not raise, or one
  // already handed back, is reported as a new detection.
  void corruptionDetected(const CorruptionDetectedException& caught) const {
    if (unacknowledged_ && caught.reportedBy(this)) {
      unacknowledged_ = false;
      return;
    }
    corruptionDetected(std::string(caught.what()));
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
    header_.valueIs(HeaderWord::ready, ready ? 1 : 0);
    if (ready && notifying) advertiseCollectionReady(true);
  }
  bool collectionReady() const {
    refresh();
    return wordValue(HeaderWord::ready) != 0;
  }
  // REQUIRES: mode() == singleWriter.
  void advertiseCollectionReady(bool notifying) {
    requireWriter("advertiseCollectionReady");
    if (!notifying) {
      debugReport(false,
                  "MirraMap::advertiseCollectionReady() notifications unexpectedly disabled");
      return;
    }
    if (header_.value(HeaderWord::advertised) != 0) {
      debugReport(false, "MirraMap::advertiseCollectionReady() collection already advertised");
      return;
    }
    // Attachments read the table's memory itself, so they see it the moment it is written.
    debugReport(false, "MirraMap::advertiseCollectionReady() in synchronous mode");
    header_.valueIs(HeaderWord::advertised, 1);
  }
  // Lets go of the table: this attachment sees an empty table from now on and writes nothing;
  // other attachments keep the table as it is (a shared writer's lock is released).
  void detach() {
    const std::size_t heldBack = limiter_.takeHeldBack();
    if (heldBack > 0) writeReport(true, heldBackReport(heldBack));
    debugReport(false, "MirraMap::detach() ");
    next_.giveUp();
    layout_ = Layout{};  // its memory may go with the old attachment
    header_ = internal::WriterHeader{};
    memory_ = std::make_shared<internal::HeapTableMemory>();
    concurrency_ = Concurrency::none;
    layoutGeneration_ = 0;
    startFresh("attach");
    mode_ = AttachMode::reader;
  }

 private:
  friend class testing::MirraMapBackdoor;

  static constexpr std::size_t kInitialSlots = 16;  // a power of two; growth doubles it
  static constexpr std::size_t kNoEntry = Index::kNoEntry;
  // Writes to let pass before a new generation that could not be made is tried again.
  static constexpr int kGrowthRetryWrites = 64;

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
      : memory_(std::move(memory)),
        mode_(mode),
        concurrency_(memory_->writable() ? Concurrency::none : Concurrency::writerElsewhere) {
    if (mode_ == AttachMode::reader) refresh();
  }

  static internal::TableShape shape() {
    return internal::TableShape{sizeof(K), sizeof(V), sizeof(Slot)};
  }

  // --- memory and generations ---

  // Moves to the newest generation when the writer published one, after checking it
  // (invariant 4); reports and throws when it cannot be read.
  // Inlined at once: every read starts here, and nearly always goes on at once.
  [[gnu::always_inline]] void refresh() const {
    if (memory_->generation() == layoutGeneration_ && layout_.header) return;
    remap();
  }
  [[gnu::noinline]] void remap() const {
    layout_ = Layout{};
    internal::Mapping mapping;
    try {
      mapping = memory_->current(&layoutGeneration_);
    } catch (const internal::MemoryDamage& damage) {
      reportMessageAndThrow(damage.what());
    }
    Layout checked;
    const Damage damage = internal::checkGeneration(mapping, shape(), kSlotWords, &checked);
    if (damage.found()) reportAndThrow(damage);
    layout_ = checked;
  }

  // A new generation of `slots` slots, empty, not yet published; the change count and the ready
  // marks carried over from the current one. The memory arrives zeroed, which is an empty index
  // (internal/HashIndex.h), and slots past `filled` are never read, so only the header is written.
  Layout prepare(std::size_t slots, const char* operation) {
    unsigned char* base = memory_->prepare(Layout::bytesFor(slots, kSlotWords), operation);
    const Layout layout = Layout::of(base, slots, kSlotWords);
    header_.prepare(layout.header,
                    internal::FixedPart{internal::kTableMagic, internal::kTableFormat, sizeof(K),
                                        sizeof(V), sizeof(Slot), slots, slots * 2});
    return layout;
  }
  // The writer moves on to `layout`, taking its header words as its own.
  void layoutIs(const Layout& layout) {
    layout_ = layout;
    header_.adopt(layout.header);
  }
  void publish() {
    header_.valueIs(HeaderWord::published, 1);
    const std::string problem = memory_->publish();
    memory_->current(&layoutGeneration_);
    if (!problem.empty()) debugReport(true, problem);
  }

  void startFresh(const char* operation) {
    layoutIs(prepare(kInitialSlots, operation));
    publish();
  }

  // A writer continues what the last writer left, after checking all of it (invariant 4).
  void attachExisting() {
    for (const std::string& finding : memory_->takeAttachFindings()) report(finding);
    const internal::Mapping mapping = memory_->current(&layoutGeneration_);
    if (!mapping.base) {
      startFresh("attach");
      return;
    }
    Layout checked;
    const Damage damage = internal::checkGeneration(mapping, shape(), kSlotWords, &checked);
    if (!damage.found()) {
      layoutIs(checked);
      if (damagedAnywhere()) rebuildCurrent();
      return;
    }
    report(describe(damage));
    Layout readable;
    std::size_t slotsGiven = 0;
    if (!internal::readableLayout(mapping, shape(), kSlotWords, &readable, &slotsGiven)) {
      report(
          "the generation's size fits no table: the table starts afresh and its members are "
          "lost");
      startFresh("attach");
      return;
    }
    if (readable.slotCount < slotsGiven) {
      report("the generation's memory ends after slot " + std::to_string(readable.slotCount) +
             " of its " + std::to_string(slotsGiven) +
             ": the members of the slots past its end are lost");
    }
    rebuild(readable, false, "attach");
  }
  bool damagedAnywhere() const {
    if (internal::odd(header_.value(HeaderWord::changes)) ||
        internal::odd(header_.value(HeaderWord::structure))) {
      return true;
    }
    const std::size_t handedOut = filled();
    const Slots slots = writerSlots();
    std::size_t members = 0;
    std::size_t erased = 0;
    for (std::size_t at = 0; at < handedOut; ++at) {
      Slot slot;
      if (!slots.readWhole(static_cast<SlotIndex>(at), &slot) || !Slots::intact(slot)) {
        return true;
      }
      if (slot.state == SlotState::used) ++members;
      if (slot.state == SlotState::erased) ++erased;
    }
    std::size_t erasedEntries = 0;
    for (std::size_t at = 0; at < layout_.entryCount; ++at) {
      const IndexEntry entry = Index::entryAt(layout_, at);
      if (!Index::entryIntact(entry, at)) return true;
      if (entry.slot == Index::kErasedEntry) ++erasedEntries;
    }
    if (members != used() || erasedEntries != tombstones()) return true;
    // Every erased slot is on the free list, once.
    std::size_t listed = 0;
    for (SlotIndex at = freeSlot(); at != kNoSlot; ++listed) {
      if (at >= handedOut || listed == erased) return true;
      const Slot slot = slots.slotAt(at);
      if (slot.state != SlotState::erased) return true;
      at = slot.left;
    }
    return listed != erased;
  }

  // --- the parts of a generation ---

  // The writer's slots: nobody else writes them, so nothing is waited for.
  Slots writerSlots() const { return Slots(layout_.slots, WriterWait::none()); }
  Tree tree() const { return Tree(writerSlots(), midWriteHook_); }

  // Writer: replaces slot `at` (see internal/SlotArray.h), in the next generation too when it
  // holds a copy of the slot already.
  void writeSlot(SlotIndex at, const Slot& contents) {
    writerSlots().write(at, contents, midWriteHook_);
    next_.slotWritten(at, contents);
  }
  // Writer's own reads: nobody else writes, so a slot held odd was left by a dead writer.
  Slot slotAt(SlotIndex index) const { return writerSlots().slotAt(index); }

  // --- header words ---

  // A reader in another process must allow for the writer's work in progress.
  bool concurrent() const { return concurrency_ == Concurrency::writerElsewhere; }
  bool ownsHeader() const { return mode_ == AttachMode::singleWriter; }
  // The header this attachment reads its words from: the writer's own copy, or the shared one.
  const internal::TableHeader& words() const {
    return ownsHeader() ? header_.words() : *layout_.header;
  }
  // Reads `word` from words() into *value; false, with the damage, when it fails its check.
  bool readWord(HeaderWord word, std::uint64_t* value, Damage* damage) const {
    if (internal::loadHeaderWord(words(), word, value)) return true;
    *damage = Damage{Fault::headerWord, static_cast<SlotIndex>(word)};
    return false;
  }
  // The value of `word`; reports and throws when it fails its check.
  std::uint64_t wordValue(HeaderWord word) const {
    if (!layout_.header) return 0;
    std::uint64_t value = 0;
    Damage damage;
    if (!readWord(word, &value, &damage)) reportAndThrow(damage);
    return value;
  }

  // Opens a write, first putting back whatever a stray write changed in the shared header and the
  // memory around it since the last one (before this write stores anything there).
  void beginWrite() {
    if (internal::odd(header_.value(HeaderWord::changes))) return;
    if (header_.strayed()) {
      report("the table header fails its check (its " + header_.mend() +
             "); its writer has put it back");
    }
    if (memory_->strayed()) report(memory_->mend());
    header_.open(HeaderWord::changes);
  }
  void beginRelink() { header_.open(HeaderWord::structure); }
  // Closes the write and the relink under way, if any.
  void settle() {
    header_.close(HeaderWord::structure);
    header_.close(HeaderWord::changes);
  }
  void countersAre(std::size_t filled, std::size_t used) {
    header_.valueIs(HeaderWord::filled, filled);
    header_.valueIs(HeaderWord::used, used);
  }
  std::size_t filled() const { return header_.value(HeaderWord::filled); }
  std::size_t used() const { return header_.value(HeaderWord::used); }
  SlotIndex root() const { return static_cast<SlotIndex>(header_.value(HeaderWord::root)); }
  void rootIs(SlotIndex root) {
    if (this->root() != root) header_.valueIs(HeaderWord::root, root);
  }

  // --- reads ---

  // A wait for the writer, for one read operation of this attachment.
  WriterWait writerWait() const { return WriterWait(*memory_, concurrent(), writerWaitLimit_); }
  Slots readerSlots(WriterWait& wait) const { return Slots(layout_.slots, wait); }

  // The checked value of key's member (where it lies, or in *image), or nullptr when key is not
  // a member; throws CorruptionDetectedException, after reporting, when the search meets damage.
  const V* find(const K& key, Slot* image) const {
    refresh();
    WriterWait wait = writerWait();
    Location found;
    locateFor(key, image, &found, wait);
    if (found.damage.found()) reportAndThrow(found.damage);
    return found.member;
  }

  // Linear probing from key's home entry; a reader in another process looks again while the
  // writer's work in progress could explain what it met (invariant 7).
  void locateFor(const K& key, Slot* image, Location* found, WriterWait& wait) const {
    if (!concurrent()) return locateOnce(key, image, found, wait);
    const std::uint64_t* changes = internal::headerWordAt(*layout_.header, HeaderWord::changes);
    const std::size_t position = internal::headerWordPosition(HeaderWord::changes);
    for (;;) {
      const std::uint64_t before = internal::loadAcquire(changes);
      locateOnce(key, image, found, wait);
      if (!found->damage.found()) return;
      internal::fenceAcquire();
      const bool moved = internal::loadRelaxed(changes) != before;
      std::uint64_t count = 0;
      if (!moved && !internal::checkedValue(before, position, &count)) {
        found->damage = Damage{Fault::headerWord, static_cast<SlotIndex>(HeaderWord::changes)};
        return;
      }
      if (!moved && !internal::odd(count)) return;
      if (!wait.again()) {
        if (!moved) found->damage = stalledOr(found->damage, wait, Fault::stalledWrite);
        return;
      }
    }
  }
  void locateOnce(const K& key, Slot* image, Location* found, WriterWait& wait) const {
    Index::locate(layout_, words(), readerSlots(wait), key, concurrency_, image, found);
  }
  // The writer's search: where key is, with a copy of its value, or where it would go.
  Probe probeFor(const K& key) const {
    Slot image;
    Location found;
    WriterWait& wait = WriterWait::none();
    locateOnce(key, &image, &found, wait);
    return probeOf(found);
  }
  static Probe probeOf(const Location& location) {
    Probe probe;
    probe.entry = location.entry;
    probe.slot = location.slot;
    if (location.member) probe.value = *location.member;
    probe.freeEntry = location.freeEntry;
    probe.damage = location.damage;
    return probe;
  }

  // A read that gave up waiting on a writer that is still alive reports the stall, never damage
  // that the unfinished write would explain: a slot it could not read whole, a relink it could not
  // see through, or (`otherwise`) whatever it met while a write stayed open.
  static Damage stalledOr(const Damage& damage, const WriterWait& wait, Fault otherwise) {
    if (!wait.writer().alive()) return damage;
    const Fault fault = damage.fault == Fault::halfWritten        ? Fault::stalledSlot
                        : damage.fault == Fault::unfinishedRelink ? Fault::stalledRelink
                                                                  : otherwise;
    return Damage{fault, damage.slot, wait.writer()};
  }

  // The tree member that is the first one (Bound::first), the first whose key is >= key, or the
  // first whose key is > key; none when there is none. A reader in another process counts a
  // descent only when no relink ran during it (invariant 7). Damage is left in *damage.
  Position descend(Bound bound, const K& key, Damage* damage, WriterWait& wait) const {
    const Tree order(readerSlots(wait), midWriteHook_);
    std::uint64_t root = 0;
    std::uint64_t handedOut = 0;
    if (!concurrent()) {
      if (!readWord(HeaderWord::root, &root, damage) ||
          !readWord(HeaderWord::filled, &handedOut, damage)) {
        return Position{};
      }
      return order.descendOnce(bound, key, static_cast<SlotIndex>(root),
                               std::min<std::size_t>(handedOut, layout_.slotCount), damage);
    }
    const std::uint64_t* structure = internal::headerWordAt(*layout_.header, HeaderWord::structure);
    const std::size_t position = internal::headerWordPosition(HeaderWord::structure);
    for (;;) {
      const std::uint64_t before = internal::loadAcquire(structure);
      std::uint64_t relinks = 0;
      if (!internal::checkedValue(before, position, &relinks)) {
        *damage = Damage{Fault::headerWord, static_cast<SlotIndex>(HeaderWord::structure)};
        return Position{};
      }
      if (!readWord(HeaderWord::root, &root, damage) ||
          !readWord(HeaderWord::filled, &handedOut, damage)) {
        return Position{};
      }
      Damage met;
      const Position found =
          order.descendOnce(bound, key, static_cast<SlotIndex>(root),
                            std::min<std::size_t>(handedOut, layout_.slotCount), &met);
      internal::fenceAcquire();
      const bool moved = internal::loadRelaxed(structure) != before;
      if (!moved && !internal::odd(relinks)) {
        *damage = stalledOr(met, wait, met.fault);
        return found;
      }
      if (!wait.again()) {
        const Damage unfinished{Fault::unfinishedRelink, static_cast<SlotIndex>(root)};
        *damage = stalledOr(moved && met.found() ? met : unfinished, wait, Fault::stalledRelink);
        return Position{};
      }
    }
  }

  Position positionAt(Bound bound, const K& key) const {
    refresh();
    WriterWait wait = writerWait();
    Damage damage;
    const Position at = descend(bound, key, &damage, wait);
    if (damage.found()) reportAndThrow(damage);
    return at;
  }

  // --- reports ---

  std::string describe(const Damage& damage) const { return describeIn(layout_, damage); }
  std::string describeIn(const Layout& layout, const Damage& damage) const {
    return internal::describeDamage(damage, layout, writerWaitLimit_);
  }

  // Reports go through the limiter (invariant 8).
  void debugReport(bool problem, const std::string& message) const {
    std::size_t heldBack = 0;
    if (!limiter_.admit(&heldBack)) return;
    if (heldBack > 0) writeReport(true, heldBackReport(heldBack));
    writeReport(problem, message);
  }
  void writeReport(bool problem, const std::string& message) const {
    Kel::debugMessage(message);
    if (memory_->shared()) internal::systemLog(problem, message);
  }
  std::string heldBackReport(std::size_t count) const {
    return "MirraMap::reportsSuppressed() " + tableNaming() + std::to_string(count) +
           " reports suppressed (at most " +
           std::to_string(internal::ReportLimiter::kReportsPerSecond) + " a second are written)";
  }
  // "table <name>: " for a shared table, so that a report says which table it is about.
  std::string tableNaming() const {
    return memory_->shared() ? "table " + memory_->name() + ": " : std::string();
  }

  void report(const std::string& message) const {
    debugReport(true, "MirraMap::corruptionDetected() " + tableNaming() + message);
    ++corruptions_;
    lastCorruption_ = message;
    if (corruptionHandler_) corruptionHandler_(message);
  }

  [[noreturn]] void reportAndThrow(const Damage& damage) const {
    reportMessageAndThrow(describe(damage));
  }
  [[noreturn]] void reportMessageAndThrow(const std::string& message) const {
    report(message);
    unacknowledged_ = true;
    throw CorruptionDetectedException(message, memory_->name(), this);
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

  // Moves the next generation on by one step, first starting one when the table is crowded (half
  // its slots handed out, none free) or its index littered (erased entries reach a quarter of the
  // slots); publishes it once complete. A generation starts with at most half of the slots handed
  // out and each step copies more slots than a write can add, so it is complete long before the
  // current generation is full. Each write also unmaps a piece of the memory of generations
  // replaced before (internal/TableMemory.h). A generation that cannot be made is reported and
  // tried again kGrowthRetryWrites writes later.
  void advanceGeneration() {
    memory_->releaseRetired();
    if (!next_.active()) {
      const std::size_t slots = layout_.slotCount;
      const bool crowded = filled() * 2 >= slots && freeSlot() == kNoSlot;
      const bool littered = tombstones() * 4 >= slots;
      if (!crowded && !littered) return;
      if (growthDeferred_ > 0) {
        --growthDeferred_;
        return;
      }
      try {
        next_.begin(prepare(filled() * 2 >= slots ? slots * 2 : slots, "grow"));
      } catch (const Kel::RangeException& failure) {
        debugReport(true, failure.what());
        growthDeferred_ = kGrowthRetryWrites;
        return;
      }
    }
    if (!next_.step(layout_, filled())) return;
    layoutIs(next_.finish(header_.words()));
    publish();
  }

  // The key's home index entry is most likely far from anything recently read; asking for it
  // first lets its cache miss overlap the generation step.
  // Inlined at once, so that the compiler does not take the call for one without effect.
  [[gnu::always_inline]] void prefetchHome(const K& key) const {
    __builtin_prefetch(layout_.index + (Hash()(key) & (layout_.entryCount - 1)));
  }

  SlotIndex freeSlot() const { return static_cast<SlotIndex>(header_.value(HeaderWord::freeSlot)); }
  void freeSlotIs(SlotIndex slot) { header_.valueIs(HeaderWord::freeSlot, slot); }
  void tombstonesAre(std::uint64_t count) { header_.valueIs(HeaderWord::tombstones, count); }
  std::uint64_t tombstones() const { return header_.value(HeaderWord::tombstones); }

  bool insertIntact(const V& value) {
    const K& key = KeyOf()(value);
    const Probe probe = probeFor(key);
    if (probe.damage.found()) throw WriterMetDamage();
    if (probe.slot != kNoSlot) {
      if (probe.value == value) return false;
      Slot slot = slotAt(probe.slot);
      std::memcpy(static_cast<void*>(&slot.value), &value, sizeof(V));
      beginWrite();
      writeSlot(probe.slot, slot);
      return true;
    }
    if (freeSlot() == kNoSlot && filled() == layout_.slotCount) {
      // Growth keeps ahead of this (see advanceGeneration); were it ever behind, the table grows
      // at once rather than write past its slots.
      rebuildCurrent();
      return insertIntact(value);
    }
    // An index without an empty or erased entry on the key's way is full, which growth prevents;
    // a rebuild gives it room.
    if (probe.freeEntry == kNoEntry) throw WriterMetDamage();
    place(value, probe.freeEntry);
    return true;
  }

  // Puts value into a free slot (or the next unused one), its node into the tree and then its
  // index entry, so that a reader who finds the entry finds the slot whole. The free slot and the
  // tree path are verified before anything changes, so damage there leaves the table as it was.
  void place(const V& value, std::size_t entry) {
    const K& key = KeyOf()(value);
    const Slots slots = writerSlots();
    const std::size_t handedOut = filled();
    const SlotIndex reused = freeSlot();
    SlotIndex nextFree = kNoSlot;
    if (reused != kNoSlot) {
      Slot free;
      if (reused >= handedOut || !slots.readWhole(reused, &free) || !Slots::intact(free) ||
          free.state != SlotState::erased) {
        throw WriterMetDamage();
      }
      nextFree = free.left;
    }
    const SlotIndex at = reused != kNoSlot ? reused : static_cast<SlotIndex>(handedOut);
    if (reused == kNoSlot) {
      internal::touchForWriting(layout_.slots + static_cast<std::size_t>(at) * kSlotWords);
    }
    Slot slot = Slots::blank(SlotState::used);
    std::memcpy(static_cast<void*>(&slot.value), &value, sizeof(V));
    const SlotIndex newRoot = treeWriter_.planInsert(slots, handedOut, root(), at, slot);
    const auto& changes = treeWriter_.changes();
    beginWrite();
    writeSlot(at, changes.front().image);  // linked from nowhere yet
    if (reused != kNoSlot) {
      freeSlotIs(nextFree);
    } else {
      countersAre(handedOut + 1, used());
    }
    beginRelink();
    for (auto change = changes.begin() + 1; change != changes.end(); ++change) {
      writeSlot(change->slot, change->image);
    }
    rootIs(newRoot);
    header_.close(HeaderWord::structure);
    if (Index::entryAt(layout_, entry).slot == Index::kErasedEntry) tombstonesAre(tombstones() - 1);
    Index::storeEntry(layout_, entry, Index::entryFor(at, Index::hashTagOf(key), entry));
    next_.memberEntered(at, key);
    countersAre(filled(), used() + 1);
  }

  // The index entry goes before the slot is cleared, so that a reader who still finds the entry
  // finds the member or, once it is cleared, an entry that has moved on. The cleared slot heads
  // the free list.
  bool eraseIntact(const K& key) {
    const Probe probe = probeFor(key);
    if (probe.damage.found()) throw WriterMetDamage();
    if (probe.slot == kNoSlot) return false;
    SlotIndex removed = kNoSlot;
    const SlotIndex newRoot = treeWriter_.planErase(writerSlots(), filled(), root(), key, &removed);
    if (removed != probe.slot) throw WriterMetDamage();  // the index and the tree disagree
    beginWrite();
    beginRelink();
    for (const auto& change : treeWriter_.changes()) writeSlot(change.slot, change.image);
    rootIs(newRoot);
    header_.close(HeaderWord::structure);
    Index::storeEntry(layout_, probe.entry, Index::entryFor(Index::kErasedEntry, 0, probe.entry));
    tombstonesAre(tombstones() + 1);
    next_.memberRemoved(probe.slot, key);
    Slot cleared = Slots::blank(SlotState::erased);
    cleared.left = freeSlot();
    writeSlot(probe.slot, cleared);
    freeSlotIs(probe.slot);
    countersAre(filled(), used() - 1);
    return true;
  }

  // Closes the write under way on the current generation and rebuilds from it.
  void rebuildCurrent(const K* watchKey = nullptr, bool* droppedWatchKey = nullptr) {
    settle();
    rebuild(layout_, true, "rebuild", watchKey, droppedWatchKey);
  }

  // Rebuilds the table into a new generation from the intact members of `old`, reporting and
  // dropping every damaged slot and index entry; the old tree links, index and free list are not
  // trusted, nor, unless headerTrusted, its header: then every slot is read and those never
  // written are passed over. The new generation keeps the slot count, doubled when the members
  // would fill more than half of it. The members go into the new slots in key order, and the tree
  // is built over them in one pass, each slot written once. Readers keep the old generation until
  // they see the new one published; a generation under way is given up. When watchKey is given,
  // *droppedWatchKey tells whether a dropped slot's key bytes named it.
  void rebuild(const Layout& old, bool headerTrusted, const char* operation,
               const K* watchKey = nullptr, bool* droppedWatchKey = nullptr) {
    next_.giveUp();
    for (std::size_t at = 0; at < old.entryCount; ++at) {
      if (!Index::entryIntact(Index::entryAt(old, at), at)) {
        report(describeIn(old, Damage{Fault::indexEntry, static_cast<SlotIndex>(at)}));
      }
    }
    const std::size_t scanned = headerTrusted ? filled() : old.slotCount;
    std::vector<V> members = intactMembers(old, scanned, !headerTrusted, watchKey, droppedWatchKey);
    // A power of two at least the old slot count (which a generation cut short may not be).
    std::size_t size = kInitialSlots;
    while (size < old.slotCount || (members.size() + 1) * 2 > size) size *= 2;
    layoutIs(prepare(size, operation));
    rootIs(tree().build(members));
    countersAre(members.size(), members.size());
    for (std::size_t at = 0; at < members.size(); ++at) {
      const K& key = KeyOf()(members[at]);
      const std::size_t entry = probeFor(key).freeEntry;
      Index::storeEntry(layout_, entry,
                        Index::entryFor(static_cast<SlotIndex>(at), Index::hashTagOf(key), entry));
    }
    publish();
  }

  // The members of the first `scanned` slots of the old generation that are intact, in key
  // order, one per key; damaged slots are reported, and with skipNeverWritten those never written
  // passed over.
  std::vector<V> intactMembers(const Layout& old, std::size_t scanned, bool skipNeverWritten,
                               const K* watchKey, bool* droppedWatchKey) const {
    std::vector<V> members;
    if (!skipNeverWritten) members.reserve(used());
    const Slots slots(old.slots, WriterWait::none());
    for (std::size_t index = 0; index < scanned; ++index) {
      const auto at = static_cast<SlotIndex>(index);
      if (skipNeverWritten && slots.neverWritten(at)) continue;
      Slot slot;
      const bool whole = slots.readWhole(at, &slot);
      if (!whole || !Slots::intact(slot)) {
        const Fault fault = whole ? Fault::checksum : Fault::halfWritten;
        report(describeIn(old, Damage{fault, at}));
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

  std::shared_ptr<internal::TableMemory> memory_;
  AttachMode mode_;
  // Decided once, when the attachment is made: whether a writer elsewhere may be at work.
  Concurrency concurrency_;
  // The generation this attachment reads, and where its parts are.
  mutable Layout layout_;
  mutable std::uint64_t layoutGeneration_ = 0;
  // Writer only: its own copy of the header words of layout_.
  internal::WriterHeader header_;
  CorruptionHandler corruptionHandler_;
  mutable std::size_t corruptions_ = 0;
  mutable std::string lastCorruption_;
  // The last report was made by the table's own check and not yet handed back by a caller.
  mutable bool unacknowledged_ = false;
  mutable internal::ReportLimiter limiter_;
  // How long a read waits for a live writer elsewhere (a test seam may shorten it).
  std::chrono::nanoseconds writerWaitLimit_ = kWriterWaitLimit;
  // Test seam (set through testing::MirraMapBackdoor only): runs inside every slot write, after
  // the slot is marked busy and before its contents change.
  std::function<void()> midWriteHook_;
  // Writer only: the generation being filled, and the buffers of tree changes.
  internal::NextGeneration<K, V, KeyOf, Hash> next_;
  internal::TreeWriter<K, V, KeyOf, Hash> treeWriter_;
  // Writer only: writes still to let pass before a new generation is tried again.
  int growthDeferred_ = 0;
};

}  // namespace Mirra
