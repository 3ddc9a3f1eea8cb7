#pragma once
// Mirra::internal::OrderedTree<K, V, KeyOf, Hash>: the balanced search tree that orders the
// members of one generation of a table by K's `<`: a treap whose nodes are the slots themselves,
// linked by slot index, with its root in the table header.
//
// Invariants:
//  1. In-order, the tree visits every member once, in ascending key order; each node's priority
//     (a second mix of its key's hash) is not below its children's, so the expected depth is
//     O(log n) whatever the order of insertion.
//  2. descendOnce() verifies every slot it passes (inside the handed-out range, whole, intact, a
//     member) and gives up, with the damage, on the first that fails or when the walk gets longer
//     than the slots that exist. It makes no allowance for a writer at work (the caller retries
//     where one may be).
//  3. Writer side: every slot whose links or key a change relies on is verified first, and
//     finding damage throws WriterMetDamage before anything is changed on that step. Each slot is
//     written whole through SlotArray::write, so readers never see a torn node.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "framework/Mirra/internal/SharedWord.h"
#include "framework/Mirra/internal/SlotArray.h"
#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableLayout.h"
#include "framework/Mirra/internal/TableMemory.h"

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

  // The tree of the generation in `layout`; slot writes run midWriteHook (see SlotArray::write).
  OrderedTree(const TableLayout& layout, const TableMemory& memory,
              const std::function<void()>& midWriteHook)
      : header_(layout.header), slots_(layout.slots, memory), midWriteHook_(midWriteHook) {}

  // The treap's heap order (higher sits nearer the root) comes from a second mix of the hash,
  // so that it does not follow the bits that pick the home slot.
  static std::uint32_t priorityOf(const K& key) {
    std::uint64_t mixed = static_cast<std::uint64_t>(Hash()(key));
    mixed *= 0xd6e8feb86659fd93ull;
    mixed ^= mixed >> 32;
    return static_cast<std::uint32_t>(mixed);
  }

  SlotIndex root() const { return static_cast<SlotIndex>(loadAcquire(&header_->root)); }
  void rootIs(SlotIndex root) {
    if (this->root() != root) storeRelease(&header_->root, root);
  }

  // The tree member that is the first one (Bound::first), the first whose key is >= key, or the
  // first whose key is > key; none when there is none. Damage is left in *damage.
  Position descendOnce(Bound bound, const K& key, Damage* damage) const {
    const std::size_t size = filled();
    Position best;
    SlotIndex at = root();
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

  // Puts the member in slot `member` (key, priority) into the subtree under `top`; returns the
  // subtree's root. Each slot on the way is read once. Only the new member can rise above its
  // parent: every other node already sits below one of higher priority.
  // REQUIRES: the path from top down is intact (the caller descended it first).
  SlotIndex linkUnder(SlotIndex top, SlotIndex member, const K& key, std::uint32_t priority) {
    if (top == kNoSlot) return member;
    Slot slot = slots_.slotAt(top);
    const bool left = key < KeyOf()(slot.value);
    SlotIndex& link = left ? slot.left : slot.right;
    const SlotIndex child = linkUnder(link, member, key, priority);
    const bool rises = child == member && priority > priorityOf(KeyOf()(slot.value));
    if (!rises) {
      if (link != child) {
        link = child;
        writeSlot(top, slot);
      }
      return top;
    }
    // Rotation: the member takes top's place, top becomes its child on the other side.
    Slot raised = slots_.slotAt(member);
    SlotIndex& across = left ? raised.right : raised.left;
    link = across;
    across = top;
    writeSlot(top, slot);
    writeSlot(member, raised);
    return member;
  }

  // Takes key's member out of the subtree under `top`; returns the subtree's root.
  // REQUIRES: key is a member.
  SlotIndex unlinkUnder(SlotIndex top, const K& key) {
    requireIntact(top);
    if (key < keyAt(top)) {
      linkLeft(top, unlinkUnder(slots_.slotAt(top).left, key));
      return top;
    }
    if (keyAt(top) < key) {
      linkRight(top, unlinkUnder(slots_.slotAt(top).right, key));
      return top;
    }
    return unlinkTop(top);
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
  std::size_t filled() const { return loadAcquire(&header_->filled); }
  void writeSlot(SlotIndex at, const Slot& slot) { slots_.write(at, slot, midWriteHook_); }
  K keyAt(SlotIndex index) const { return KeyOf()(slots_.slotAt(index).value); }
  std::uint32_t priorityAt(SlotIndex index) const { return priorityOf(keyAt(index)); }

  void requireIntact(SlotIndex index) const {
    if (index >= filled()) throw WriterMetDamage();
    Slot slot;
    if (!slots_.readWhole(index, &slot) || !Slots::intact(slot)) throw WriterMetDamage();
  }

  void linkLeft(SlotIndex parent, SlotIndex child) {
    Slot slot = slots_.slotAt(parent);
    if (slot.left == child) return;
    slot.left = child;
    writeSlot(parent, slot);
  }
  void linkRight(SlotIndex parent, SlotIndex child) {
    Slot slot = slots_.slotAt(parent);
    if (slot.right == child) return;
    slot.right = child;
    writeSlot(parent, slot);
  }
  // Both return the new root of the subtree.
  SlotIndex rotateRight(SlotIndex top) {
    const SlotIndex left = slots_.slotAt(top).left;
    requireIntact(left);
    linkLeft(top, slots_.slotAt(left).right);
    linkRight(left, top);
    return left;
  }
  SlotIndex rotateLeft(SlotIndex top) {
    const SlotIndex right = slots_.slotAt(top).right;
    requireIntact(right);
    linkRight(top, slots_.slotAt(right).left);
    linkLeft(right, top);
    return right;
  }

  // Rotates `top` down below the child with the higher priority until it has at most one child,
  // then lets that child take its place.
  SlotIndex unlinkTop(SlotIndex top) {
    const SlotIndex left = slots_.slotAt(top).left;
    const SlotIndex right = slots_.slotAt(top).right;
    if (left == kNoSlot) return right;
    if (right == kNoSlot) return left;
    requireIntact(left);
    requireIntact(right);
    if (priorityAt(left) > priorityAt(right)) {
      const SlotIndex raised = rotateRight(top);
      linkRight(raised, unlinkTop(top));
      return raised;
    }
    const SlotIndex raised = rotateLeft(top);
    linkLeft(raised, unlinkTop(top));
    return raised;
  }

  TableHeader* header_;
  Slots slots_;
  const std::function<void()>& midWriteHook_;
};

}  // namespace internal
}  // namespace Mirra
