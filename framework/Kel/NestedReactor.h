#pragma once
// Reactors nested in an owner: the owner (a state machine) watches its inputs through reactors it
// creates, one per watched object, and those reactors call back into it.
//
//  Kel::ReactorOwner               base of an owner; knows when the owner is being torn down.
//  Kel::NestedReactor<Owner, N>    base of a reactor nested in Owner, where N is the watched
//                                  entity's reactor interface (E::NotifieeConst).
//  Kel::NestedReactorCollection    the owner's keyed set of nested reactors, with a creation step
//                                  and a delete hook per member.
//  Kel::NestedReactorPtr<R>        the owner's handle on one nested reactor.
//
// Invariants:
//  1. While a nested reactor's handler runs (called by a dispatch or by the collection's hooks),
//     the reactor and its owner are held alive, and so are the owner's owners when the owner is
//     itself a nested reactor (ReactorHold): a handler that drops the last outside reference to
//     its owner finishes on a live owner. No reactor writes its own keep-alive.
//  2. ownerTearingDown() is true from the moment the last reference to the root owner goes (or
//     its destructor calls tearDownBegin(), for an owner never held through a Ptr); handlers that
//     would write on the owner's behalf do nothing then.
//  3. NestedReactorCollection::insertNew constructs R(owner, args...), inserts it, then runs its
//     handleInit(); a member already present is returned as it is. Construction that inserts
//     other members (or the same key) leaves the collection correct (Collection.h invariant 4).
//  4. erase(key) runs the member's handleDel() while it is still attached and still in the
//     collection, unless the owner is being torn down; then removes and detaches it, also when
//     handleDel throws. A member is deleted once: an erase of the same key from inside its
//     handleDel does nothing.
//  5. Destroying the collection (or NestedReactorPtr) detaches every reactor without running
//     handleDel: a reactor still held by a dispatch in progress receives nothing more.
//
// handleInit() and handleDel() are found by name on R: NestedReactor declares empty ones, and a
// reactor that needs a hook declares its own (no virtual call).

#include <type_traits>
#include <utility>

#include "framework/Kel/Collection.h"
#include "framework/Kel/Entity.h"
#include "framework/Kel/Ptr.h"

namespace Kel {

class ReactorOwner : public PtrInterface {
 public:
  bool tearingDown() const { return tearingDown_; }

 protected:
  // For an owner destroyed otherwise than by dropping its last Ptr: the destructor's first line.
  void tearDownBegin() { tearingDown_ = true; }

 private:
  void lastReferenceGone() const override { tearingDown_ = true; }

  mutable bool tearingDown_ = false;
};

// The part of a nested reactor that does not depend on its types.
class NestedReactorBase {
 public:
  bool ownerTearingDown() const { return rootOwner_ != nullptr && rootOwner_->tearingDown(); }
  // The ReactorOwner at the top of the chain of owners, or null.
  const ReactorOwner* rootOwner() const { return rootOwner_; }

 protected:
  const ReactorOwner* rootOwner_ = nullptr;

 private:
  template <class, class, class>
  friend class NestedReactorCollection;
  // A reactor nested in a nested reactor reads its owner's root owner.
  template <class, class>
  friend class NestedReactor;

  bool deleting_ = false;
};

template <class Owner, class N>
class NestedReactor : public N, public NestedReactorBase {
 public:
  Owner* owner() const { return owner_; }

  void handleInit() {}
  void handleDel() {}

 protected:
  explicit NestedReactor(Owner* owner) : owner_(owner) {
    if constexpr (std::is_base_of_v<NotifieeBase, Owner>) {
      this->keepAliveOwnerIs(owner, owner);
    } else {
      this->keepAliveOwnerIs(owner, nullptr);
    }
    if constexpr (std::is_base_of_v<ReactorOwner, Owner>) {
      rootOwner_ = owner;
    } else if constexpr (std::is_base_of_v<NestedReactorBase, Owner>) {
      rootOwner_ = static_cast<const NestedReactorBase*>(owner)->rootOwner();
    }
  }

 private:
  Owner* const owner_;
};

template <class Owner, class K, class R>
class NestedReactorCollection {
 public:
  using Members = OrderedCollection<K, Ptr<R>>;
  using Key = K;
  using Iterator = typename Members::Iterator;

