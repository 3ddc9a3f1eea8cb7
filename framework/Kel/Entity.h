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
//     a handler may drop the last reference to its own reactor.
//  4. The entity is held alive for the length of a dispatch once anyone holds it through a Ptr.
//  5. An exception from a handler leaves the entity's reactor list consistent and propagates.

#include <cstddef>
#include <vector>

#include "framework/Kel/Ptr.h"

namespace Kel {

class Entity;

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

 private:
  friend class Entity;

  const Entity* entity_ = nullptr;
  bool registered_ = true;
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
      Ptr<NotifieeBase> keepAlive =
          reactor->references() > 0 ? Ptr<NotifieeBase>(reactor) : nullptr;
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
