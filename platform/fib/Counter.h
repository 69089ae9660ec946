#pragma once
// One published route counter: the route, its accumulated value, when it was
// last written and whether the route's counter is being polled.
//
// An update time of 0 marks a row that was never written; readers treat such
// a row as absent.
#include <compare>
#include <cstdint>
#include <ostream>
#include <utility>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"
#include "platform/vex/Types.h"

namespace Routing::Multicast::Fib {

class FALMROUTE_EXPORT Counter {
 public:
  Counter() = default;
  Counter(IpGenRouteKey routeKey, std::int64_t value, Vex::Seconds updateTime, bool active)
      : routeKey_(std::move(routeKey)), value_(value), updateTime_(updateTime), active_(active) {}

  IpGenRouteKey const& routeKey() const { return routeKey_; }
  void routeKeyIs(IpGenRouteKey const& k) { routeKey_ = k; }
  std::int64_t value() const { return value_; }
  void valueIs(std::int64_t v) { value_ = v; }
  Vex::Seconds updateTime() const { return updateTime_; }
  void updateTimeIs(Vex::Seconds t) { updateTime_ = t; }
  bool active() const { return active_; }
  void activeIs(bool a) { active_ = a; }

  friend bool operator==(Counter const&, Counter const&) = default;
  // By route key, then update time, value and active flag.
  friend std::partial_ordering operator<=>(Counter const& a, Counter const& b) {
    if (auto c = a.routeKey_ <=> b.routeKey_; c != 0) return c;
    if (auto c = a.updateTime_ <=> b.updateTime_; c != 0) return c;
    if (auto c = a.value_ <=> b.value_; c != 0) return c;
    return a.active_ <=> b.active_;
  }

 private:
  IpGenRouteKey routeKey_;
  std::int64_t value_ = 0;
  Vex::Seconds updateTime_ = 0;
  bool active_ = false;
};

// operator<< writes the strep form:
// "Value('Routing::Multicast::Fib::Counter', ** {'routeKey': %s, 'value': %s, 'updateTime': %s, 'active': %s})"
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, Counter const& c);
FALMROUTE_EXPORT void strepOut(std::ostream& os, Counter const& c);
FALMROUTE_EXPORT Counter strepIn(Vex::StrepParser& p, Vex::StrepTag<Counter>);

}  // namespace Routing::Multicast::Fib
