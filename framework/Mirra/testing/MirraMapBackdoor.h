#pragma once
// Mirra::testing::MirraMapBackdoor: fault injection into a MirraMap, for tests and benchmarks only.
//
// Each damage call changes bytes of the table's memory the way a stray write from another process
// would, leaving checksums and checks stale; for a shared table that memory is the shared segment
// itself, so every attachment in every process sees the damage. midWriteHookIs lets a test stop a
// writer in the middle of a slot write, publishedHookIs between publishing a generation and
// removing the one it replaces; writerWaitIs shortens a reader's wait for a stalled writer, and
// reportClockIs gives the report limiter another clock. Production code never includes this
// header.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>

#include "framework/Mirra/internal/ReportLimiter.h"
#include "framework/Mirra/internal/TableHeader.h"

namespace Mirra {
namespace testing {

class MirraMapBackdoor {
 public:
  // The slot index that holds key, or -1 when key is absent; no verification.
  template <class Map, class K>
  static long slotOf(const Map& map, const K& key) {
    const std::size_t filled = handedOut(map);
    for (std::size_t index = 0; index < filled; ++index) {
      const auto slot = imageOf(map, index);
      if (slot.state == Map::SlotState::used && keyOfImage<Map>(slot) == key) {
        return static_cast<long>(index);
      }
    }
    return -1;
  }

  // Flips bits of the last byte of key's stored value. Returns false when key is absent.
  template <class Map, class K>
  static bool damageValue(const Map& map, const K& key) {
    using Slot = typename Map::Slot;
    return flip(map, key, offsetof(Slot, value) + sizeof(Slot::value) - 1);
  }

  // Flips bits of byte `byteInKey` of key's stored key. Returns false when key is absent.
  template <class Map, class K>
  static bool damageKey(const Map& map, const K& key, std::size_t byteInKey) {
    const long at = slotOf(map, key);
    if (at < 0) return false;
    const auto slot = imageOf(map, static_cast<std::size_t>(at));
    const auto* base = reinterpret_cast<const unsigned char*>(&slot);
    const auto* keyBytes = reinterpret_cast<const unsigned char*>(&keyOfImage<Map>(slot));
    return flip(map, key, static_cast<std::size_t>(keyBytes - base) + byteInKey);
  }

  // Flips bits of byte `byteInSlot` (any byte, head word included) of key's slot. Returns false
  // when key is absent.
  template <class Map, class K>
  static bool damageSlotByte(const Map& map, const K& key, std::size_t byteInSlot) {
    return flip(map, key, byteInSlot);
  }
  // The size of one slot, in bytes.
  template <class Map>
  static constexpr std::size_t slotSize() {
    return sizeof(typename Map::Slot);
  }

  // Overwrites the state byte of key's slot with `byte`. Returns false when key is absent.
  template <class Map, class K>
  static bool damageState(const Map& map, const K& key, std::uint8_t byte) {
    const long at = slotOf(map, key);
    if (at < 0) return false;
    damageStateAt(map, static_cast<std::size_t>(at), byte);
    return true;
  }

  // Overwrites the state byte of slot `index` (any state) with `byte`.
  template <class Map>
  static void damageStateAt(const Map& map, std::size_t index, std::uint8_t byte) {
    using Slot = typename Map::Slot;
    slotBytes(map, index)[offsetof(Slot, state)] = byte;
  }

  // The number of slots in the array.
  template <class Map>
  static std::size_t slots(const Map& map) {
    map.refresh();
    return map.layout_.slotCount;
  }

  // Whether the writer `map` is filling a next generation, and how many slots it has copied.
  template <class Map>
  static bool growing(const Map& map) {
    return map.next_.active();
  }
  template <class Map>
  static std::size_t copiedSlots(const Map& map) {
    return map.next_.copied();
  }
  // How many entries of the current index the growth has verified.
  template <class Map>
  static std::size_t checkedEntries(const Map& map) {
    return map.next_.checked();
  }

