#pragma once
// Declared attributes: an entity declares each attribute once and gets its accessor family; its
// reactor interface declares the matching handlers. README.md in this folder has an example.
//
// In E::NotifieeConst (the reactor interface), for attribute `name` / `Name`:
//   KEL_ON(Name)                  virtual void onName()
//   KEL_ON_KEY(Name, Key)         virtual void onName(Kel::HandlerArg<Key>) (numbers by value, the
//                                 rest by const reference) and virtual void onName(), the
//                                 second meaning "the whole collection changed" (nameNotify()).
//
// In E, after NotifieeConst (each macro leaves the access at public):
//   KEL_ENTITY_NAME("Ns::E")      the class name the null-mutator refusal quotes.
//   KEL_KEY(E, name, Type...)     the identity an entity is constructed with and never changes:
//       explicit E(const Type& name), name()
//   KEL_SCALAR(name, Name, initial, Type...)
//       name(), nameIs(v)
//   KEL_COUNTER(name, Name, initial, Type...)
//       as KEL_SCALAR, plus nameInc(n) and nameDec(n), which return the value stored; nameDec
//       wraps below zero for unsigned types.
//   KEL_COUNTER_HOOKED(name, Name, initial, Type...)
//       as KEL_COUNTER, for a value whose changes bring more with them: the entity declares
//       void nameChanged(const Type& previous), run after each stored change and before the
//       change is notified, so that a handler sees what the hook did.
//   KEL_REFERENCE(name, Name, Member)   one member entity, held as Kel::Ptr<Member>:
//       name() (read-only, null when none), nameMutable() (the writer's handle, or null),
//       nameIs(member) (adopts; a null member is refused with "null _name parameter to mutator
//       for Ns::E::name not allowed"), nameIs() (creates Member() when there is none; returns
//       the one held), nameDel()
//   KEL_VALUE_COLLECTION(name, Name, Collection...)
//       name(), name(key) (the default value when absent), nameIs(key, v), nameDel(key),
//       nameDelAll(), nameNotify(key), nameNotify()
//   KEL_COUNTER_COLLECTION(name, Name, Collection...)
//       as KEL_VALUE_COLLECTION, plus nameInc(key, n) and nameDec(key, n): an absent counter
//       counts from the default value; both return the value stored (unsigned ones wrap).
//   KEL_ENTITY_COLLECTION(name, Name, Collection...)   (members stored as Kel::Ptr<M>)
//       name(), name(key) (read-only, null when absent), nameIs(key) (creates M(key) or returns
//       the member present), nameIs(key, member) (adopts; a null member is refused with
//       "null _name parameter to mutator for Ns::E::name not allowed"), nameMutable(key) (the
//       writer's handle, or null), nameDel(key), nameDelAll(), nameNotify(key), nameNotify()
//
// In an owner that has no reactor interface of its own (a state machine), for what it alone
// creates, holds and deletes; these notify nobody:
//   KEL_OWNED_SCALAR(name, initial, Type...)   name(), nameIs(v)
//   KEL_OWNED_COUNTER(name, initial, Type...)
//       as KEL_OWNED_SCALAR, plus nameInc(n) and nameDec(n), as KEL_COUNTER's.
//   KEL_OWNED_VALUE_COLLECTION(name, Collection...)
//       name(), name(key) (the default value when absent), nameIs(key, v), nameDel(key),
//       nameDelAll() (empties the collection at once)
//   KEL_OWNED_COUNTER_COLLECTION(name, Collection...)
//       as KEL_OWNED_VALUE_COLLECTION, plus nameInc(key, n) and nameDec(key, n), as
//       KEL_COUNTER_COLLECTION's.
//   KEL_OWNED(name, factory, Type...)   one object, held as Type (a Kel::Ptr):
//       name() (null until created), nameIs(args...) (creates it as factory(args...) when absent;
//       returns the one held), nameDel()
//   KEL_OWNED_COLLECTION(name, Collection...)   (members stored as Kel::Ptr<M>)
//       name(), name(key) (read-only, null when absent), nameIs(key) (creates M(key) or returns
//       the member present), nameMutable(key), nameDel(key), nameDelAll() (one member at a time,
//       lowest key first for ordered collections)
//   KEL_OWNED_COLLECTION_HOOKED(name, Collection...)
//       as KEL_OWNED_COLLECTION, for members that bring more with them: the owner declares
//       void nameCreated(const Kel::Ptr<M>&), run after nameIs created a member, and
//       void nameDeleting(key), run by nameDel before the member present is removed.
//   KEL_SCRATCH_COLLECTION(name, Collection...)   for what one call fills and empties again, in
//       a Kel::FlatCollection of Kel::Ptr<M>: as KEL_OWNED_COLLECTION, except that nameDelAll
//       keeps each member nobody else holds, emptied by its recycle(), and nameIs(key) takes such
//       a member back, renamed by its reuseFor(key), before it creates one: a warm owner
//       allocates no member. M provides recycle() and reuseFor(key).
//
// Rules every generated mutator keeps (the framework's "only a change notifies"):
//  1. Each mutator stores first and notifies after: a handler sees the new state.
//  2. Storing what is already held stores and notifies nothing (nor runs a hook); nameIs(key)
//     notifies only when it creates; nameDel of an absent key notifies nothing; nameNotify
//     always notifies.
//  3. nameDelAll deletes one member at a time, lowest key first for ordered collections, and
//     notifies each key after its deletion.
//  4. Without registered reactors a mutator costs the store alone (Entity.h invariant 7).
//
// Type and collection arguments come last, so that template types with commas need no alias.

