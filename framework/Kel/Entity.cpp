#include "framework/Kel/Entity.h"

#include <algorithm>

namespace Kel {

NotifieeBase::~NotifieeBase() {
  if (entity_ != nullptr) entity_->detach(this);
}

void NotifieeBase::attachTo(const Entity* entity) {
  if (entity_ == entity) return;
  if (entity_ != nullptr) {
    onDetach(*entity_);
    entity_->detach(this);
  }
  entity_ = entity;
  if (entity_ != nullptr) entity_->attach(this);
}

ReactorHold::ReactorHold(const NotifieeBase& reactor) {
  hold(&reactor);
  for (const NotifieeBase* link = &reactor; link != nullptr; link = link->outerReactor_) {
    hold(link->keepAliveOwner_);
  }
}

ReactorHold::~ReactorHold() {
  for (std::size_t i = 0; i < count_; ++i) held_[i]->deleteRef();
}

void ReactorHold::hold(const PtrInterface* object) {
  if (object == nullptr || object->references() == 0 || count_ == kMaxHeld) return;
  object->newRef();
  held_[count_++] = object;
}

Entity::~Entity() {
  // Reactors normally hold their notifier, so none is left here; a reactor that was attached
  // without a reference (during construction) must not keep a dangling pointer back to us.
  for (NotifieeBase* reactor : notifiees_) {
    if (reactor != nullptr) reactor->entity_ = nullptr;
  }
}

std::size_t Entity::notifiees() const {
  return static_cast<std::size_t>(
      std::count_if(notifiees_.begin(), notifiees_.end(), [](auto* r) { return r != nullptr; }));
}

Entity::DispatchScope::DispatchScope(const Entity& entity)
    : entity_(entity), keepAlive_(entity.references() > 0 ? &entity : nullptr) {
  ++entity_.dispatchDepth_;
}

Entity::DispatchScope::~DispatchScope() {
  if (--entity_.dispatchDepth_ == 0 && entity_.hasHoles_) {
    auto& list = entity_.notifiees_;
    list.erase(std::remove(list.begin(), list.end(), nullptr), list.end());
    entity_.hasHoles_ = false;
  }
}

void Entity::attach(NotifieeBase* reactor) const { notifiees_.push_back(reactor); }

void Entity::detach(NotifieeBase* reactor) const {
  auto found = std::find(notifiees_.begin(), notifiees_.end(), reactor);
  if (found == notifiees_.end()) return;
  if (dispatchDepth_ > 0) {
    *found = nullptr;
    hasHoles_ = true;
  } else {
    notifiees_.erase(found);
  }
}

}  // namespace Kel
