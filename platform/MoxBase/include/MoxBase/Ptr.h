// Ptr<T>: a counted pointer whose count lives in the object; null is allowed.
//
// An object starts with a count of 1, which makePtr adopts: constructors here set attributes and
// hand out pointers to the object, and with a start at 0 the first of those to be released would
// delete it. The last Ptr to be released deletes the object. Dereferencing a null Ptr is a fatal
// assertion.
//
// Counts are plain numbers unless thread-safe pointers are switched on, which must happen before
// the first object exists.
//
//   Ptr<QuerierStatus> status = makePtr<QuerierStatus>();
#pragma once

#include <atomic>
#include <compare>
#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

#include <MoxBase/Export.h>
#include <MoxBase/Fatal.h>
#include <MoxBase/Pool.h>
#include <MoxBase/Types.h>

namespace Mox {

// True when counts are atomic. Set before the first counted object is made, or not at all.
MOX_PUBLIC bool threadSafePtrs();
MOX_PUBLIC void threadSafePtrsIs(bool on);

namespace detail {
extern MOX_PUBLIC bool threadSafePtrs;
}

// Base of everything that a Ptr may hold.
class MOX_PUBLIC RefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  void ref() const {
    if (detail::threadSafePtrs) [[unlikely]] {
      std::atomic_ref(refs_).fetch_add(1, std::memory_order_relaxed);
    } else {
      ++refs_;
    }
  }

  void unref() const {
    if (detail::threadSafePtrs) [[unlikely]] {
      if (std::atomic_ref(refs_).fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    } else if (--refs_ == 0) {
      delete this;
    }
  }

  U32 refs() const { return refs_; }

  static void* operator new(size_t bytes) { return poolNew(bytes); }
  static void operator delete(void* object, size_t bytes) { poolDelete(object, bytes); }

 protected:
  RefCounted() = default;
  virtual ~RefCounted() = default;

 private:
  mutable U32 refs_ = 1;
};

template <class U, class T>
concept PointsTo = std::convertible_to<U*, T*>;

template <class T>
class Ptr {
 public:
  using element_type = T;

  Ptr() = default;
  Ptr(std::nullptr_t) {}                           // NOLINT(google-explicit-constructor)
  Ptr(T* object) : object_(object) { acquire(); }  // NOLINT(google-explicit-constructor)
  Ptr(const Ptr& other) : object_(other.object_) { acquire(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <PointsTo<T> U>
  Ptr(const Ptr<U>& other) : object_(other.get()) {  // NOLINT(google-explicit-constructor)
    acquire();
  }
  template <PointsTo<T> U>
  Ptr(Ptr<U>&& other) noexcept : object_(other.release()) {}  // NOLINT(google-explicit-constructor)
  ~Ptr() { drop(); }

  Ptr& operator=(const Ptr& other) { return *this = Ptr(other); }
  Ptr& operator=(Ptr&& other) noexcept {
    if (this != &other) {
      T* const old = std::exchange(object_, other.release());
      if (old != nullptr) old->unref();  // last: its end may come back to this pointer
    }
    return *this;
  }

  // Takes over a count that the caller holds.
  static Ptr adopt(T* object) {
    Ptr p;
    p.object_ = object;
    return p;
  }
  // Gives up the object with its count.
  T* release() { return std::exchange(object_, nullptr); }

  T* get() const { return object_; }
  T* operator->() const {
    fatalUnless(object_ != nullptr, "Mox", "Ptr is not null");
    return object_;
  }
  T& operator*() const { return *operator->(); }
  explicit operator bool() const { return object_ != nullptr; }

  friend bool operator==(const Ptr& a, const Ptr& b) { return a.object_ == b.object_; }
  friend bool operator==(const Ptr& a, std::nullptr_t) { return a.object_ == nullptr; }

 private:
  void acquire() const {
    if (object_ != nullptr) object_->ref();
  }
  void drop() const {
    if (object_ != nullptr) object_->unref();
  }

  T* object_ = nullptr;
};

// A pointer to an object without attributes is shown as whether it is there.
template <class T>
bool shownValue(const Ptr<T>& pointer) {
  return pointer != nullptr;
}

template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>::adopt(new T(std::forward<Args>(args)...));
}

}  // namespace Mox
