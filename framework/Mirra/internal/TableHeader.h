#pragma once
// Mirra::internal::TableHeader: the first 128 bytes of a table's memory, followed by its slot
// array and its hash index. It names no address: everything after it is found by sizes.
//
// Invariants:
//  1. The fixed part (FixedPart) is written once, before the memory is published, and
//     carries its own check (fixedCheck, CheckedWord.h). An attachment checks it, and that the
//     sizes it gives fit the memory mapped, when it maps a generation, and from then on uses its
//     own copy of slots and entries: a later stray write there cannot lead it outside the mapping.
//  2. Every other word is a checked word (CheckedWord.h) at its own position, written by the
//     writer whole with one atomic store, so that a reader that loads one either gets what the
//     writer stored or knows the word is damaged: no damaged byte is ever taken for a value.
//  3. The writer keeps its own copy of these words and never reads them back from the shared
//     memory; when it closes a write it puts back any word that a stray write changed.
//  4. Memory arrives zeroed; every word is set when the generation is prepared.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "framework/Mirra/internal/CheckedWord.h"
#include "framework/Mirra/internal/SharedWord.h"

namespace Mirra {
namespace internal {

constexpr std::uint64_t kTableMagic = 0x3170616d6172694dull;  // "Mirampa1" read little-endian
// 4: every header word carries its own check and the fixed part one over all of it; a generation
// records that it was published.
constexpr std::uint32_t kTableFormat = 4;

// The words that the writer changes while readers read, in the order they follow the fixed part.
enum class HeaderWord : std::uint8_t {
  root,        // slot index of the tree root, or the no-slot value
  filled,      // slots handed out; erased ones below it go round the free list
  used,        // members
  changes,     // odd while a write is under way; grows by 2 per write: readers poll it
  structure,   // odd while tree links change
  ready,       // the collection-ready mark
  advertised,  // the collection has been advertised
  freeSlot,    // the first erased slot, which links the next by its left link
  tombstones,  // index entries marked erased
  published,   // 1 once the generation has been published (0 while it is being filled)
  count
};
constexpr std::size_t kHeaderWords = static_cast<std::size_t>(HeaderWord::count);

// The sizes a table records, so that an attachment compiled for other types is refused.
struct TableShape {
  std::uint32_t keySize;
  std::uint32_t valueSize;
  std::uint32_t slotSize;
};

// What a generation is made of; checked as a whole by fixedCheck.
struct FixedPart {
  std::uint64_t magic;
  std::uint32_t format;
  std::uint32_t keySize;
  std::uint32_t valueSize;
  std::uint32_t slotSize;
  std::uint64_t slots;    // capacity of the slot array
  std::uint64_t entries;  // size of the hash index
};
constexpr std::size_t kFixedWords = sizeof(FixedPart) / 8;

struct TableHeader {
  FixedPart fixed;
  std::uint64_t fixedCheck;
  std::uint64_t words[kHeaderWords];
};
static_assert(sizeof(TableHeader) == 128, "the slot array starts on a cache line");

inline const char* headerWordName(HeaderWord word) {
  static const char* const names[] = {"root",  "filled",     "used",     "changes",    "structure",
                                      "ready", "advertised", "freeSlot", "tombstones", "published"};
  return names[static_cast<std::size_t>(word)];
}

// A word's position in the header, which its check covers.
inline std::size_t headerWordPosition(HeaderWord word) {
  return kFixedWords + 1 + static_cast<std::size_t>(word);
}

inline std::uint64_t* headerWordAt(TableHeader& header, HeaderWord word) {
  return &header.words[static_cast<std::size_t>(word)];
}
inline const std::uint64_t* headerWordAt(const TableHeader& header, HeaderWord word) {
  return &header.words[static_cast<std::size_t>(word)];
}

// The value of `word` in `header` (acquire), into *value; false when the word fails its check.
inline bool loadHeaderWord(const TableHeader& header, HeaderWord word, std::uint64_t* value) {
  return checkedValue(loadAcquire(headerWordAt(header, word)), headerWordPosition(word), value);
}
// The stored form of `value` as `word`.
inline std::uint64_t headerWordImage(HeaderWord word, std::uint64_t value) {
  return checkedWord(value, headerWordPosition(word));
}
inline void storeHeaderWord(TableHeader& header, HeaderWord word, std::uint64_t value) {
  storeRelease(headerWordAt(header, word), headerWordImage(word, value));
}

// The fixed part of `header` as it reads now, copied out (a stray write may change it at any time),
// and its check as stored.
inline FixedPart fixedPartOf(const TableHeader& header, std::uint64_t* storedCheck) {
  FixedPart part;
  std::memcpy(&part, &header.fixed, sizeof(part));
  std::memcpy(storedCheck, &header.fixedCheck, sizeof(*storedCheck));
  return part;
}
inline std::uint64_t fixedCheckOf(const FixedPart& part) {
  std::uint64_t words[kFixedWords];
  std::memcpy(words, &part, sizeof(words));
  return blockCheckOf(words, kFixedWords);
}

}  // namespace internal
}  // namespace Mirra
