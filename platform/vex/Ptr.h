#pragma once
// Intrusive, single-threaded reference counting.
//
// When the count of an object drops to zero the framework calls its virtual
// zeroReferencesIs(). Only if the count is still zero when that returns is the
// object deleted, so an object may revive itself by being stored somewhere
// during the call. References taken and dropped during that call, or during
// the destructor, never start a second release.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <utility>

#include "platform/vex/Export.h"

namespace Vex {

class FALMROUTE_EXPORT RefCounted {
 public:
  RefCounted() = default;
  RefCounted(RefCounted const&) = delete;
  RefCounted& operator=(RefCounted const&) = delete;

  std::uint32_t references() const noexcept { return refs_; }
  void referenceInc() const noexcept { ++refs_; }
  void referenceDec() const {
    if (--refs_ == 0 && state_ == kLive) release();
  }

 protected:
  virtual ~RefCounted() = default;
  // Called when the last reference goes; may revive the object by storing a
  // reference to it.
  virtual void zeroReferencesIs() {}
  bool dying() const noexcept { return state_ == kDying; }

 private:
  enum : std::uint8_t { kLive, kReleasing, kDying };
  void release() const {
    auto* self = const_cast<RefCounted*>(this);
    state_ = kReleasing;
    self->zeroReferencesIs();
    if (refs_ == 0) {
      state_ = kDying;
      delete self;
      return;
    }
    state_ = kLive;
  }
  mutable std::uint32_t refs_ = 0;
  mutable std::uint8_t state_ = kLive;
};

template <class T>
class Ptr {
 public:
  using element_type = T;
  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
  Ptr(T* p) noexcept : p_(p) { inc(); }  // NOLINT(google-explicit-constructor)
  Ptr(Ptr const& o) noexcept : p_(o.p_) { inc(); }
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U> const& o) noexcept : p_(o.get()) { inc(); }  // NOLINT(google-explicit-constructor)
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}  // NOLINT(google-explicit-constructor)
  ~Ptr() { dec(); }

  Ptr& operator=(Ptr const& o) {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) {
    Ptr().swap(*this);
    return *this;
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
  // Gives up ownership without dropping the reference.
  T* release() noexcept { return std::exchange(p_, nullptr); }

  friend bool operator==(Ptr const& a, Ptr const& b) noexcept { return a.p_ == b.p_; }
  friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }
  // Compares without a temporary Ptr, whose release could delete an object
  // that nothing owns yet (one under construction) or count a dying one.
  friend bool operator==(Ptr const& a, T const* b) noexcept { return a.p_ == b; }
  friend auto operator<=>(Ptr const& a, Ptr const& b) noexcept { return std::compare_three_way{}(a.p_, b.p_); }
  friend std::ostream& operator<<(std::ostream& os, Ptr const& p) { return os << static_cast<void const*>(p.p_); }
  template <typename H>
  friend H AbslHashValue(H h, Ptr const& p) {
    return H::combine(std::move(h), p.p_);
  }

 private:
  void inc() const noexcept {
    if (p_) p_->referenceInc();
  }
  void dec() {
    if (p_) std::exchange(p_, nullptr)->referenceDec();
  }
  T* p_ = nullptr;
};

// Allocates a reference-counted object and hands back the first reference.
template <class T, class... A>
Ptr<T> make(A&&... args) {
  return Ptr<T>(new T(std::forward<A>(args)...));
}

template <class T, class U>
Ptr<T> ptrCast(Ptr<U> const& p) {
  return Ptr<T>(static_cast<T*>(p.get()));
}

// Mutable access through a const reference: a reactor holds its notifier as
// Ptr<E const> but may own and drive it (a clock it re-arms).
template <class T>
Ptr<T> ptrConstCast(Ptr<T const> const& p) {
  return Ptr<T>(const_cast<T*>(p.get()));
}

}  // namespace Vex

template <class T>
struct std::hash<Vex::Ptr<T>> {
  std::size_t operator()(Vex::Ptr<T> const& p) const noexcept { return std::hash<T*>()(p.get()); }
};
