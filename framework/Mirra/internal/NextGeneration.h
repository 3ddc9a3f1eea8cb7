#pragma once
// Mirra::internal::NextGeneration<K, V, KeyOf, Hash>: the generation that is to replace a table's
// current one, filled by the writer a bounded step per write while readers go on reading the
// current one.
//
// Copying a whole table in one write would make that write as slow as the table is large. So the
// writer prepares the new memory (which costs the same at any size, see TableMemory.h) and each
// later write takes one step: it copies the next few slots, slot numbers kept, so that tree links
// and the free list mean the same in both generations; enters each copied member into the new
// index; and verifies a few more entries of the current index, which is not copied. Meanwhile every
// write to a slot already copied is made in both generations, and so is the index entry of a
// member put into or taken out of such a slot. Once every slot handed out and every entry is done,
// finish() gives the new generation the writer's header words, ready to publish.
//
// Invariants:
//  1. Slots [0, copied()) of the next generation hold what the current one holds, and its index
//     holds exactly the members of those slots (kept so by the mirror calls below).
//  2. A step copies at most kSlotsPerStep slots and verifies at most kEntriesPerStep entries.
//     A slot that is not whole and intact, a key met twice, or an entry whose check fails throws
//     WriterMetDamage: the table then rebuilds (reporting the damage) and gives this one up.
//  3. Nobody reads the next generation before it is published, so its own consistency is the
//     writer's alone: a mirror call that finds it inconsistent gives it up (the table starts a
//     new one later) rather than fail the write that the current generation already holds.
//  4. A stray write that hits a part of the current generation after the step that verified it
//     does not reach the next one, which keeps the verified copy; the writer does not report it
//     (a reader that meets it before the publication does).

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "framework/Mirra/internal/HashIndex.h"
#include "framework/Mirra/internal/SharedWord.h"
#include "framework/Mirra/internal/SlotArray.h"
#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/internal/TableLayout.h"
#include "framework/Mirra/internal/WriterWait.h"

namespace Mirra {
namespace internal {

template <class K, class V, class KeyOf, class Hash>
class NextGeneration {
  using Slots = SlotArray<V>;
  using Slot = typename Slots::Slot;
  using SlotState = typename Slots::SlotState;
  using Index = HashIndex<K, V, KeyOf, Hash>;

 public:
  static constexpr std::size_t kSlotsPerStep = 4;
  static constexpr std::size_t kEntriesPerStep = 16;

  bool active() const { return next_.header != nullptr; }
  std::size_t copied() const { return copied_; }
  // Entries of the current index verified so far.
  std::size_t checked() const { return checked_; }

  // Starts on `next`, a prepared generation with no members.
  void begin(const TableLayout& next) {
    next_ = next;
    copied_ = 0;
    checked_ = 0;
    tombstones_ = 0;
  }
  void giveUp() { next_ = TableLayout{}; }

  // One step over the current generation `current`, of which `filled` slots are handed out; true
  // when the next one holds all of it.
  // REQUIRES: active().
  bool step(const TableLayout& current, std::size_t filled) {
    const Slots from(current.slots, WriterWait::none());
    const std::size_t count = std::min(kSlotsPerStep, filled - copied_);
    Slot batch[kSlotsPerStep];
    // The keys' home entries are spread over the whole index: all are asked for before the
    // first is used, so that their cache misses overlap.
    for (std::size_t step = 0; step < count; ++step) {
      if (!from.readWhole(static_cast<SlotIndex>(copied_ + step), &batch[step]) ||
          !Slots::intact(batch[step])) {
        throw WriterMetDamage();
      }
      if (batch[step].state == SlotState::used) prefetchHome(KeyOf()(batch[step].value));
    }
    for (std::size_t step = 0; step < count; ++step) {
      const auto at = static_cast<SlotIndex>(copied_);
      touchForWriting(next_.slots + static_cast<std::size_t>(at) * Slots::kSlotWords);
      write(at, batch[step]);
      ++copied_;
      storeHeaderWord(*next_.header, HeaderWord::filled, copied_);
      if (batch[step].state == SlotState::used && !enter(at, KeyOf()(batch[step].value))) {
        throw WriterMetDamage();  // the key is in a slot copied before
      }
    }
    const std::size_t entries = current.entryCount;
    for (std::size_t step = 0; step < kEntriesPerStep && checked_ < entries; ++step, ++checked_) {
      if (!Index::entryIntact(Index::entryAt(current, checked_), checked_)) throw WriterMetDamage();
    }
    prefetchNextStep(current, filled);
    return copied_ == filled && checked_ == entries;
  }

