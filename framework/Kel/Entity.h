#pragma once
// Kel::Entity: the base of every object whose attributes notify reactors.
//
// Invariants (the dispatch rules every reactor may rely on):
//  1. Dispatch is synchronous: notify() calls the registered reactors of this entity, in
//     registration order, before it returns. Handlers may change other entities (their reactors
//     run nested) or this one (a nested dispatch on the same entity).
//  2. A reactor detached during a dispatch is not called afterwards by that dispatch; a reactor
//     attached during a dispatch is not called for the notification in progress.
//  3. A reactor that is itself reference counted is held alive for the length of its handler, so
//     a handler may drop the last reference to its own reactor. A nested reactor (NestedReactor.h)
//     also holds the owners it serves, up the chain, for the same length (ReactorHold).
//  4. The entity is held alive for the length of a dispatch once anyone holds it through a Ptr.
//  5. An exception from a handler stops the dispatch in progress and propagates; it leaves the
//     entity's reactor list, the holds and every collection consistent (each mutator stores
//     before it notifies, so what was stored stays stored). Reactors after the thrower are not
//     called for that notification.
//  6. Dispatch is depth first. When reactor A, handling change 1, makes change 2 on an entity that
//     reactor B also watches, B sees change 2 (inside A's handler) before it sees change 1: with
//     A and B registered in that order on one entity, the calls run A(1), A(2), B(2), B(1).
//     A reactor that must see changes in the order they were made reads the current state in
//     its handler instead of trusting the order of notifications.
//  7. An entity without registered reactors pays for a change only the store and one test of an
//     empty list: no dispatch set-up and no reference-count traffic.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/Kel/Ptr.h"

namespace Kel {

class Entity;
class ReactorHold;

// Base of every reactor. Reactors are attached to one entity through Notifiee<E>::notifierIs.
class NotifieeBase : public PtrInterface {
 public:
  NotifieeBase() = default;
  NotifieeBase(const NotifieeBase&) = delete;
  NotifieeBase& operator=(const NotifieeBase&) = delete;
  ~NotifieeBase() override;

  // A reactor that is attached but not registered holds its notifier and receives nothing.
  bool isRegisteredNotifiee() const { return registered_; }
  void isRegisteredNotifieeIs(bool registered) { registered_ = registered; }

 protected:
  void attachTo(const Entity* entity);
  // Called while the reactor is still attached to `from`, just before it leaves it (not from the
  // destructor: a reactor that needs it there calls it from its own destructor).
  virtual void onDetach(const Entity& from) { (void)from; }
  const Entity* attachedEntity() const { return entity_; }
  // Links a nested reactor to the object it serves (NestedReactor sets it): `owner` is held for
  // the length of each handler, and when the owner is itself a reactor (`ownerAsReactor`), its
  // own owners are held too.
  void keepAliveOwnerIs(const PtrInterface* owner, const NotifieeBase* ownerAsReactor) {
    keepAliveOwner_ = owner;
    outerReactor_ = ownerAsReactor;
  }

 private:
  friend class Entity;
  friend class ReactorHold;

  const Entity* entity_ = nullptr;
  const PtrInterface* keepAliveOwner_ = nullptr;
  const NotifieeBase* outerReactor_ = nullptr;
  bool registered_ = true;
};

// Holds a reactor, and every owner up its chain, for the length of one handler; objects whose
// count is zero (under construction or being destroyed) are not held, since taking and dropping
// a reference would delete them. Chains longer than kMaxHeld are held up to kMaxHeld objects.
class ReactorHold {
 public:
  static constexpr std::size_t kMaxHeld = 6;

  explicit ReactorHold(const NotifieeBase& reactor);
  ReactorHold(const ReactorHold&) = delete;
  ReactorHold& operator=(const ReactorHold&) = delete;
  // Releases the reactor first, then its owners outwards.
  ~ReactorHold();

 private:
  void hold(const PtrInterface* object);

  std::array<const PtrInterface*, kMaxHeld> held_{};
  std::size_t count_ = 0;
};

class Entity : public PtrInterface {
 public:
  Entity() = default;
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;
  ~Entity() override;

  std::size_t notifiees() const;

 protected:
  // Calls (reactor->*handler)(args...) on every registered reactor, by the rules above.
  // REQUIRES: every reactor attached to this entity derives from N.
  template <class N, class... Params, class... Args>
  void notify(void (N::*handler)(Params...), const Args&... args) const {
    if (notifiees_.empty()) return;
    DispatchScope scope(*this);
    const std::size_t count = notifiees_.size();
    for (std::size_t i = 0; i < count; ++i) {
      NotifieeBase* reactor = notifiees_[i];
      if (reactor == nullptr || !reactor->isRegisteredNotifiee()) continue;
      const ReactorHold hold(*reactor);
      (static_cast<N*>(reactor)->*handler)(args...);
    }
  }

 private:
  friend class NotifieeBase;

  // Tracks nested dispatches so that detaching during one leaves a hole instead of shifting the
  // list under the loop; the holes are closed when the outermost dispatch ends.
  class DispatchScope {
   public:
    explicit DispatchScope(const Entity& entity);
    ~DispatchScope();

   private:
    const Entity& entity_;
    Ptr<const Entity> keepAlive_;
  };

  void attach(NotifieeBase* reactor) const;
  void detach(NotifieeBase* reactor) const;

  mutable std::vector<NotifieeBase*> notifiees_;
  mutable int dispatchDepth_ = 0;
  mutable bool hasHoles_ = false;
};

// A reactor on entity type E. E::NotifieeConst derives from this and declares E's handlers.
// Invariant: the reactor holds its notifier alive while attached.
template <class E>
class Notifiee : public NotifieeBase {
 public:
  ~Notifiee() override = default;

  const PtrConst<E>& notifier() const { return notifier_; }

  // Attaches to `entity` (detaching from the previous notifier); null detaches.
  void notifierIs(const PtrConst<E>& entity) {
    if (entity == notifier_) return;
    attachTo(entity.ptr());
    notifier_ = entity;
  }

 private:
  PtrConst<E> notifier_;
};

}  // namespace Kel
