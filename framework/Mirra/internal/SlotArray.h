#pragma once
// Mirra::internal::SlotArray<V>: the slots of one generation of a table, each holding one value
// with its tree links, and the protocol by which the writer changes a slot while readers in other
// processes copy it.
//
// A slot starts with a 64-bit head word (a 16-bit sequence, the state byte, a padding byte, the
// 32-bit checksum), then the left and right tree links, then the value; a slot that fits a cache
// line gets one of its own.
//
// Invariants:
//  1. The checksum covers every byte but the sequence and itself: the state and padding bytes and
//     every byte after the head word (links and value), so a damaged byte there is always caught
//     by intact() (see SlotChecksum.h); the sequence is outside it.
//  2. The states are distinct bit patterns, so a stray write to the state byte is not another
//     valid state.
//  3. write() makes the sequence odd (relaxed store), issues a release fence, stores the slot's
//     other words (relaxed), then stores the head with the next even sequence and the new checksum
//     (release). readWhole() loads the head (acquire), the other words (relaxed), issues an
//     acquire fence and loads the head again (relaxed); it keeps the copy only when both heads are
//     equal and even. Had it seen any store of a later write, its acquire fence would pair with
//     that write's release fence and the second head load would see the odd sequence; so equal
//     even heads mean one whole write.
//  4. A sequence held odd is waited for within the bounds of WriterWait.h, then reported as a
//     slot left half-written, or held by a stalled writer. An attachment that nobody else writes
//     while it reads (Concurrency::none) cannot see a write in progress, so it checks a slot where
//     it lies, without the second head load, and takes an odd sequence as half-written at once.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <type_traits>

#include "framework/Mirra/internal/SharedWord.h"
#include "framework/Mirra/internal/SlotChecksum.h"
#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableLayout.h"
#include "framework/Mirra/internal/WriterWait.h"

namespace Mirra {
namespace internal {

template <class V>
class SlotArray {
 public:
  // Distinct bit patterns, so that a stray write to the state byte is not another valid state.
  enum class SlotState : std::uint8_t { empty = 0x3c, used = 0xa5, erased = 0x5a };

  // A slot that fits a cache line gets one of its own, so a lookup reads one line per slot.
  static constexpr std::size_t kSlotHeader = 16;
  static constexpr std::size_t kSlotAlignment = kSlotHeader + sizeof(V) <= 64 ? 64 : 8;

  // Only ever copied whole between the table's memory and a local image, word by word.
  struct alignas(kSlotAlignment) Slot {
    std::uint16_t sequence;  // odd while the writer changes the slot; outside the checksum
    SlotState state;
    std::uint8_t padding;  // named, so that every byte is written
    std::uint32_t checksum;
    SlotIndex left;
    SlotIndex right;
    V value;
  };
  static_assert(std::is_trivially_copyable_v<Slot>, "slots are plain bytes");
  static_assert(offsetof(Slot, sequence) == 0 && offsetof(Slot, state) == 2 &&
                    offsetof(Slot, padding) == 3 && offsetof(Slot, checksum) == 4,
                "the head word holds the sequence, the state, the padding and the checksum");
  static constexpr std::size_t kSlotWords = sizeof(Slot) / 8;

  // Who else may change the slots while this attachment reads them: nobody (the writer's own
  // attachment, or another one sharing its memory in its process), or a writer in another process.
  enum class Concurrency : std::uint8_t { none, writerElsewhere };

  // The slot array starting at `words`; a slot held by the writer is waited for through `wait`.
  SlotArray(std::uint64_t* words, WriterWait& wait) : words_(words), wait_(wait) {}

  // Copies slot `at` whole into *out (invariant 3). False when the slot stayed half-written; *out
  // then holds what was there.
  bool readWhole(SlotIndex at, Slot* out) const {
    const std::uint64_t* words = wordsOf(at);
    auto* bytes = reinterpret_cast<unsigned char*>(out);
    for (;;) {
      const std::uint64_t head = loadAcquire(words);
      for (std::size_t word = 1; word < kSlotWords; ++word) {
        const std::uint64_t copy = loadRelaxed(words + word);
        std::memcpy(bytes + word * 8, &copy, 8);
      }
      std::memcpy(bytes, &head, 8);
      if (odd(sequenceOf(head))) {
        if (!wait_.again()) return false;
        continue;
      }
      fenceAcquire();
      if (loadRelaxed(words) == head) return true;
    }
  }