  // The position of key's index entry, or -1 when key is absent; no verification.
  template <class Map, class K>
  static long entryOf(const Map& map, const K& key) {
    const long slot = slotOf(map, key);
    const std::size_t size = entries(map);
    for (std::size_t at = 0; slot >= 0 && at < size; ++at) {
      if (Map::Index::entryAt(map.layout_, at).slot == static_cast<std::uint32_t>(slot)) {
        return static_cast<long>(at);
      }
    }
    return -1;
  }
  // The number of entries in the index.
  template <class Map>
  static std::size_t entries(const Map& map) {
    map.refresh();
    return map.layout_.entryCount;
  }
  // Flips bits of the hash tag in key's index entry. Returns false when key is absent.
  template <class Map, class K>
  static bool damageEntry(const Map& map, const K& key) {
    using Entry = typename Map::IndexEntry;
    const long at = entryOf(map, key);
    if (at < 0) return false;
    auto* bytes = reinterpret_cast<unsigned char*>(map.layout_.index + at);
    bytes[offsetof(Entry, tag) + 1] ^= 0x5a;
    return true;
  }

  // Runs hook inside each later slot write of this writer, after the slot is marked busy and
  // before its contents change; an empty hook removes it.
  template <class Map>
  static void midWriteHookIs(Map& map, std::function<void()> hook) {
    map.midWriteHook_ = std::move(hook);
  }
  // Runs hook each time the writer `map` has published a generation, before it removes the one
  // that generation replaced; an empty hook removes it.
  template <class Map>
  static void publishedHookIs(Map& map, std::function<void()> hook) {
    map.memory_->publishedHook = std::move(hook);
  }
  // How long each read of `map` waits for a writer elsewhere that holds a word it needs.
  template <class Map>
  static void writerWaitIs(Map& map, std::chrono::nanoseconds limit) {
    map.writerWaitLimit_ = limit;
  }
  // The clock by which `map` counts its reports per second.
  template <class Map>
  static void reportClockIs(Map& map,
                            std::function<internal::ReportLimiter::Clock::time_point()> clock) {
    map.limiter_.clockIs(std::move(clock));
  }
  // Flips the bits `mask` of byte `offset` of the header of the generation `map` reads.
  // REQUIRES: offset < 128.
  template <class Map>
  static void damageHeaderByte(const Map& map, std::size_t offset, std::uint8_t mask) {
    map.refresh();
    reinterpret_cast<unsigned char*>(map.layout_.header)[offset] ^= mask;
  }

 private:
  template <class Map>
  static typename Map::Slot imageOf(const Map& map, std::size_t index) {
    typename Map::Slot slot;
    std::memcpy(static_cast<void*>(&slot), slotBytes(map, index), sizeof(slot));
    return slot;
  }
  template <class Map, class Slot>
  static const auto& keyOfImage(const Slot& slot) {
    return typename Map::KeyOfType()(slot.value);
  }
  // Slots handed out, as this attachment finds the count (unchecked).
  template <class Map>
  static std::size_t handedOut(const Map& map) {
    map.refresh();
    if (map.ownsHeader()) return map.filled();
    const std::uint64_t word =
        __atomic_load_n(internal::headerWordAt(*map.layout_.header, internal::HeaderWord::filled),
                        __ATOMIC_ACQUIRE);
    return static_cast<std::size_t>(word & internal::kCheckedValueLimit);
  }
  template <class Map>
  static unsigned char* slotBytes(const Map& map, std::size_t index) {
    map.refresh();
    return reinterpret_cast<unsigned char*>(map.layout_.slots + index * Map::kSlotWords);
  }
  template <class Map, class K>
  static bool flip(const Map& map, const K& key, std::size_t byteInSlot) {
    const long at = slotOf(map, key);
    if (at < 0) return false;
    slotBytes(map, static_cast<std::size_t>(at))[byteInSlot] ^= 0x5a;
    return true;
  }
};

}  // namespace testing
}  // namespace Mirra
