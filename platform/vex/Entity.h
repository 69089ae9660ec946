#pragma once
// Entities: reference-counted objects whose attribute changes are told to
// their notifiees.
//
// A derived entity's mutator changes its state and then calls
// notify(&Notifiee::onX) or notify(&Notifiee::onX, key). A mutator that
// changes nothing must not notify. Handlers may add or remove notifiees and
// mutate the entity while they run; a notifiee added during a delivery is
// not told about that delivery.
#include <functional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/vex/Export.h"
#include "platform/vex/Notifiee.h"
#include "platform/vex/Ptr.h"

namespace Vex {

namespace detail {
// Queues a deferred delivery on the current activity manager, coalesced by key.
FALMROUTE_EXPORT void deferNotification(NotifieeBase* n, std::string key, std::function<void()> fire);
}  // namespace detail

class FALMROUTE_EXPORT Entity : public RefCounted {
 public:
  Entity() = default;
  std::size_t notifieeCount() const;

  void notifieeAdd(NotifieeBase* n) const;
  void notifieeDel(NotifieeBase* n) const;

 protected:
  ~Entity() override;

  template <class N, class... P, class... A>
  void notify(void (N::*handler)(P...), A const&... args) const {
    deliver<false>(handler, args...);
  }
  // Delivers inside the mutator also to reactors that asked for deferred
  // delivery: for handlers that must see the change before anything else runs.
  template <class N, class... P, class... A>
  void notifyImmediate(void (N::*handler)(P...), A const&... args) const {
    deliver<true>(handler, args...);
  }

 private:
  template <bool kImmediate, class N, class... P, class... A>
  void deliver(void (N::*handler)(P...), A const&... args) const;
  void compact() const;
  template <class N, class... P, class... A>
  static std::string coalesceKey(NotifieeBase* n, void (N::*handler)(P...), A const&... args);

  mutable std::vector<NotifieeBase*>* notifiees_ = nullptr;
  mutable std::uint16_t iterating_ = 0;
  mutable bool holes_ = false;
};

template <class N, class... P, class... A>
std::string Entity::coalesceKey(NotifieeBase* n, void (N::*handler)(P...), A const&... args) {
  std::ostringstream os;
  os << static_cast<void const*>(n) << '/';
  auto const* bytes = reinterpret_cast<unsigned char const*>(&handler);
  for (std::size_t i = 0; i < sizeof handler; ++i) os << static_cast<int>(bytes[i]) << '.';
  ((os << '/' << args), ...);
  return os.str();
}

template <bool kImmediate, class N, class... P, class... A>
void Entity::deliver(void (N::*handler)(P...), A const&... args) const {
  if (!notifiees_ || notifiees_->empty()) return;
  // Holds the entity through delivery; not during construction, when nothing owns it yet.
  Ptr<Entity const> keepAlive(references() ? this : nullptr);
  ++iterating_;
  std::size_t const n = notifiees_->size();
  for (std::size_t i = 0; i < n; ++i) {
    NotifieeBase* nb = (*notifiees_)[i];
    if (!nb || !nb->active_) continue;
    N* target;
    if constexpr (std::is_same_v<typename N::Notifier::Notifiee, N>) {
      target = static_cast<N*>(nb);
    } else {
      // A derived entity's own notifiee: reactors of the base entity type may
      // be attached too and have no such handler.
      target = dynamic_cast<N*>(nb);
      if (!target) continue;
    }
    if (!kImmediate && nb->deferred_) {
      detail::deferNotification(nb, coalesceKey(nb, handler, args...), [target, handler, args...] { (target->*handler)(args...); });
    } else {
      (target->*handler)(args...);
    }
  }
  if (--iterating_ == 0 && holes_) compact();
}

}  // namespace Vex
