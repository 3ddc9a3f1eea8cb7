#pragma once
// Mirra::internal::HashIndex<K, V, KeyOf, Hash>: the hash index of one generation of a table,
// which maps a key to the slot that holds it in constant time (open addressing, linear probing).
//
// An entry is one 64-bit word: the slot it names (or empty, or erased), a tag of bits of the key's
// hash that do not pick the home entry, and a check over the slot, the tag and the entry's own
// position. The index has twice as many entries as the array has slots.
//
// Invariants:
//  1. An entry whose check fails is damage; so is an entry that names a slot outside those handed
//     out, or a slot that is not whole, not intact or not a member. probe() verifies every entry it
//     passes, including the empty one that ends it, and every slot whose tag matches: damage on
//     the key's way is reported, never read as "absent". A slot of another key is not read.
//  2. Entries are stored with release after the slot they name and loaded with acquire, so an
//     entry that names a slot is seen after the slot's contents.
//  3. A probe that finds no key ends at the first empty entry; freeEntry is the first empty or
//     erased entry on its way, where the key would go.
//  4. Zeroed memory is an index of empty entries, so a new generation's index needs no writes.
//     (A word zeroed whole by a stray write therefore reads as empty too; a single damaged byte
//     still fails the check.)

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "framework/Mirra/internal/CheckedWord.h"
#include "framework/Mirra/internal/SharedWord.h"
#include "framework/Mirra/internal/SlotArray.h"
#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/internal/TableLayout.h"

namespace Mirra {
namespace internal {

template <class K, class V, class KeyOf, class Hash>
class HashIndex {
  using Slots = SlotArray<V>;
  using Slot = typename Slots::Slot;
  using Concurrency = typename Slots::Concurrency;

 public:
  // Index entries that name no slot.
  static constexpr SlotIndex kEmptyEntry = 0xffffffffu;
  static constexpr SlotIndex kErasedEntry = 0xfffffffeu;
  static constexpr std::size_t kNoEntry = static_cast<std::size_t>(-1);

  struct Entry {
    SlotIndex slot;       // kEmptyEntry, kErasedEntry or the member's slot
    std::uint16_t tag;    // bits of the key's hash: probes pass other keys without reading them
    std::uint16_t check;  // over slot, tag and the entry's own position
  };
  static_assert(sizeof(Entry) == 8, "an index entry is one shared word");

  // Where a key is (its index entry, slot and checked value), which index entry it could take,
  // or what stopped the search.
  struct Location {
    std::size_t entry = 0;
    SlotIndex slot = kNoSlot;
    const V* member = nullptr;  // where it lies, or in the image the caller gave
    std::size_t freeEntry = kNoEntry;
    Damage damage;
  };
  // A location with a copy of the member's value.
  struct Probe {
    std::size_t entry = 0;
    SlotIndex slot = kNoSlot;
    V value{};
    std::size_t freeEntry = kNoEntry;
    Damage damage;
  };

  // An entry is stored exclusive-or'ed with the empty entry of its position, so that the all-zero
  // word of fresh memory reads as an empty entry whose check holds; a damaged byte still fails
  // the check, since the exclusive-or changes no difference between two words.
  static Entry entryAt(const TableLayout& layout, std::size_t at) {
    const std::uint64_t word = loadAcquire(layout.index + at) ^ emptyWordAt(at);
    Entry entry;
    std::memcpy(&entry, &word, sizeof(entry));
    return entry;
  }
  static void storeEntry(const TableLayout& layout, std::size_t at, Entry entry) {
    std::uint64_t word;
    std::memcpy(&word, &entry, sizeof(word));
    storeRelease(layout.index + at, word ^ emptyWordAt(at));
  }

  // The check of a checked word (CheckedWord.h) over the slot and the tag: any single damaged
  // byte changes it, and an entry copied to another place does not pass.
  static std::uint16_t checkOf(SlotIndex slot, std::uint16_t tag, std::size_t position) {
    return checkOf48(slot | std::uint64_t{tag} << 32, position);
  }
  static Entry entryFor(SlotIndex slot, std::uint16_t tag, std::size_t position) {
    return Entry{slot, tag, checkOf(slot, tag, position)};
  }
  static bool entryIntact(const Entry& entry, std::size_t position) {
    return entry.check == checkOf(entry.slot, entry.tag, position);
  }
  static std::uint64_t emptyWordAt(std::size_t position) {
    const Entry empty = entryFor(kEmptyEntry, 0, position);
    std::uint64_t word;
    std::memcpy(&word, &empty, sizeof(word));
    return word;
  }

  // The bits that do not pick the home entry.
  static std::uint16_t tagOf(std::size_t hash) {
    return static_cast<std::uint16_t>(static_cast<std::uint64_t>(hash) >> 48);
  }
  static std::uint16_t hashTagOf(const K& key) { return tagOf(Hash()(key)); }

  // Linear probing from key's home entry in `layout`, reading slots through `slots` as
  // `concurrency` allows (into *image where a slot must be copied before it is checked), into
  // *found; one pass, with no allowance for a writer at work (the caller retries where one may be).
  // The count of slots handed out is read from `words` (the header, or the writer's own copy).
  static void locate(const TableLayout& layout, const TableHeader& words, const Slots& slots,
                     const K& key, Concurrency concurrency, Slot* image, Location* found) {
    Location& location = *found;
    location = Location{};
    const std::size_t hash = Hash()(key);
    const std::uint16_t tag = tagOf(hash);
    const std::size_t mask = layout.entryCount - 1;
    std::size_t at = hash & mask;
    for (std::size_t probes = 0; probes <= mask; ++probes, at = (at + 1) & mask) {
      const Entry entry = entryAt(layout, at);
      if (!entryIntact(entry, at)) {
        location.damage = Damage{Fault::indexEntry, static_cast<SlotIndex>(at)};
        return;
      }
      if (entry.slot == kEmptyEntry) {
        if (location.freeEntry == kNoEntry) location.freeEntry = at;
        return;
      }
      if (entry.slot == kErasedEntry) {
        if (location.freeEntry == kNoEntry) location.freeEntry = at;
        continue;
      }
      if (entry.tag != tag) continue;
      std::uint64_t filled = 0;
      if (!loadHeaderWord(words, HeaderWord::filled, &filled)) {
        location.damage = Damage{Fault::headerWord, static_cast<SlotIndex>(HeaderWord::filled)};
        return;
      }
      if (entry.slot >= filled || entry.slot >= layout.slotCount) {
        location.damage = Damage{Fault::linkOutside, entry.slot};
        return;
      }
      Fault fault = Fault::none;
      const V* member = slots.member(entry.slot, concurrency, image, &fault);
      if (!member) {
        location.damage = Damage{fault, entry.slot};
        return;
      }
      if (KeyOf()(*member) == key) {
        location.entry = at;
        location.slot = entry.slot;
        location.member = member;
        return;
      }
    }
  }
};

}  // namespace internal
}  // namespace Mirra
