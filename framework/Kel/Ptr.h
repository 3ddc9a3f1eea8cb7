#pragma once
// Kel::Ptr<T>: the framework's intrusive reference-counted pointer.
//
// Invariants:
//  1. Every object reached through a Ptr derives from Kel::PtrInterface, which holds its count.
//  2. Copying a Ptr adds one reference, destroying or resetting it removes one; the object is
//     deleted when its count drops to zero.
//  3. Whether counts change atomically is one process-wide switch (threadSafePtrsIs); it must be
//     chosen before any object is shared between threads and not flipped while objects are live
//     on more than one thread. The event thread itself never needs atomic counts.
//
// Kel::PtrConst<T> is Ptr<T const>: read-only access to the same object and the same count.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace Kel {

namespace internal {
// The switch below; read on every count change, so it is visible to the inline fast path.
extern std::atomic<bool> atomicCounts;
}  // namespace internal

// REQUIRES: no Ptr is being copied or dropped on another thread while the switch changes.
void threadSafePtrsIs(bool threadSafe);
bool threadSafePtrs();

class PtrInterface {
 public:
  PtrInterface() = default;
  PtrInterface(const PtrInterface&) : references_(0) {}
  PtrInterface& operator=(const PtrInterface&) { return *this; }
  virtual ~PtrInterface() = default;

  std::uint32_t references() const { return references_.load(std::memory_order_relaxed); }

  void newRef() const {
    if (internal::atomicCounts.load(std::memory_order_relaxed)) {
      references_.fetch_add(1, std::memory_order_relaxed);
    } else {
      // A relaxed load and store compile to plain arithmetic, with no locked instruction.
      references_.store(references_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }
  // Deletes the object when the last reference goes, after telling it (lastReferenceGone).
  void deleteRef() const {
    std::uint32_t remaining;
    if (internal::atomicCounts.load(std::memory_order_relaxed)) {
      remaining = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      remaining = references_.load(std::memory_order_relaxed) - 1;
      references_.store(remaining, std::memory_order_relaxed);
    }
    if (remaining == 0) lastReferenceDropped();
  }

 protected:
  // Called once, just before deleteRef deletes the object, while it is still whole.
  virtual void lastReferenceGone() const {}

 private:
  // Out of line: the rare path that tells and deletes the object.
  void lastReferenceDropped() const;

  mutable std::atomic<std::uint32_t> references_{0};
};

template <class T>
class Ptr {
 public:
  using Element = T;

  Ptr() = default;
  Ptr(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): null converts implicitly
  Ptr(T* object) : object_(object) { acquire(); }  // NOLINT(google-explicit-constructor)
  Ptr(const Ptr& other) : object_(other.object_) { acquire(); }
  Ptr(Ptr&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(const Ptr<U>& other) : object_(other.ptr()) {  // NOLINT(google-explicit-constructor)
    acquire();
  }
  ~Ptr() { release(); }

  Ptr& operator=(const Ptr& other) {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }

  T* ptr() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }

  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  template <class U>
  bool operator==(const Ptr<U>& other) const {
    return object_ == other.ptr();
  }
  template <class U>
  bool operator!=(const Ptr<U>& other) const {
    return object_ != other.ptr();
  }
  bool operator==(std::nullptr_t) const { return object_ == nullptr; }
  bool operator!=(std::nullptr_t) const { return object_ != nullptr; }

 private:
  void acquire() const {
    if (object_) object_->newRef();
  }
  void release() {
    if (object_) object_->deleteRef();
  }

  T* object_ = nullptr;
};

template <class T>
using PtrConst = Ptr<T const>;

// Ptr<T> from a Ptr of a base or const type, when the caller knows the dynamic type.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& from) {
  return Ptr<T>(static_cast<T*>(const_cast<std::remove_const_t<U>*>(from.ptr())));
}

}  // namespace Kel

template <class T>
struct std::hash<Kel::Ptr<T>> {
  std::size_t operator()(const Kel::Ptr<T>& p) const noexcept { return std::hash<T*>()(p.ptr()); }
};