  // Checks member slot `at` (whole, intact, a member) and returns its value: where it lies with
  // Concurrency::none, where an odd sequence is a write that never finished; in *image, the slot
  // first copied whole, with writerElsewhere (invariant 3). On damage returns nullptr and sets
  // *fault.
  const V* member(SlotIndex at, Concurrency concurrency, Slot* image, Fault* fault) const {
    if (concurrency == Concurrency::writerElsewhere) {
      if (!readWhole(at, image)) return faulty(Fault::halfWritten, fault);
      if (!intact(*image)) return faulty(Fault::checksum, fault);
      if (image->state != SlotState::used) return faulty(Fault::notMember, fault);
      return &image->value;
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(wordsOf(at));
    std::uint16_t sequence;
    std::memcpy(&sequence, bytes + offsetof(Slot, sequence), sizeof(sequence));
    if (odd(sequence)) return faulty(Fault::halfWritten, fault);
    SlotState state;
    std::memcpy(&state, bytes + offsetof(Slot, state), sizeof(state));
    std::uint32_t checksum;
    std::memcpy(&checksum, bytes + offsetof(Slot, checksum), sizeof(checksum));
    if (!known(state) || checksum != checksumOver(bytes)) return faulty(Fault::checksum, fault);
    if (state != SlotState::used) return faulty(Fault::notMember, fault);
    // Every value in the array was put there whole by write(), as an image of a V.
    return std::launder(reinterpret_cast<const V*>(bytes + offsetof(Slot, value)));
  }

  // Whether slot `at` was never written: all its words zero, as fresh memory reads.
  bool neverWritten(SlotIndex at) const {
    const std::uint64_t* words = wordsOf(at);
    for (std::size_t word = 0; word < kSlotWords; ++word) {
      if (loadRelaxed(words + word) != 0) return false;
    }
    return true;
  }

  // The writer's own read: nobody else writes, so the slot is copied as it lies (a slot held odd
  // was left by a writer that died).
  Slot slotAt(SlotIndex at) const {
    Slot slot;
    std::memcpy(static_cast<void*>(&slot), wordsOf(at), sizeof(Slot));
    return slot;
  }

  // Writer: replaces slot `at` with contents, under the slot's sequence (invariant 3).
  // midWriteHook, when set, runs after the slot is marked busy and before its contents change.
  // Inlined at once: it is most of what a replace does.
  [[gnu::always_inline]] void write(SlotIndex at, const Slot& contents,
                                    const std::function<void()>& midWriteHook) const {
    Slot image = contents;
    std::uint64_t* words = wordsOf(at);
    const std::uint64_t oldHead = loadRelaxed(words);
    const auto busy = static_cast<std::uint16_t>(sequenceOf(oldHead) | 1);
    storeRelaxed(words, withSequence(oldHead, busy));
    fenceRelease();
    if (midWriteHook) midWriteHook();
    image.sequence = static_cast<std::uint16_t>(busy + 1);
    image.checksum = checksumOf(image);
    const auto* bytes = reinterpret_cast<const unsigned char*>(&image);
    for (std::size_t word = 1; word < kSlotWords; ++word) {
      std::uint64_t copy;
      std::memcpy(&copy, bytes + word * 8, 8);
      storeRelaxed(words + word, copy);
    }
    storeRelease(words, headOf(image));
  }

  static std::uint32_t checksumOf(const Slot& slot) {
    return checksumOver(reinterpret_cast<const unsigned char*>(&slot));
  }
  static bool intact(const Slot& slot) {
    return known(slot.state) && slot.checksum == checksumOf(slot);
  }
  // A slot in `state` with no links and a zeroed value.
  static Slot blank(SlotState state) {
    Slot slot;
    std::memset(static_cast<void*>(&slot), 0, sizeof(Slot));
    slot.state = state;
    slot.left = kNoSlot;
    slot.right = kNoSlot;
    return slot;
  }

 private:
  static const V* faulty(Fault found, Fault* fault) {
    *fault = found;
    return nullptr;
  }
  static bool known(SlotState state) {
    return state == SlotState::empty || state == SlotState::used || state == SlotState::erased;
  }
  // The checksum of the slot image at `slot` (see invariant 1).
  static std::uint32_t checksumOver(const unsigned char* slot) {
    return slotChecksum(slot, sizeof(Slot));
  }
  std::uint64_t* wordsOf(SlotIndex at) const {
    return words_ + static_cast<std::size_t>(at) * kSlotWords;
  }
  static std::uint64_t headOf(const Slot& slot) {
    std::uint64_t head;
    std::memcpy(&head, static_cast<const void*>(&slot), sizeof(head));
    return head;
  }
  // The sequence is the head word's first two bytes.
  static std::uint16_t sequenceOf(std::uint64_t head) {
    std::uint16_t sequence;
    std::memcpy(&sequence, &head, sizeof(sequence));
    return sequence;
  }
  static std::uint64_t withSequence(std::uint64_t head, std::uint16_t sequence) {
    std::memcpy(&head, &sequence, sizeof(sequence));
    return head;
  }

  std::uint64_t* words_;
  WriterWait& wait_;
};

}  // namespace internal
}  // namespace Mirra
