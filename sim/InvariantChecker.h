#pragma once
// FalSim::InvariantChecker: compares what the reference chips hold with what
// the library and the route programmer believe, after every step of a run.
//
// Per synchronous chip:
// - every route points at a live replication entry; no entry is held that the
//   library does not hold a set for (leak), none the library holds is
//   missing, none was freed twice (ReferenceChip::invariantViolations, fed
//   with the indexes of the library's routes and zombies);
// - the switch's index bookkeeping (oifSetIndexColl) names exactly the
//   shared sets its routes and zombies hold;
// - the switch holds as many routes and boundary entries as the chip, and
//   each agrees field by field (the switch's own verification, through the
//   verify hooks, whose findings the chip records).
// Per asynchronous chip:
// - the chip's groups are the groups the library records (mcastIdToOifSet
//   and its zombies): none leaked, none missing, none freed twice, and every
//   ingress entry points at one of them;
// - the library's route handles are the chip's ingress entries (routes and
//   boundaries), each for the same key, VLAN and VRF;
// - every hardware change the switch made was followed by a verify;
// - no group was deleted while a route was bound or being bound to it (the
//   chip records that when it happens).
// Per chip of either flavour:
// - a set protected by fast reroute on an interface that is down waits for
//   its rewrite or holds its rewritten form (or, asynchronous, its rewrite's
//   transaction failed: the chip reported that, nobody retries it);
// - the chip holds no route that nobody wants.
// Per wanted route: its hardware route status exists and says programmed
// exactly when every chip holds it as wanted (on the entry made for the
// wanted outputs, written and replicating to them, or to their fast-reroute
// form after a failure; another set's entry whose rewritten form is the same
// is not the wanted one).
// And anything the chip recorded as a violation since the last check.
//
// Apart from the chips: each flow a set's traffic makes for one of its routes
// must be one that route carries (flowFinding).
//
// Findings are readable lines; an empty result means every invariant holds.
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "absl/container/btree_map.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/DesiredRoute.h"
#include "platform/net/IpGenAddr.h"
#include "platform/types/VrfName.h"
#include "sim/SimAgent.h"
#include "sim/WantedRoutes.h"

namespace FalSim {

// Routes wanted, by (VRF, key), each held by value (the soak's own book).
using DesiredRoutes =
    absl::btree_map<std::pair<L3::VrfName, Routing::Multicast::Fib::IpGenRouteKey>, MrouteLib::DesiredRoute>;

class InvariantChecker {
 public:
  // What one check saw, for the report's figures.
  struct Load {
    std::size_t hwRoutes = 0;         // routes over all chips
    std::size_t routesWithEntry = 0;  // of which replicate through an entry
    std::size_t entries = 0;          // replication entries over all chips
    std::size_t zombies = 0;          // of which zombies
    // Wanted routes not programmed, by the failure code in their status.
    absl::btree_map<std::uint32_t, std::size_t> unprogrammedByReason;
    // Routes per live (non-zombie) entry; 0 when there is none.
    double sharingRatio() const {
      return entries > zombies ? static_cast<double>(routesWithEntry) / static_cast<double>(entries - zombies) : 0.0;
    }
  };

  std::vector<std::string> check(SimAgent const& agent, WantedRoutes const& desired);
  // What is wrong with a flow made for route, if anything: it must come from
  // an address the route's source prefix holds (never the unspecified one),
  // from the event's source setSource when the prefix holds that, and go to
  // a group the route's group prefix holds.
  static std::optional<std::string> flowFinding(MrouteLib::DesiredRoute const& route, Netcore::IpGenAddr const& source,
                                                Netcore::IpGenAddr const& group, Netcore::IpGenAddr const& setSource);
  Load const& load() const { return load_; }
  std::size_t checks() const { return checks_; }

 private:
  std::size_t chipViolationsSeen_ = 0;
  std::size_t checks_ = 0;
  Load load_;
};

}  // namespace FalSim