  // The writer wrote `image` into slot `at` of the current generation.
  void slotWritten(SlotIndex at, const Slot& image) {
    if (active() && at < copied_) write(at, image);
  }
  // The writer put key's member into slot `at`, or took it out, in the current generation.
  void memberEntered(SlotIndex at, const K& key) {
    if (active() && at < copied_ && !enter(at, key)) giveUp();
  }
  void memberRemoved(SlotIndex at, const K& key) {
    if (!active() || at >= copied_) return;
    const typename Index::Location found = locate(key);
    if (found.damage.found() || found.slot != at) {
      giveUp();
      return;
    }
    Index::storeEntry(next_, found.entry, Index::entryFor(Index::kErasedEntry, 0, found.entry));
    ++tombstones_;
  }

  // Gives the next generation the header words of `words` (the writer's own copy of the current
  // generation's), but for its own count of erased index entries; returns it, to be published.
  // REQUIRES: step() returned true, and no write is under way.
  TableLayout finish(const TableHeader& words) {
    TableHeader& to = *next_.header;
    for (std::size_t word = 0; word < kHeaderWords; ++word) {
      storeRelaxed(&to.words[word], loadRelaxed(&words.words[word]));
    }
    storeHeaderWord(to, HeaderWord::tombstones, tombstones_);
    storeHeaderWord(to, HeaderWord::published, 0);
    const TableLayout finished = next_;
    giveUp();
    return finished;
  }

 private:
  // Inlined at once, so that the compiler does not take the call for one without effect.
  [[gnu::always_inline]] void prefetchHome(const K& key) const {
    const std::size_t mask = next_.entryCount - 1;
    __builtin_prefetch(next_.index + (Hash()(key) & mask));
  }
  // The slots the next step copies, from and to, and the entries it verifies: by then they are
  // in cache, whatever other work the writes in between do.
  [[gnu::always_inline]] void prefetchNextStep(const TableLayout& current,
                                               std::size_t filled) const {
    const std::size_t end = std::min(copied_ + kSlotsPerStep, filled);
    for (std::size_t at = copied_; at < end; ++at) {
      __builtin_prefetch(current.slots + at * Slots::kSlotWords);
      __builtin_prefetch(next_.slots + at * Slots::kSlotWords, 1);
    }
    if (checked_ < current.entryCount) __builtin_prefetch(current.index + checked_);
  }
  void write(SlotIndex at, const Slot& image) {
    static const std::function<void()> kNoHook;
    Slots(next_.slots, WriterWait::none()).write(at, image, kNoHook);
  }
  // Where key is in the next index, or would go. Only this writer has seen that memory, so
  // slots are checked where they lie.
  typename Index::Location locate(const K& key) const {
    typename Index::Location found;
    Slot image;
    Index::locate(next_, *next_.header, Slots(next_.slots, WriterWait::none()), key,
                  Slots::Concurrency::none, &image, &found);
    return found;
  }
  // Enters key's member in slot `at` into the next index; false when the key is there already or
  // the next index is inconsistent.
  bool enter(SlotIndex at, const K& key) {
    touchForWriting(next_.index + (Hash()(key) & (next_.entryCount - 1)));
    const typename Index::Location found = locate(key);
    if (found.damage.found() || found.slot != kNoSlot || found.freeEntry == Index::kNoEntry) {
      return false;
    }
    const std::size_t entry = found.freeEntry;
    if (Index::entryAt(next_, entry).slot == Index::kErasedEntry) --tombstones_;
    Index::storeEntry(next_, entry, Index::entryFor(at, Index::hashTagOf(key), entry));
    return true;
  }

  TableLayout next_;
  std::size_t copied_ = 0;
  std::size_t checked_ = 0;
  std::size_t tombstones_ = 0;
};

}  // namespace internal
}  // namespace Mirra
