#pragma once
// Mirra::internal::OrderedTree<K, V, KeyOf, Hash>: the balanced search tree that orders the
// members of one generation of a table by K's `<`: a treap whose nodes are the slots themselves,
// linked by slot index, with its root in the table header (the caller reads and stores it).
//
// Invariants:
//  1. In-order, the tree visits every member once, in ascending key order; each node's priority
//     (a second mix of its key's hash) is not below its children's, so the expected depth is
//     O(log n) whatever the order of insertion.
//  2. descendOnce() verifies every slot it passes (inside the handed-out range, whole, intact, a
//     member) and gives up, with the damage, on the first that fails or when the walk gets longer
//     than the slots that exist. It makes no allowance for a writer at work (the caller retries
//     where one may be).
//  3. build() writes each slot whole through SlotArray::write, so readers never see a torn node;
//     the writer's changes to a built tree are planned by TreeWriter.h.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "framework/Mirra/internal/SharedWord.h"
#include "framework/Mirra/internal/SlotArray.h"
#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableLayout.h"

namespace Mirra {
namespace internal {

template <class K, class V, class KeyOf, class Hash>
class OrderedTree {
  using Slots = SlotArray<V>;
  using Slot = typename Slots::Slot;
  using SlotState = typename Slots::SlotState;

 public:
  // Which member a descent looks for.
  enum class Bound : std::uint8_t { first, atOrAfter, after };

  // A member found by a descent, with the copy of its value read there.
  struct Position {
    SlotIndex slot = kNoSlot;
    V value{};
  };

  // The tree over `slots`; slot writes run midWriteHook (see SlotArray::write).
  OrderedTree(const Slots& slots, const std::function<void()>& midWriteHook)
      : slots_(slots), midWriteHook_(midWriteHook) {}

  // The treap's heap order (higher sits nearer the root) comes from a second mix of the hash,
  // so that it does not follow the bits that pick the home slot.
  static std::uint32_t priorityOf(const K& key) {
    std::uint64_t mixed = static_cast<std::uint64_t>(Hash()(key));
    mixed *= 0xd6e8feb86659fd93ull;
    mixed ^= mixed >> 32;
    return static_cast<std::uint32_t>(mixed);
  }

  // The tree member that is the first one (Bound::first), the first whose key is >= key, or the
  // first whose key is > key, in the tree under `root` with `filled` slots handed out; none when
  // there is none. Damage is left in *damage.
  Position descendOnce(Bound bound, const K& key, SlotIndex root, std::size_t filled,
                       Damage* damage) const {
    const std::size_t size = filled;
    Position best;
    SlotIndex at = root;
    for (std::size_t steps = 0; at != kNoSlot; ++steps) {
      if (steps > size) {
        *damage = Damage{Fault::endlessWalk, at};
        return Position{};
      }
      if (at >= size) {
        *damage = Damage{Fault::linkOutside, at};
        return Position{};
      }
      Slot slot;
      if (!slots_.readWhole(at, &slot)) {
        *damage = Damage{Fault::halfWritten, at};
        return Position{};
      }
      if (!Slots::intact(slot)) {
        *damage = Damage{Fault::checksum, at};
        return Position{};
      }
      if (slot.state != SlotState::used) {
        *damage = Damage{Fault::notMember, at};
        return Position{};
      }
      const K& here = KeyOf()(slot.value);
      const bool goLeft = bound == Bound::first   ? true
                          : bound == Bound::after ? key < here
                                                  : !(here < key);
      if (goLeft) {
        best = Position{at, slot.value};
        at = slot.left;
      } else {
        at = slot.right;
      }
    }
    return best;
  }

  // Writes sorted members into slots 0..n-1 as a treap (a Cartesian tree over their priorities,
  // built with a stack of the right spine); returns its root.
  SlotIndex build(const std::vector<V>& members) {
    const std::size_t count = members.size();
    std::vector<SlotIndex> left(count, kNoSlot);
    std::vector<SlotIndex> right(count, kNoSlot);
    std::vector<std::uint32_t> priority(count);
    std::vector<SlotIndex> spine;
    for (std::size_t at = 0; at < count; ++at) {
      priority[at] = priorityOf(KeyOf()(members[at]));
      SlotIndex below = kNoSlot;
      while (!spine.empty() && priority[spine.back()] < priority[at]) {
        below = spine.back();
        spine.pop_back();
      }
      left[at] = below;
      if (!spine.empty()) right[spine.back()] = static_cast<SlotIndex>(at);
      spine.push_back(static_cast<SlotIndex>(at));
    }
    for (std::size_t at = 0; at < count; ++at) {
      Slot slot = Slots::blank(SlotState::used);
      std::memcpy(static_cast<void*>(&slot.value), &members[at], sizeof(V));
      slot.left = left[at];
      slot.right = right[at];
      writeSlot(static_cast<SlotIndex>(at), slot);
    }
    return spine.empty() ? kNoSlot : spine.front();
  }

 private:
  void writeSlot(SlotIndex at, const Slot& slot) { slots_.write(at, slot, midWriteHook_); }

  Slots slots_;
  const std::function<void()>& midWriteHook_;
};

}  // namespace internal
}  // namespace Mirra
