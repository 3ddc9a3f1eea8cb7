#pragma once
// Mirra::testing::MirraMapBackdoor: fault injection into a MirraMap, for tests and benchmarks only.
//
// Each call changes bytes of one stored slot the way a stray write from another process would,
// leaving the slot's checksum stale. Production code never includes this header.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Mirra {
namespace testing {

class MirraMapBackdoor {
 public:
  // The slot index that holds key, or -1 when key is absent; no verification.
  template <class Map, class K>
  static long slotOf(const Map& map, const K& key) {
    const auto& slots = map.storage_->slots;
    for (std::size_t index = 0; index < slots.size(); ++index) {
      if (slots[index].state == Map::SlotState::used && keyBytesOf(map, index) == key) {
        return static_cast<long>(index);
      }
    }
    return -1;
  }

  // Flips bits of the last byte of key's stored value. Returns false when key is absent.
  template <class Map, class K>
  static bool damageValue(const Map& map, const K& key) {
    const long at = slotOf(map, key);
    if (at < 0) return false;
    const auto& slot = map.storage_->slots[static_cast<std::size_t>(at)];
    const auto* base = reinterpret_cast<const unsigned char*>(&slot);
    const auto* value = reinterpret_cast<const unsigned char*>(&slot.value);
    return flip(map, key, static_cast<std::size_t>(value - base) + sizeof(slot.value) - 1);
  }

  // Flips bits of byte `byteInKey` of key's stored key. Returns false when key is absent.
  template <class Map, class K>
  static bool damageKey(const Map& map, const K& key, std::size_t byteInKey) {
    const long at = slotOf(map, key);
    if (at < 0) return false;
    const auto& slot = map.storage_->slots[static_cast<std::size_t>(at)];
    const auto* base = reinterpret_cast<const unsigned char*>(&slot);
    const auto* keyBytes =
        reinterpret_cast<const unsigned char*>(&keyBytesOf(map, static_cast<std::size_t>(at)));
    return flip(map, key, static_cast<std::size_t>(keyBytes - base) + byteInKey);
  }

  // Overwrites the state byte of key's slot with `byte`. Returns false when key is absent.
  template <class Map, class K>
  static bool damageState(const Map& map, const K& key, std::uint8_t byte) {
    const long at = slotOf(map, key);
    if (at < 0) return false;
    auto& slot = map.storage_->slots[static_cast<std::size_t>(at)];
    std::memcpy(&slot.state, &byte, 1);
    return true;
  }

  // Overwrites the state byte of slot `index` (any state) with `byte`.
  template <class Map>
  static void damageStateAt(const Map& map, std::size_t index, std::uint8_t byte) {
    std::memcpy(&map.storage_->slots[index].state, &byte, 1);
  }

  // The number of slots in the array.
  template <class Map>
  static std::size_t slots(const Map& map) {
    return map.storage_->slots.size();
  }

  // The position of key's index entry, or -1 when key is absent; no verification.
  template <class Map, class K>
  static long entryOf(const Map& map, const K& key) {
    const long slot = slotOf(map, key);
    const auto& index = map.storage_->index;
    for (std::size_t at = 0; slot >= 0 && at < index.size(); ++at) {
      if (index[at].slot == static_cast<std::uint32_t>(slot)) return static_cast<long>(at);
    }
    return -1;
  }
  // The number of entries in the index.
  template <class Map>
  static std::size_t entries(const Map& map) {
    return map.storage_->index.size();
  }
  // Flips bits of the hash tag in key's index entry. Returns false when key is absent.
  template <class Map, class K>
  static bool damageEntry(const Map& map, const K& key) {
    const long at = entryOf(map, key);
    if (at < 0) return false;
    map.storage_->index[static_cast<std::size_t>(at)].tag ^= 0x5a00u;
    return true;
  }

 private:
  template <class Map>
  static const auto& keyBytesOf(const Map& map, std::size_t index) {
    return map.keyAt(static_cast<typename Map::SlotIndex>(index));
  }
  template <class Map, class K>
  static bool flip(const Map& map, const K& key, std::size_t byteInSlot) {
    const long at = slotOf(map, key);
    if (at < 0) return false;
    auto* bytes =
        reinterpret_cast<unsigned char*>(&map.storage_->slots[static_cast<std::size_t>(at)]);
    bytes[byteInSlot] ^= 0x5a;
    return true;
  }
};

}  // namespace testing
}  // namespace Mirra
