#pragma once
// Mirra::internal::checkGeneration: whether a mapped block of memory can be read as a generation
// of a table of a given shape, before anything in it is relied on; readableLayout: what a writer
// can still read of one that is not.
//
// The fixed part must pass its check, name this format and shape, and give sizes that fill the
// block exactly; every header word must pass its check and hold a value that the sizes allow, and
// the generation must have been published. Only then is the layout built, from the sizes so
// checked.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/internal/TableLayout.h"
#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

// Whether `fixed`, stored with the check `storedCheck`, is the fixed part of a generation of a
// table of `shape`: it passes its check, names this format and shape, and gives a power-of-two slot
// count with twice as many index entries.
inline bool fixedPartSound(const FixedPart& fixed, std::uint64_t storedCheck,
                           const TableShape& shape) {
  return storedCheck == fixedCheckOf(fixed) && fixed.magic == kTableMagic &&
         fixed.format == kTableFormat && fixed.keySize == shape.keySize &&
         fixed.valueSize == shape.valueSize && fixed.slotSize == shape.slotSize &&
         fixed.slots > 0 && (fixed.slots & (fixed.slots - 1)) == 0 &&
         fixed.entries == fixed.slots * 2;
}

// Damage to the fixed part, to the size of the block, or to the first header word that fails;
// Fault::none when the block is a sound generation, its layout then in *layout.
inline Damage checkGeneration(const Mapping& mapping, const TableShape& shape,
                              std::size_t slotWords, TableLayout* layout) {
  const Damage fixedDamage{Fault::headerFixed, kNoSlot};
  if (mapping.base == nullptr || mapping.bytes < sizeof(TableHeader)) return fixedDamage;
  const auto* header = reinterpret_cast<const TableHeader*>(mapping.base);
  std::uint64_t storedCheck = 0;
  const FixedPart fixed = fixedPartOf(*header, &storedCheck);
  if (!fixedPartSound(fixed, storedCheck, shape)) return fixedDamage;
  if (fixed.slots != TableLayout::slotsIn(mapping.bytes, slotWords)) {
    return Damage{Fault::sizeMismatch, kNoSlot};
  }
  const std::size_t slots = fixed.slots;
  std::uint64_t value[kHeaderWords];
  for (std::size_t word = 0; word < kHeaderWords; ++word) {
    const auto which = static_cast<HeaderWord>(word);
    if (!loadHeaderWord(*header, which, &value[word])) {
      return Damage{Fault::headerWord, static_cast<SlotIndex>(word)};
    }
  }
  // Each word against the fixed sizes only: a running writer changes the words one at a time, so
  // two of them read here need not belong to the same moment (`used` may already count a member
  // whose slot `filled` read before did not yet).
  const auto at = [&value](HeaderWord word) { return value[static_cast<std::size_t>(word)]; };
  const auto slotOrNone = [&](HeaderWord word) { return at(word) == kNoSlot || at(word) < slots; };
  const HeaderWord outOfRange = !slotOrNone(HeaderWord::root)            ? HeaderWord::root
                                : at(HeaderWord::filled) > slots         ? HeaderWord::filled
                                : at(HeaderWord::used) > slots           ? HeaderWord::used
                                : at(HeaderWord::ready) > 1              ? HeaderWord::ready
                                : at(HeaderWord::advertised) > 1         ? HeaderWord::advertised
                                : !slotOrNone(HeaderWord::freeSlot)      ? HeaderWord::freeSlot
                                : at(HeaderWord::tombstones) > slots * 2 ? HeaderWord::tombstones
                                : at(HeaderWord::published) != 1         ? HeaderWord::published
                                                                         : HeaderWord::count;
  if (outOfRange != HeaderWord::count) {
    return Damage{Fault::headerWord, static_cast<SlotIndex>(outOfRange)};
  }
  *layout = TableLayout::of(mapping.base, slots, slotWords);
  return Damage{};
}

// Where a writer repairing a generation that checkGeneration() refused can still read slots, into
// *layout: when the fixed part checks out, the slots it gives (their number in *slotsGiven), as
// many of them as lie wholly within the memory, and the index entries that do; otherwise, when the
// memory is exactly as long as a generation of some power-of-two slot count, those slots and
// their index. False when neither is so: nothing in the memory can be found.
inline bool readableLayout(const Mapping& mapping, const TableShape& shape, std::size_t slotWords,
                           TableLayout* layout, std::size_t* slotsGiven) {
  if (mapping.base == nullptr || mapping.bytes < sizeof(TableHeader)) return false;
  const auto* header = reinterpret_cast<const TableHeader*>(mapping.base);
  std::uint64_t storedCheck = 0;
  const FixedPart fixed = fixedPartOf(*header, &storedCheck);
  const std::size_t slotBytes = slotWords * 8;
  const std::size_t afterHeader = mapping.bytes - sizeof(TableHeader);
  if (fixedPartSound(fixed, storedCheck, shape) && fixed.slots < kNoSlot) {
    *slotsGiven = fixed.slots;
    layout->header = reinterpret_cast<TableHeader*>(mapping.base);
    layout->slots = reinterpret_cast<std::uint64_t*>(mapping.base + sizeof(TableHeader));
    layout->slotCount = std::min<std::size_t>(fixed.slots, afterHeader / slotBytes);
    const std::size_t indexStart = fixed.slots * slotBytes;
    const bool indexReached = afterHeader > indexStart;
    layout->index = indexReached ? layout->slots + fixed.slots * slotWords : nullptr;
    layout->entryCount =
        indexReached ? std::min<std::size_t>(fixed.entries, (afterHeader - indexStart) / 8) : 0;
    return true;
  }
  const std::size_t slots = TableLayout::slotsIn(mapping.bytes, slotWords);
  if (slots == 0 || (slots & (slots - 1)) != 0) return false;
  *slotsGiven = slots;
  *layout = TableLayout::of(mapping.base, slots, slotWords);
  return true;
}

}  // namespace internal
}  // namespace Mirra
