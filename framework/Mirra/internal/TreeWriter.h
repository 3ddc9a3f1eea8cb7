#pragma once
// Mirra::internal::TreeWriter<K, V, KeyOf, Hash>: the writer's changes to a table's ordered tree
// (a treap whose nodes are the slots, see OrderedTree.h): putting a new member in, taking one out.
//
// Each change is planned before anything is written. One descent from the root reads every slot
// on the way once, verifies it and keeps its image; the relink then works on those images, and
// the plan lists only the slots whose links changed, each once. Inserting splits the subtree that
// the new member heads along the kept path; erasing merges the two subtrees of the member that
// goes. Keys that arrive in ascending order descend the right spine, whose slots stay in cache,
// and usually change one link besides the new slot.
//
// Invariants:
//  1. Every slot the plan relies on is verified first (inside the handed-out range, whole,
//     intact, a member, the walk no longer than the slots that exist); damage throws
//     WriterMetDamage, and nothing has been written.
//  2. Carried out (changes() written, the returned root stored), a plan leaves a treap: in-order
//     ascending keys, no node's priority below its children's.
//  3. The buffers are kept between plans, so planning allocates nothing once warm.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/Mirra/internal/OrderedTree.h"
#include "framework/Mirra/internal/SlotArray.h"
#include "framework/Mirra/internal/TableDamage.h"
#include "framework/Mirra/internal/TableLayout.h"

namespace Mirra {
namespace internal {

template <class K, class V, class KeyOf, class Hash>
class TreeWriter {
  using Slots = SlotArray<V>;
  using Slot = typename Slots::Slot;
  using SlotState = typename Slots::SlotState;
  using Tree = OrderedTree<K, V, KeyOf, Hash>;

 public:
  // A slot to write, with its new image.
  struct Change {
    SlotIndex slot;
    Slot image;
  };

  // Plans putting the member of slot `at` (image `member`, whose links are ignored) into the tree
  // under `root`, of the table whose slots `slots` reads with `filled` slots handed out. Returns
  // the new root; changes() then lists the member's slot first.
  // REQUIRES: the member's key is not in the tree.
  SlotIndex planInsert(const Slots& slots, std::size_t filled, SlotIndex root, SlotIndex at,
                       const Slot& member) {
    const K key = KeyOf()(member.value);
    const std::uint32_t priority = Tree::priorityOf(key);
    // A tree that holds a key the index does not know is damaged.
    if (descend(slots, filled, root, key)) throw WriterMetDamage();
    // The member rises above the nodes at the bottom of the path whose priority is lower.
    std::size_t top = path_.size();
    while (top > 0 && priorityAt(top - 1) < priority) --top;

    Change added{at, member};
    // The subtree it takes over splits along the path: nodes below its key hang to its left,
    // each linked by its right link to the next such node, the others to its right.
    SlotIndex* leftHook = &added.image.left;
    SlotIndex* rightHook = &added.image.right;
    for (std::size_t step = top; step < path_.size(); ++step) {
      Node& node = path_[step];
      if (KeyOf()(node.image.value) < key) {
        *leftHook = node.slot;
        leftHook = &node.image.right;
      } else {
        *rightHook = node.slot;
        rightHook = &node.image.left;
      }
    }
    *leftHook = kNoSlot;
    *rightHook = kNoSlot;
    SlotIndex newRoot = root;
    if (top == 0) {
      newRoot = at;
    } else {
      Node& parent = path_[top - 1];
      (key < KeyOf()(parent.image.value) ? parent.image.left : parent.image.right) = at;
    }
    changes_.clear();
    changes_.push_back(added);
    collectChanged();
    return newRoot;
  }

