#pragma once
// FalSim::ForwardingModel: what a packet should do, worked out from the
// routes the owner wants alone, without asking a chip or the library. The
// soak compares the chips' forwarding with it.
//
// The rules: a boundary (bridge) route of the VRF covering the flow on the
// VLAN it arrives on stops it; else the most specific route covering it
// (longest source prefix, then longest group prefix) decides alone: it must
// accept on the arrival VLAN, or be noRpf, and the packet is then copied to
// the route's outputs. No route covering it: it is dropped.
//
// Two things the model leaves open rather than guess. Fast reroute: an
// output set whose protected interface went down while a route wanted it
// (or that a route took while it was down) may be held in its rerouted form
// (the failed port's outputs replaced by the backups) or as it is, depending
// on when each chip made and shared its entry, until no route wants it any
// more; the caller says which sets may be (mayBeRerouted), and for those the
// copies are not predicted, only the forwarding.
// Full tables, refused allocations, failed or outstanding transactions: a
// route not programmed on every chip (programmed() says which are) may be
// missing from a chip, held in an older form or, on an asynchronous chip,
// allocated but not bound. The flow is then unknown, unless the route cannot
// matter: a chip's lookup takes the most specific route it holds, so a
// route less specific than a programmed one that decides the flow is never
// looked at, as long as it cannot be held as a boundary (which stops a flow
// before any route is looked at). The caller says which wanted routes may be
// held as one (mayHoldBoundary: they were boundaries while wanted); unless
// it does, every route not programmed is taken to matter.
#include <functional>
#include <vector>

#include "platform/mroutelib/DesiredRoute.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfName.h"
#include "sim/InvariantChecker.h"
#include "sim/ReferenceChip.h"

namespace FalSim {

class ForwardingModel {
 public:
  struct Flow {
    L3::VrfName vrf;
    Netcore::IpGenAddr source;
    Netcore::IpGenAddr group;
    Bridging::VlanIdOrNone vlan;
  };

  struct Prediction {
    enum class Kind : std::uint8_t { unknown, dropped, forwarded };
    Kind kind = Kind::unknown;
    ReferenceChip::DropReason reason = ReferenceChip::DropReason::none;  // when dropped
    // When forwarded: the copies in port order, unless fast reroute leaves
    // them open.
    bool copiesKnown = false;
    std::vector<MrouteLib::PortVlan> copies;
    // When unknown: the covering route not programmed that left it open.
    MrouteLib::DesiredRoute const* unprogrammed = nullptr;
  };

  // Whether a wanted route is programmed on every chip.
  using Programmed = std::function<bool(MrouteLib::DesiredRoute const&)>;
  // Whether an output set may be held in its rerouted form.
  using MayBeRerouted = std::function<bool(MrouteLib::PortVlanSet const&)>;
  // Whether a wanted route may be held on a chip as a boundary.
  using MayHoldBoundary = std::function<bool(MrouteLib::DesiredRoute const&)>;

  ForwardingModel(Programmed programmed, MayBeRerouted mayBeRerouted, MayHoldBoundary mayHoldBoundary = {})
      : programmed_(std::move(programmed)),
        mayBeRerouted_(std::move(mayBeRerouted)),
        mayHoldBoundary_(std::move(mayHoldBoundary)) {}

  Prediction predict(DesiredRoutes const& wanted, Flow const& flow) const;

 private:
  Programmed programmed_;
  MayBeRerouted mayBeRerouted_;
  MayHoldBoundary mayHoldBoundary_;
};

}  // namespace FalSim
