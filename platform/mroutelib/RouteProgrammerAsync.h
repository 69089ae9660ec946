#pragma once
// The route programmer's state for one asynchronous chip, and for each route
// on it: private to the route programmer's sources.
#include <cstdint>
#include <memory>

#include "absl/container/flat_hash_map.h"
#include "platform/bolt/Xact.h"
#include "platform/mroutelib/RouteProgrammer.h"
#include "platform/vex/Clock.h"

namespace MrouteLib {

// Waits for one transaction of one route on one chip.
class RouteProgrammer::XactWait final : public Bolt::Xact::Notifiee {
 public:
  XactWait(RouteProgrammer* programmer, ChipState* chip, std::uint64_t wanted, bool ingress)
      : programmer_(programmer), chip_(chip), wanted_(wanted), ingress_(ingress) {}
  // Destroys this waiter.
  void onStatus() override { programmer_->asyncXactDone(*chip_, wanted_, ingress_, notifier()); }

 private:
  RouteProgrammer* programmer_;  // not owned: the programmer owns the chip's state, which owns this
  ChipState* chip_;              // not owned: likewise
  std::uint64_t wanted_;         // the route's
  bool ingress_;                 // the route's ingress transaction, else its group's
};

// Retries the routes parked on one chip when it fires.
class RouteProgrammer::VexRetryClock final : public Vex::Clock::Notifiee {
 public:
  VexRetryClock(RouteProgrammer* programmer, ChipState* chip) : programmer_(programmer), chip_(chip) {}
  void onTime() override { programmer_->asyncRetryPass(*chip_); }

 private:
  RouteProgrammer* programmer_;  // not owned: the programmer owns the chip's state, which owns this
  ChipState* chip_;              // not owned: likewise
};

// One route on one asynchronous chip, beside its ChipRoute.
struct RouteProgrammer::AsyncRoute {
  RouteId id;
  // Held for the chip: the group its route is bound to, and the one being
  // bound with its outputs, so neither is given back while an ingress entry
  // points at it or is being pointed at it.
  Vex::Ptr<MtableOifSet> group;
  Vex::Ptr<MtableOifSet> pending;
  OifSetPtr pendingOifSet;
  // The transaction outstanding, if any.
  std::unique_ptr<XactWait> wait;
  Vex::Seconds since = 0;  // when the attempt began
  // What the chip's route was allocated with.
  Bridging::VlanIdOrNone vlan;
  std::uint16_t rpaId = 0;
  bool bridge = false;
  bool fastdrop = false;
  // The route changed while a transaction was outstanding: program it again
  // when the attempt ends.
  bool again = false;
};

struct RouteProgrammer::AsyncChip {
  // A route's holds on groups go through these, which count the routes
  // holding each group.
  void groupIs(AsyncRoute& ar, Vex::Ptr<MtableOifSet> group) { replace(ar.group, std::move(group)); }
  void pendingIs(AsyncRoute& ar, Vex::Ptr<MtableOifSet> group) { replace(ar.pending, std::move(group)); }
  // Routes holding group.
  std::uint32_t holders(MtableOifSet const* group) const {
    auto it = holders_.find(group);
    return it == holders_.end() ? 0 : it->second;
  }

  Vex::Ptr<AsyncSwitchChip> chip;
  Vex::Ptr<Routing::Hardware::RouteStatus const> vrfIds;
  // By when the route was first wanted. A route's entry goes with
  // forget(), which lets go of its groups.
  absl::flat_hash_map<std::uint64_t, AsyncRoute> routes;
  Parked parked;
  Vex::Ptr<Vex::Clock> retryClock;
  std::unique_ptr<VexRetryClock> retryReactor;

 private:
  void replace(Vex::Ptr<MtableOifSet>& held, Vex::Ptr<MtableOifSet> group) {
    if (held == group) return;
    if (group) ++holders_[group.get()];
    if (held) {
      auto it = holders_.find(held.get());
      if (--it->second == 0) holders_.erase(it);
    }
    held = std::move(group);  // the old group goes last, counted out already
  }

  absl::flat_hash_map<MtableOifSet const*, std::uint32_t> holders_;
};

}  // namespace MrouteLib