#include <type_traits>
#include <utility>
#include <vector>

#include "framework/Kel/Exception.h"
#include "framework/Kel/Ptr.h"

namespace Kel {

// How a handler receives a key: numbers and enums by value, everything else by const reference.
template <class K>
using HandlerArg = std::conditional_t<std::is_scalar_v<K>, K, const K&>;

// The factory KEL_OWNED takes for a type built by its own constructor: Kel::create<T>.
template <class T, class... Args>
Ptr<T> create(const Args&... args) {
  return Ptr<T>(new T(args...));
}

}  // namespace Kel

#define KEL_ON(Name) \
  virtual void on##Name() {}

#define KEL_ON_KEY(Name, Key)                                      \
  virtual void on##Name(::Kel::HandlerArg<Key> key) { (void)key; } \
  virtual void on##Name() {}

#define KEL_ENTITY_NAME(className) \
 public:                           \
  static const char* kelClassName() { return className; }

#define KEL_KEY(Class, name, ...)                            \
 public:                                                     \
  explicit Class(const __VA_ARGS__& name) : name##_(name) {} \
  const __VA_ARGS__& name() const { return name##_; }        \
                                                             \
 private:                                                    \
  const __VA_ARGS__ name##_;                                 \
                                                             \
 public:

// A stored value and its reader; nameIs(value) runs `store` (which stores it, and may do more)
// only when value differs from the one held.
#define KEL_INTERNAL_SCALAR(name, store, initial, ...) \
 private:                                              \
  __VA_ARGS__ name##_ = initial;                       \
                                                       \
 public:                                               \
  const __VA_ARGS__& name() const { return name##_; }  \
  void name##Is(const __VA_ARGS__& value) {            \
    if (name##_ == value) return;                      \
    store;                                             \
  }

#define KEL_INTERNAL_COUNTER_STEPS(name, ...)        \
  __VA_ARGS__ name##Inc(const __VA_ARGS__& n) {      \
    name##Is(static_cast<__VA_ARGS__>(name##_ + n)); \
    return name##_;                                  \
  }                                                  \
  __VA_ARGS__ name##Dec(const __VA_ARGS__& n) {      \
    name##Is(static_cast<__VA_ARGS__>(name##_ - n)); \
    return name##_;                                  \
  }

