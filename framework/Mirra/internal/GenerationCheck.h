#pragma once
// Mirra::internal::checkGeneration: whether a mapped block of memory can be read as a generation
// of a table of a given shape, before anything in it is relied on.
//
// The fixed part must pass its check, name this format and shape, and give sizes that fill the
// block exactly; every header word must pass its check and hold a value that the sizes allow, and
// the generation must have been published. Only then is the layout built, from the sizes so
// checked.

#include <cstddef>
#include <cstdint>

#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/internal/TableLayout.h"
#include "framework/Mirra/internal/TableMemory.h"

namespace Mirra {
namespace internal {

// Damage to the fixed part, or to the first header word that fails; Fault::none when the block is
// a sound generation, its layout then in *layout.
inline Damage checkGeneration(const Mapping& mapping, const TableShape& shape,
                              std::size_t slotWords, TableLayout* layout) {
  const Damage fixedDamage{Fault::headerFixed, kNoSlot};
  if (mapping.base == nullptr || mapping.bytes < sizeof(TableHeader)) return fixedDamage;
  const auto* header = reinterpret_cast<const TableHeader*>(mapping.base);
  std::uint64_t storedCheck = 0;
  const FixedPart fixed = fixedPartOf(*header, &storedCheck);
  const bool sound = storedCheck == fixedCheckOf(fixed) && fixed.magic == kTableMagic &&
                     fixed.format == kTableFormat && fixed.keySize == shape.keySize &&
                     fixed.valueSize == shape.valueSize && fixed.slotSize == shape.slotSize &&
                     fixed.slots > 0 && (fixed.slots & (fixed.slots - 1)) == 0 &&
                     fixed.entries == fixed.slots * 2 &&
                     fixed.slots == TableLayout::slotsIn(mapping.bytes, slotWords);
  if (!sound) return fixedDamage;
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

}  // namespace internal
}  // namespace Mirra
