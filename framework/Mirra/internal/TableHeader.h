#pragma once
// Mirra::internal::TableHeader: the first 128 bytes of a table's memory, followed by its slot
// array and its hash index. It names no address: everything after it is found by sizes.
//
// The first block is written once, before the memory is published, and never changes. The
// counters after it are changed by the writer only, each word through an atomic store, and read
// through atomic loads (see SharedWord.h). Memory arrives zeroed, so a word the writer has not
// set reads 0.

#include <cstdint>

namespace Mirra {
namespace internal {

constexpr std::uint64_t kTableMagic = 0x3170616d6172694dull;  // "Mirampa1" read little-endian
// 3: the slot checksum covers the padding byte; an all-zero index word is an empty entry; erased
// slots are kept on a free list.
constexpr std::uint32_t kTableFormat = 3;

struct TableHeader {
  std::uint64_t magic;
  std::uint32_t format;
  std::uint32_t keySize;
  std::uint32_t valueSize;
  std::uint32_t slotSize;
  std::uint64_t slots;    // capacity of the slot array
  std::uint64_t entries;  // size of the hash index
  // Changed by the writer while readers read:
  std::uint64_t root;       // slot index of the tree root, or the no-slot value
  std::uint64_t filled;     // slots handed out; erased ones below it go round the free list
  std::uint64_t used;       // members
  std::uint64_t changes;    // odd while a write is under way; grows by 2 per write: readers poll it
  std::uint64_t structure;  // odd while tree links change
  std::uint64_t ready;
  std::uint64_t advertised;
  std::uint64_t freeSlot;    // the first erased slot, which links the next by its left link
  std::uint64_t tombstones;  // index entries marked erased
  std::uint64_t reserved[2];
};
static_assert(sizeof(TableHeader) == 128, "the slot array starts on a cache line");

}  // namespace internal
}  // namespace Mirra