  // Plans taking key's member out of the tree under `root`. Returns the new root; *removed is the
  // member's slot. changes() lists the relinked slots; the member's own slot is not among them.
  // REQUIRES: key is in the tree.
  SlotIndex planErase(const Slots& slots, std::size_t filled, SlotIndex root, const K& key,
                      SlotIndex* removed) {
    // A tree that lacks a key the index knows is damaged.
    if (!descend(slots, filled, root, key)) throw WriterMetDamage();
    const std::size_t gone = path_.size() - 1;
    *removed = path_[gone].slot;
    // The two subtrees merge along the right spine of the left one and the left spine of the
    // right one, the higher priority on top at each step. Nodes are named by their place in
    // path_, which grows as the merge reads them.
    newRoot_ = root;
    Hook hook{gone == 0 ? kRootHook : gone - 1, gone > 0 && key < keyAtStep(gone - 1)};
    std::size_t left = visitIfAny(slots, filled, path_[gone].image.left);
    std::size_t right = visitIfAny(slots, filled, path_[gone].image.right);
    while (left != kNone && right != kNone) {
      if (priorityAt(left) > priorityAt(right)) {
        link(hook, path_[left].slot);
        hook = Hook{left, false};
        left = visitIfAny(slots, filled, path_[left].image.right);
      } else {
        link(hook, path_[right].slot);
        hook = Hook{right, true};
        right = visitIfAny(slots, filled, path_[right].image.left);
      }
    }
    const std::size_t rest = left != kNone ? left : right;
    link(hook, rest != kNone ? path_[rest].slot : kNoSlot);
    changes_.clear();
    collectChanged();
    return newRoot_;
  }

  const std::vector<Change>& changes() const { return changes_; }

 private:
  // Filled by visit(); not zeroed first, which would cost as much as the read.
  struct Node {
    Node() {}
    Slot image;
    SlotIndex slot;
    SlotIndex originalLeft;
    SlotIndex originalRight;
  };
  // Where a subtree root is to be linked: a side of the node at path_[step], or the tree's root.
  static constexpr std::size_t kRootHook = static_cast<std::size_t>(-1);
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  struct Hook {
    std::size_t step;
    bool leftSide;
  };

  // Reads the path from `root` towards key into path_; true when it ends at key's node.
  bool descend(const Slots& slots, std::size_t filled, SlotIndex root, const K& key) {
    path_.clear();
    for (SlotIndex next = root; next != kNoSlot;) {
      const Node& node = visit(slots, filled, next);
      const K& here = KeyOf()(node.image.value);
      if (key < here) {
        next = node.image.left;
      } else if (here < key) {
        next = node.image.right;
      } else {
        return true;
      }
    }
    return false;
  }
  // Reads slot `at`, verified, onto the end of the path.
  const Node& visit(const Slots& slots, std::size_t filled, SlotIndex at) {
    if (at >= filled || path_.size() > filled) throw WriterMetDamage();
    Node& node = path_.emplace_back();
    node.slot = at;
    if (!slots.readWhole(at, &node.image) || !Slots::intact(node.image) ||
        node.image.state != SlotState::used) {
      throw WriterMetDamage();
    }
    node.originalLeft = node.image.left;
    node.originalRight = node.image.right;
    return node;
  }
  // Only the nodes near the bottom of a path are compared by priority.
  std::uint32_t priorityAt(std::size_t step) const {
    return Tree::priorityOf(KeyOf()(path_[step].image.value));
  }
  // The place in path_ of slot `at` once read, or kNone for no slot.
  std::size_t visitIfAny(const Slots& slots, std::size_t filled, SlotIndex at) {
    if (at == kNoSlot) return kNone;
    visit(slots, filled, at);
    return path_.size() - 1;
  }
  K keyAtStep(std::size_t step) const { return KeyOf()(path_[step].image.value); }
  void link(const Hook& hook, SlotIndex child) {
    if (hook.step == kRootHook) {
      newRoot_ = child;
      return;
    }
    Slot& parent = path_[hook.step].image;
    (hook.leftSide ? parent.left : parent.right) = child;
  }
  void collectChanged() {
    for (const Node& node : path_) {
      if (node.image.left != node.originalLeft || node.image.right != node.originalRight) {
        changes_.push_back(Change{node.slot, node.image});
      }
    }
  }

  std::vector<Node> path_;
  std::vector<Change> changes_;
  SlotIndex newRoot_ = kNoSlot;
};

}  // namespace internal
}  // namespace Mirra
