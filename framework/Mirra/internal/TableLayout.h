#pragma once
// Mirra::internal::TableLayout: where one generation of a table's memory keeps its parts, and the
// slot numbers by which those parts refer to each other.
//
// Invariants:
//  1. A generation is one block: the TableHeader, then `slots` slots of a fixed number of 64-bit
//     words each, then `entries` index entries of one word each; the block is exactly that long.
//  2. slots and entries are this attachment's own copies, taken when the sizes were found to fit
//     the block: nothing read later from the header can move a read outside it.
//  3. The parts refer to each other by SlotIndex only, never by address, so the block means the
//     same in every process that maps it.

#include <cstddef>
#include <cstdint>

#include "framework/Mirra/internal/TableHeader.h"

namespace Mirra {
namespace internal {

using SlotIndex = std::uint32_t;
constexpr SlotIndex kNoSlot = 0xffffffffu;

struct TableLayout {
  TableHeader* header = nullptr;
  std::uint64_t* slots = nullptr;  // slotWords words per slot
  std::uint64_t* index = nullptr;  // one word per entry
  std::size_t slotCount = 0;
  std::size_t entryCount = 0;

  // The bytes of a generation of `slots` slots of `slotWords` words (its index has twice as many
  // entries as it has slots).
  static std::size_t bytesFor(std::size_t slots, std::size_t slotWords) {
    return sizeof(TableHeader) + slots * slotWords * 8 + slots * 2 * 8;
  }
  // The slot count whose generation is exactly `bytes` long, or 0 when there is none.
  static std::size_t slotsIn(std::size_t bytes, std::size_t slotWords) {
    if (bytes <= sizeof(TableHeader)) return 0;
    const std::size_t slots = (bytes - sizeof(TableHeader)) / (slotWords * 8 + 16);
    return bytesFor(slots, slotWords) == bytes ? slots : 0;
  }

  // REQUIRES: base holds bytesFor(slots, slotWords) bytes.
  static TableLayout of(unsigned char* base, std::size_t slots, std::size_t slotWords) {
    TableLayout layout;
    layout.header = reinterpret_cast<TableHeader*>(base);
    layout.slots = reinterpret_cast<std::uint64_t*>(base + sizeof(TableHeader));
    layout.index = layout.slots + slots * slotWords;
    layout.slotCount = slots;
    layout.entryCount = slots * 2;
    return layout;
  }
};

}  // namespace internal
}  // namespace Mirra
