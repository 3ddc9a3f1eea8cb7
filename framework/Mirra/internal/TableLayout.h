#pragma once
// Mirra::internal::TableLayout: where one generation of a table's memory keeps its parts, and the
// slot numbers by which those parts refer to each other.
//
// Invariants:
//  1. A generation is one block: the TableHeader, then header->slots slots of a fixed number of
//     64-bit words each, then header->entries index entries of one word each.
//  2. The parts refer to each other by SlotIndex only, never by address, so the block means the
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

  // REQUIRES: base starts with a header whose `slots` is set.
  static TableLayout of(unsigned char* base, std::size_t slotWords) {
    TableLayout layout;
    layout.header = reinterpret_cast<TableHeader*>(base);
    layout.slots = reinterpret_cast<std::uint64_t*>(base + sizeof(TableHeader));
    layout.index = layout.slots + layout.header->slots * slotWords;
    return layout;
  }
};

}  // namespace internal
}  // namespace Mirra