#define KEL_INTERNAL_NOTIFY(Name) \
  notify(static_cast<void (NotifieeConst::*)()>(&NotifieeConst::on##Name))

#define KEL_SCALAR(name, Name, initial, ...) \
  KEL_INTERNAL_SCALAR(name, name##_ = value; KEL_INTERNAL_NOTIFY(Name), initial, __VA_ARGS__)

#define KEL_COUNTER(name, Name, initial, ...)  \
  KEL_SCALAR(name, Name, initial, __VA_ARGS__) \
  KEL_INTERNAL_COUNTER_STEPS(name, __VA_ARGS__)

#define KEL_COUNTER_HOOKED(name, Name, initial, ...)                                            \
  KEL_INTERNAL_SCALAR(name, const auto previous = name##_; name##_ = value;                     \
                      name##Changed(previous); KEL_INTERNAL_NOTIFY(Name), initial, __VA_ARGS__) \
  KEL_INTERNAL_COUNTER_STEPS(name, __VA_ARGS__)

#define KEL_REFERENCE(name, Name, Member)                         \
 private:                                                         \
  ::Kel::Ptr<Member> name##_;                                     \
                                                                  \
 public:                                                          \
  ::Kel::PtrConst<Member> name() const { return name##_; }        \
  const ::Kel::Ptr<Member>& name##Mutable() { return name##_; }   \
  ::Kel::Ptr<Member> name##Is(const ::Kel::Ptr<Member>& member) { \
    ::Kel::requireEntity(member, kelClassName(), #name);          \
    if (member == name##_) return name##_;                        \
    name##_ = member;                                             \
    KEL_INTERNAL_NOTIFY(Name);                                    \
    return name##_;                                               \
  }                                                               \
  ::Kel::Ptr<Member> name##Is() {                                 \
    if (name##_) return name##_;                                  \
    return name##Is(::Kel::Ptr<Member>(new Member));              \
  }                                                               \
  void name##Del() {                                              \
    if (!name##_) return;                                         \
    name##_ = nullptr;                                            \
    KEL_INTERNAL_NOTIFY(Name);                                    \
  }

// The storage and readers every collection shares.
#define KEL_INTERNAL_COLLECTION_READERS(name, ...)    \
 private:                                             \
  __VA_ARGS__ name##_;                                \
                                                      \
 public:                                              \
  const __VA_ARGS__& name() const { return name##_; } \
  __VA_ARGS__::ExposedType name(const __VA_ARGS__::Key& key) const { return name##_.find(key); }

// The accessors both kinds of notifying collection share.
#define KEL_INTERNAL_COLLECTION(name, Name, ...)                                      \
  KEL_INTERNAL_COLLECTION_READERS(name, __VA_ARGS__)                                  \
                                                                                      \
 private:                                                                             \
  void name##Changed(const __VA_ARGS__::Key& key) {                                   \
    notify(static_cast<void (NotifieeConst::*)(::Kel::HandlerArg<__VA_ARGS__::Key>)>( \
               &NotifieeConst::on##Name),                                             \
           key);                                                                      \
  }                                                                                   \
                                                                                      \
 public:                                                                              \
  void name##Del(const __VA_ARGS__::Key& key) {                                       \
    if (name##_.erase(key)) name##Changed(key);                                       \
  }                                                                                   \
  void name##DelAll() {                                                               \
    name##_.eraseAll([this](const __VA_ARGS__::Key& key) { name##Changed(key); });    \
  }                                                                                   \
  void name##Notify(const __VA_ARGS__::Key& key) { name##Changed(key); }              \
  void name##Notify() { KEL_INTERNAL_NOTIFY(Name); }

#define KEL_VALUE_COLLECTION(name, Name, ...)                                        \
  KEL_INTERNAL_COLLECTION(name, Name, __VA_ARGS__)                                   \
  void name##Is(const __VA_ARGS__::Key& key, const __VA_ARGS__::StoredType& value) { \
    if (name##_.set(key, value)) name##Changed(key);                                 \
  }

#define KEL_ENTITY_COLLECTION(name, Name, ...)                                        \
  KEL_INTERNAL_COLLECTION(name, Name, __VA_ARGS__)                                    \
  __VA_ARGS__::StoredType name##Is(const __VA_ARGS__::Key& key) {                     \
    auto inserted = name##_.insertNew(key, [&key] {                                   \
      return __VA_ARGS__::StoredType(new __VA_ARGS__::StoredType::Element(key));      \
    });                                                                               \
    if (inserted.second) name##Changed(key);                                          \
    return inserted.first;                                                            \
  }                                                                                   \
  void name##Is(const __VA_ARGS__::Key& key, const __VA_ARGS__::StoredType& member) { \
    ::Kel::requireEntity(member, kelClassName(), #name);                              \
    if (name##_.set(key, member)) name##Changed(key);                                 \
  }                                                                                   \
  __VA_ARGS__::StoredType name##Mutable(const __VA_ARGS__::Key& key) {                \
    const auto* stored = name##_.findStored(key);                                     \
    return stored ? *stored : nullptr;                                                \
  }

#define KEL_INTERNAL_COUNTER_COLLECTION_STEPS(name, ...)                            \
  __VA_ARGS__::StoredType name##Inc(const __VA_ARGS__::Key& key,                    \
                                    const __VA_ARGS__::StoredType& n) {             \
    const auto value = static_cast<__VA_ARGS__::StoredType>(name##_.find(key) + n); \
    name##Is(key, value);                                                           \
    return value;                                                                   \
  }                                                                                 \
  __VA_ARGS__::StoredType name##Dec(const __VA_ARGS__::Key& key,                    \
                                    const __VA_ARGS__::StoredType& n) {             \
    const auto value = static_cast<__VA_ARGS__::StoredType>(name##_.find(key) - n); \
    name##Is(key, value);                                                           \
    return value;                                                                   \
  }

#define KEL_COUNTER_COLLECTION(name, Name, ...) \
  KEL_VALUE_COLLECTION(name, Name, __VA_ARGS__) \
  KEL_INTERNAL_COUNTER_COLLECTION_STEPS(name, __VA_ARGS__)

#define KEL_OWNED_SCALAR(name, initial, ...) \
  KEL_INTERNAL_SCALAR(name, name##_ = value, initial, __VA_ARGS__)

#define KEL_OWNED_COUNTER(name, initial, ...)  \
  KEL_OWNED_SCALAR(name, initial, __VA_ARGS__) \
  KEL_INTERNAL_COUNTER_STEPS(name, __VA_ARGS__)

#define KEL_OWNED_VALUE_COLLECTION(name, ...)                                        \
  KEL_INTERNAL_COLLECTION_READERS(name, __VA_ARGS__)                                 \
  void name##Is(const __VA_ARGS__::Key& key, const __VA_ARGS__::StoredType& value) { \
    name##_.set(key, value);                                                         \
  }                                                                                  \
  void name##Del(const __VA_ARGS__::Key& key) { name##_.erase(key); }                \
  void name##DelAll() { name##_.clear(); }

#define KEL_OWNED_COUNTER_COLLECTION(name, ...) \
  KEL_OWNED_VALUE_COLLECTION(name, __VA_ARGS__) \
  KEL_INTERNAL_COUNTER_COLLECTION_STEPS(name, __VA_ARGS__)

#define KEL_OWNED(name, factory, ...)                 \
 private:                                             \
  __VA_ARGS__ name##_;                                \
                                                      \
 public:                                              \
  const __VA_ARGS__& name() const { return name##_; } \
  template <class... Args>                            \
  __VA_ARGS__ name##Is(const Args&... args) {         \
    if (!name##_) name##_ = factory(args...);         \
    return name##_;                                   \
  }                                                   \
  void name##Del() { name##_ = nullptr; }

#define KEL_OWNED_COLLECTION_HOOKED(name, ...)                                   \
  KEL_INTERNAL_COLLECTION_READERS(name, __VA_ARGS__)                             \
  __VA_ARGS__::StoredType name##Is(const __VA_ARGS__::Key& key) {                \
    auto inserted = name##_.insertNew(key, [&key] {                              \
      return __VA_ARGS__::StoredType(new __VA_ARGS__::StoredType::Element(key)); \
    });                                                                          \
    if (inserted.second) name##Created(inserted.first);                          \
    return inserted.first;                                                       \
  }                                                                              \
  __VA_ARGS__::StoredType name##Mutable(const __VA_ARGS__::Key& key) const {     \
    const auto* stored = name##_.findStored(key);                                \
    return stored ? *stored : nullptr;                                           \
  }                                                                              \
  void name##Del(const __VA_ARGS__::Key& key) {                                  \
    if (!name##_.contains(key)) return;                                          \
    name##Deleting(key);                                                         \
    name##_.erase(key);                                                          \
  }                                                                              \
  void name##DelAll() {                                                          \
    while (!name##_.empty()) name##Del((*name##_.begin()).first);                \
  }

#define KEL_OWNED_COLLECTION(name, ...)                 \
 private:                                               \
  void name##Created(const __VA_ARGS__::StoredType&) {} \
  void name##Deleting(const __VA_ARGS__::Key&) {}       \
  KEL_OWNED_COLLECTION_HOOKED(name, __VA_ARGS__)

#define KEL_SCRATCH_COLLECTION(name, ...)                                                         \
  KEL_INTERNAL_COLLECTION_READERS(name, __VA_ARGS__)                                              \
 private:                                                                                         \
  std::vector<__VA_ARGS__::StoredType> name##Spares_;                                             \
                                                                                                  \
 public:                                                                                          \
  __VA_ARGS__::StoredType name##Is(const __VA_ARGS__::Key& key) {                                 \
    return name##_                                                                                \
        .insertNew(key,                                                                           \
                   [this, &key] {                                                                 \
                     if (name##Spares_.empty()) {                                                 \
                       return __VA_ARGS__::StoredType(new __VA_ARGS__::StoredType::Element(key)); \
                     }                                                                            \
                     __VA_ARGS__::StoredType member = std::move(name##Spares_.back());            \
                     name##Spares_.pop_back();                                                    \
                     member->reuseFor(key);                                                       \
                     return member;                                                               \
                   })                                                                             \
        .first;                                                                                   \
  }                                                                                               \
  __VA_ARGS__::StoredType name##Mutable(const __VA_ARGS__::Key& key) const {                      \
    const auto* stored = name##_.findStored(key);                                                 \
    return stored ? *stored : nullptr;                                                            \
  }                                                                                               \
  void name##Del(const __VA_ARGS__::Key& key) { name##_.erase(key); }                             \
  void name##DelAll() {                                                                           \
    name##_.clear([this](__VA_ARGS__::StoredType& member) {                                       \
      if (member->references() != 1) return;                                                      \
      member->recycle();                                                                          \
      name##Spares_.push_back(std::move(member));                                                 \
    });                                                                                           \
  }
