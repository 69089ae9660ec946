#pragma once
// Reactors: objects told about changes of one notifier entity.
//
// Each entity type E has a nested `E::Notifiee` deriving from NotifieeOf<E>,
// with one virtual handler per attribute (`onX()`, `onX(key)`). A reactor binds
// to one notifier through notifierIs (re-binding detaches from the old one),
// can switch delivery off with hasNotificationActiveIs(false), and detaches
// when destroyed, also from inside its own handler. Delivery is immediate by
// default; deferredIs(true) queues it on the activity manager, coalesced per
// (reactor, handler, key).
#include <cstdint>

#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"

namespace Vex {

class Entity;

class FALMROUTE_EXPORT NotifieeBase {
 public:
  NotifieeBase(NotifieeBase const&) = delete;
  NotifieeBase& operator=(NotifieeBase const&) = delete;
  virtual ~NotifieeBase();

  bool notificationActive() const { return active_; }
  virtual void hasNotificationActiveIs(bool active) { active_ = active; }
  bool deferred() const { return deferred_; }
  void deferredIs(bool deferred) { deferred_ = deferred; }
  Entity const* notifierBase() const { return notifier_; }

 protected:
  NotifieeBase() = default;
  // Detaches from the current notifier and attaches to e (may be null).
  void notifierBaseIs(Entity const* e);

 private:
  friend class Entity;
  friend class ActivityManager;
  Entity const* notifier_ = nullptr;
  std::uint32_t pendingDeferred_ = 0;
  bool active_ = true;
  bool deferred_ = false;
};

template <class E>
class NotifieeOf : public NotifieeBase {
 public:
  using Notifier = E;
  ~NotifieeOf() override { notifierBaseIs(nullptr); }

  Ptr<E const> const& notifier() const { return notifier_; }
  // Binds to e; a no-op when e is already the notifier. Runs onNotifier()
  // after binding so a reactor can catch up with the new notifier's state.
  void notifierIs(Ptr<E const> const& e) {
    if (e.get() == notifier_.get()) return;
    notifierBaseIs(e.get());
    notifier_ = e;
    onNotifier();
  }
  virtual void onNotifier() {}

 private:
  Ptr<E const> notifier_;
};

}  // namespace Vex