  explicit NestedReactorCollection(Owner* owner) : owner_(owner) {}
  NestedReactorCollection(const NestedReactorCollection&) = delete;
  NestedReactorCollection& operator=(const NestedReactorCollection&) = delete;
  ~NestedReactorCollection() {
    for (const auto& [key, reactor] : members_) reactor->notifierIs(nullptr);
  }

  Iterator begin() const { return members_.begin(); }
  Iterator end() const { return members_.end(); }
  Iterator lowerBound(const K& key) const { return members_.lowerBound(key); }
  std::size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  Ptr<R> find(const K& key) const { return members_.find(key); }
  bool contains(const K& key) const { return members_.contains(key); }

  // Invariant 3; .second tells whether this call created the reactor.
  template <class... Args>
  std::pair<Ptr<R>, bool> insertNew(const K& key, const Args&... args) {
    auto inserted = members_.insertNew(key, [&] { return Ptr<R>(new R(owner_, args...)); });
    if (inserted.second) {
      const ReactorHold hold(*inserted.first);
      inserted.first->handleInit();
    }
    return inserted;
  }

  // Invariant 4; false when there was no member to delete.
  bool erase(const K& key) {
    const Ptr<R> reactor = members_.find(key);
    if (!reactor || reactor->deleting_) return false;
    reactor->deleting_ = true;
    const ReactorHold hold(*reactor);
    const Removal removal{members_, key, reactor};
    if (!reactor->ownerTearingDown()) reactor->handleDel();
    return true;
  }

  // Deletes the members one at a time, lowest key first, each by erase().
  void eraseAll() {
    while (!members_.empty()) erase((*members_.begin()).first);
  }

  // Makes the members follow `source`, a keyed collection whose values construct reactors
  // (R(owner, value)): creates the reactors of keys that lack one, deletes those of keys that
  // `source` no longer holds. For a notification that says only "the whole collection changed".
  template <class Source>
  void resync(const Source& source) {
    for (const auto& [key, reactor] : members_) {
      if (!source.contains(key)) erase(key);
    }
    for (const auto& [key, value] : source) insertNew(key, value);
  }

 private:
  // Removes and detaches the member being deleted, however its delete hook ends.
  struct Removal {
    Members& members;
    const K& key;
    const Ptr<R>& reactor;
    ~Removal() {
      if (members.find(key) == reactor) members.erase(key);
      reactor->notifierIs(nullptr);
    }
  };

  Owner* const owner_;
  Members members_;
};

// One nested reactor held by its owner; replacing or dropping it detaches the previous one.
template <class R>
class NestedReactorPtr {
 public:
  NestedReactorPtr() = default;
  NestedReactorPtr(const NestedReactorPtr&) = delete;
  NestedReactorPtr& operator=(const NestedReactorPtr&) = delete;
  ~NestedReactorPtr() { del(); }

  const Ptr<R>& ptr() const { return reactor_; }
  R* operator->() const { return reactor_.ptr(); }
  explicit operator bool() const { return static_cast<bool>(reactor_); }

  void is(const Ptr<R>& reactor) {
    if (reactor == reactor_) return;
    del();
    reactor_ = reactor;
  }
  void del() {
    if (!reactor_) return;
    const Ptr<R> previous = std::move(reactor_);
    reactor_ = nullptr;
    previous->notifierIs(nullptr);
  }

 private:
  Ptr<R> reactor_;
};

}  // namespace Kel

// In an owner's class body, after Reactor is declared: the collection `name_` of nested reactors
// and its accessors name(), name(key) (null when absent), nameDel(key) (runs the delete hook) and
// nameDelAll(). The creating mutator is the owner's own, since only it knows how a watched object
// yields its key: `return name_.insertNew(key, watched).first;`. Leaves the access at public.
#define KEL_NESTED_REACTORS(name, Owner, Reactor, ...)                                 \
 private:                                                                              \
  ::Kel::NestedReactorCollection<Owner, __VA_ARGS__, Reactor> name##_{this};           \
                                                                                       \
 public:                                                                               \
  const ::Kel::NestedReactorCollection<Owner, __VA_ARGS__, Reactor>& name() const {    \
    return name##_;                                                                    \
  }                                                                                    \
  ::Kel::Ptr<Reactor> name(const __VA_ARGS__& key) const { return name##_.find(key); } \
  void name##Del(const __VA_ARGS__& key) { name##_.erase(key); }                       \
  void name##DelAll() { name##_.eraseAll(); }
