#pragma once
// A clock: an entity whose attribute timeMin is its next wake-up time.
//
// When the loop's time reaches timeMin, the clock's notifiees' onTime() run
// once, from the event loop, never from inside timeMinIs. Setting timeMin to
// now runs them at the next turn of the loop; +infinity disarms. Firing leaves
// timeMin as it was (a fired clock still reads its last wake-up time); setting
// any finite time, even the same one, arms it again.
#include <cstddef>
#include <cstdint>

#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Vex {

class ActivityManager;

class FALMROUTE_EXPORT Clock : public Entity {
 public:
  class Notifiee : public NotifieeOf<Clock> {
   public:
    virtual void onTime() {}
    virtual void onTimeMin() {}
  };

  ~Clock() override;
  Seconds timeMin() const { return timeMin_; }
  void timeMinIs(Seconds t);
  // Whether the clock will fire (armed and not yet fired).
  bool scheduled() const { return scheduled_; }
  ActivityManager* activityManager() const { return manager_; }

 private:
  friend class ActivityManager;
  explicit Clock(ActivityManager* manager) : manager_(manager) {}
  void fire();

  ActivityManager* manager_;
  Seconds timeMin_ = kNever;
  std::uint64_t seq_ = 0;
  std::size_t slot_ = 0;  // index in the manager's list of clocks
  bool scheduled_ = false;
};

}  // namespace Vex
