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
// Rules every generated mutator keeps (the framework's "only a change notifies"):
//  1. Each mutator stores first and notifies after: a handler sees the new state.
//  2. Storing what is already held stores and notifies nothing; nameIs(key) notifies only when it
//     creates; nameDel of an absent key notifies nothing; nameNotify always notifies.
//  3. nameDelAll deletes one member at a time, lowest key first for ordered collections, and
//     notifies each key after its deletion.
//  4. Without registered reactors a mutator costs the store alone (Entity.h invariant 7).
//
// Type and collection arguments come last, so that template types with commas need no alias.

#include <type_traits>

#include "framework/Kel/Exception.h"

namespace Kel {

// How a handler receives a key: numbers and enums by value, everything else by const reference.
template <class K>
using HandlerArg = std::conditional_t<std::is_scalar_v<K>, K, const K&>;

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

#define KEL_SCALAR(name, Name, initial, ...)                                  \
 private:                                                                     \
  __VA_ARGS__ name##_ = initial;                                              \
                                                                              \
 public:                                                                      \
  const __VA_ARGS__& name() const { return name##_; }                         \
  void name##Is(const __VA_ARGS__& value) {                                   \
    if (name##_ == value) return;                                             \
    name##_ = value;                                                          \
    notify(static_cast<void (NotifieeConst::*)()>(&NotifieeConst::on##Name)); \
  }

#define KEL_COUNTER(name, Name, initial, ...)        \
  KEL_SCALAR(name, Name, initial, __VA_ARGS__)       \
  __VA_ARGS__ name##Inc(const __VA_ARGS__& n) {      \
    name##Is(static_cast<__VA_ARGS__>(name##_ + n)); \
    return name##_;                                  \
  }                                                  \
  __VA_ARGS__ name##Dec(const __VA_ARGS__& n) {      \
    name##Is(static_cast<__VA_ARGS__>(name##_ - n)); \
    return name##_;                                  \
  }

// The accessors both kinds of collection share.
#define KEL_INTERNAL_COLLECTION(name, Name, ...)                                                 \
 private:                                                                                        \
  __VA_ARGS__ name##_;                                                                           \
  void name##Changed(const __VA_ARGS__::Key& key) {                                              \
    notify(static_cast<void (NotifieeConst::*)(::Kel::HandlerArg<__VA_ARGS__::Key>)>(            \
               &NotifieeConst::on##Name),                                                        \
           key);                                                                                 \
  }                                                                                              \
                                                                                                 \
 public:                                                                                         \
  const __VA_ARGS__& name() const { return name##_; }                                            \
  __VA_ARGS__::ExposedType name(const __VA_ARGS__::Key& key) const { return name##_.find(key); } \
  void name##Del(const __VA_ARGS__::Key& key) {                                                  \
    if (name##_.erase(key)) name##Changed(key);                                                  \
  }                                                                                              \
  void name##DelAll() {                                                                          \
    name##_.eraseAll([this](const __VA_ARGS__::Key& key) { name##Changed(key); });               \
  }                                                                                              \
  void name##Notify(const __VA_ARGS__::Key& key) { name##Changed(key); }                         \
  void name##Notify() { notify(static_cast<void (NotifieeConst::*)()>(&NotifieeConst::on##Name)); }

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

#define KEL_COUNTER_COLLECTION(name, Name, ...)                                     \
  KEL_VALUE_COLLECTION(name, Name, __VA_ARGS__)                                     \
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
