#pragma once
// Mirra::internal::WriterHeader: the writer's own copy of the header of the generation it writes.
//
// The writer reads its counters, the tree root and the free list from this copy, never from the
// shared header, so that a stray write to the shared memory cannot lead the writer astray; every
// change is made here and stored through to the shared header, one atomic store per word, for
// readers. mend() puts back what a stray write changed there since.
//
// Invariants:
//  1. After adopt(header), every word here is the word stored in `header` then; from then on the
//     shared header differs from this copy only where something other than this writer wrote it.
//  2. valueIs() stores with release; open() makes a word odd with a relaxed store followed by a
//     release fence, so that a reader that sees any later store of the write sees the odd word.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "framework/Mirra/internal/SharedWord.h"
#include "framework/Mirra/internal/TableHeader.h"
#include "framework/Mirra/internal/TableLayout.h"
#include "framework/Mirra/internal/WriterWait.h"

namespace Mirra {
namespace internal {

class WriterHeader {
 public:
  // Takes the copy from `header`, from now on the shared header written through.
  // REQUIRES: header's words were written by this writer or checked.
  void adopt(TableHeader* header) {
    shared_ = header;
    std::memcpy(&own_.fixed, &header->fixed, sizeof(own_.fixed));
    std::memcpy(&own_.fixedCheck, &header->fixedCheck, sizeof(own_.fixedCheck));
    for (std::size_t word = 0; word < kHeaderWords; ++word) {
      own_.words[word] = loadRelaxed(&header->words[word]);
    }
  }

  // The small accessors are inlined at once: every write goes through them several times.
  [[gnu::always_inline]] std::uint64_t value(HeaderWord word) const {
    return own_.words[static_cast<std::size_t>(word)] & kCheckedValueLimit;
  }
  // The copy as a header, for searches that read their counters from a header.
  const TableHeader& words() const { return own_; }

  [[gnu::always_inline]] void valueIs(HeaderWord word, std::uint64_t value) {
    const std::uint64_t image = headerWordImage(word, value);
    own_.words[static_cast<std::size_t>(word)] = image;
    storeRelease(headerWordAt(*shared_, word), image);
  }
  // Makes a counter odd (a write or a relink under way), unless it is already.
  [[gnu::always_inline]] void open(HeaderWord word) {
    const std::uint64_t current = value(word);
    if (odd(current)) return;
    const std::uint64_t image = headerWordImage(word, current + 1);
    own_.words[static_cast<std::size_t>(word)] = image;
    storeRelaxed(headerWordAt(*shared_, word), image);
    fenceRelease();
  }
  // Makes an odd counter even again.
  [[gnu::always_inline]] void close(HeaderWord word) {
    if (odd(value(word))) valueIs(word, value(word) + 1);
  }

  // Writes a new generation's header at `fresh`: the fixed part `fixed`, an empty table, and the
  // change count, ready and advertised marks carried over from this copy.
  void prepare(TableHeader* fresh, const FixedPart& fixed) const {
    std::memcpy(&fresh->fixed, &fixed, sizeof(fixed));
    const std::uint64_t check = fixedCheckOf(fixed);
    std::memcpy(&fresh->fixedCheck, &check, sizeof(check));
    const auto set = [fresh](HeaderWord word, std::uint64_t value) {
      storeRelaxed(headerWordAt(*fresh, word), headerWordImage(word, value));
    };
    set(HeaderWord::root, kNoSlot);
    set(HeaderWord::filled, 0);
    set(HeaderWord::used, 0);
    set(HeaderWord::changes, shared_ ? (value(HeaderWord::changes) | 1) + 1 : 0);
    set(HeaderWord::structure, 0);
    set(HeaderWord::ready, shared_ ? value(HeaderWord::ready) : 0);
    set(HeaderWord::advertised, shared_ ? value(HeaderWord::advertised) : 0);
    set(HeaderWord::freeSlot, kNoSlot);
    set(HeaderWord::tombstones, 0);
    set(HeaderWord::published, 0);
  }

  // Whether the shared header differs from this copy anywhere: one comparison of the two blocks,
  // so that the writer can afford to ask at every write. (Only this writer stores there; a stray
  // write from elsewhere is what it looks for.)
  bool strayed() const { return std::memcmp(shared_, &own_, sizeof(TableHeader)) != 0; }

  // Puts back every part of the shared header that differs from this copy; returns the names of
  // those put back, separated by ", " ("" when none).
  std::string mend() {
    std::string mended;
    const auto note = [&mended](const char* part) {
      mended += (mended.empty() ? "" : ", ") + std::string(part);
    };
    if (std::memcmp(&shared_->fixed, &own_.fixed, sizeof(own_.fixed)) != 0 ||
        std::memcmp(&shared_->fixedCheck, &own_.fixedCheck, sizeof(own_.fixedCheck)) != 0) {
      std::memcpy(&shared_->fixed, &own_.fixed, sizeof(own_.fixed));
      std::memcpy(&shared_->fixedCheck, &own_.fixedCheck, sizeof(own_.fixedCheck));
      note("fixed part");
    }
    for (std::size_t word = 0; word < kHeaderWords; ++word) {
      if (loadRelaxed(&shared_->words[word]) == own_.words[word]) continue;
      storeRelease(&shared_->words[word], own_.words[word]);
      note(headerWordName(static_cast<HeaderWord>(word)));
    }
    return mended;
  }

 private:
  TableHeader own_{};
  TableHeader* shared_ = nullptr;
};

}  // namespace internal
}  // namespace Mirra
