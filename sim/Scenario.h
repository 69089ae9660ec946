#pragma once
// FalSim::Scenario: everything mroute-sim needs to run one agent, already
// checked: the chips and their tables, the interfaces, VRFs and settings the
// agent starts with, the route sets, and the timed events.
//
// A plain value, made by ScenarioLoader from a JSON file (or by hand in
// tests). Every name in it has been resolved: route sets are referred to by
// index, routes carry their interface ids and VLANs, events are in time
// order. Each event keeps the JSON path it came from, so a report can say
// which event a finding belongs to.
#include <cstddef>
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/DesiredRoute.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"
#include "platform/types/VlanId.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfId.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Types.h"
#include "sim/AsyncReferenceChip.h"
#include "sim/ReferenceChip.h"

namespace FalSim {

class Scenario {
 public:
  // Which flavour of the library drives a chip.
  enum class Flavour : std::uint8_t { sync, async };

  struct Chips {
    std::uint32_t count = 1;
    ReferenceChipCapacity capacity;
    // Virtual time one hardware operation costs.
    Vex::Seconds operationCost = 0;
    // Backed by the Linux kernel as well ("chip": "kernel"): real packets.
    bool kernel = false;
    // The flavour of every chip but those listed in otherFlavour, which run
    // the other one.
    Flavour flavour = Flavour::sync;
    std::vector<std::uint32_t> otherFlavour;
    // Asynchronous chips: how long a transaction takes, and the seed of
    // their failure draws (chip c draws from seed + c).
    Vex::Seconds transactionLatency = 0.001;
    std::uint64_t seed = 1;

    Flavour flavourOf(std::uint32_t chip) const {
      bool const other = std::find(otherFlavour.begin(), otherFlavour.end(), chip) != otherFlavour.end();
      if (!other) return flavour;
      return flavour == Flavour::sync ? Flavour::async : Flavour::sync;
    }
    std::uint32_t asyncCount() const {
      std::uint32_t n = 0;
      for (std::uint32_t c = 0; c < count; ++c) n += flavourOf(c) == Flavour::async;
      return n;
    }
    // Every chip runs flavour f.
    void flavourIs(Flavour f) {
      flavour = f;
      otherFlavour.clear();
    }
  };

  struct Vrf {
    L3::VrfName name;
    Fal::VrfId id = 0;
  };

  // A VLAN interface ("Vlan100") and its VLAN.
  struct VlanIntf {
    Netcore::IntfId intf;
    Bridging::VlanId vlan;
  };

  struct RouteSet {
    std::string name;
    std::vector<MrouteLib::DesiredRoute> routes;
    // The number of distinct output sets among the routes.
    std::size_t distinctOutputs = 0;
    bool generated = false;
  };

  enum class EventKind : std::uint8_t {
    addRoutes,      // a route set (or its first `count` routes)
    removeRoutes,   // likewise
    addRoute,       // one explicit route; an existing route takes its new description
    removeRoute,    // one route by VRF and key
    interfaceDown,
    interfaceUp,
    traffic,
    config,
    fault,          // inject a chip failure
    restart,        // restart the agent through recovery
  };

  // Packets sent into the chips.
  struct Traffic {
    // One flow ...
    L3::VrfName vrf;
    Netcore::IpGenAddr source;
    Netcore::IpGenAddr group;
    Bridging::VlanIdOrNone vlan;
    // ... or one flow per route of a set, each on its accepting VLAN.
    std::optional<std::size_t> set;
    // The source of the flows of a set, for each route whose source prefix
    // holds it (every (*, G) route); unknown family when not given.
    Netcore::IpGenAddr setSource;
    std::uint32_t packets = 1;
    std::uint32_t bytes = 64;
    // Sent to one chip, or to each chip when absent.
    std::optional<std::uint32_t> chip;
    // The copies each packet must give, in port order (forwarded, possibly
    // to no port); no check when absent.
    std::optional<std::vector<MrouteLib::PortVlan>> expect;
    // Every packet must be forwarded (not dropped).
    bool expectForwarded = false;
    // Every packet must be dropped, for this reason.
    std::optional<ReferenceChip::DropReason> expectDropped;
  };

  struct CounterRoute {
    L3::VrfName vrf;
    Routing::Multicast::Fib::IpGenRouteKey key;
  };

  // Settings changed at run time; absent fields stay as they are.
  struct Config {
    std::optional<bool> zombies;
    std::optional<Vex::Seconds> zombieLifetime;
    std::optional<std::uint8_t> activityPollingInterval;
    std::optional<bool> allCounter;
    std::optional<Routing::Multicast::Fib::CounterMode> counterMode;
    std::vector<CounterRoute> counterRoutes;
    // New table capacities of one chip (or of every chip); a table whose
    // size is absent keeps the size it has.
    struct Capacity {
      std::optional<std::size_t> routes;
      std::optional<std::size_t> boundaries;
      std::optional<std::size_t> replicationEntries;
      // The chip's capacity once this change is made to it.
      ReferenceChipCapacity appliedTo(ReferenceChipCapacity now) const {
        if (routes) now.routes = *routes;
        if (boundaries) now.boundaries = *boundaries;
        if (replicationEntries) now.replicationEntries = *replicationEntries;
        return now;
      }
    };
    std::optional<std::uint32_t> capacityChip;
    std::optional<Capacity> capacity;
  };

  // A chip failure: a table's allocations refused (every flavour), or an
  // asynchronous chip's transactions of one kind failed.
  struct Fault {
    std::optional<std::uint32_t> chip;  // every chip when absent
    ReferenceChip::Table table = ReferenceChip::Table::replication;
    // Instead of a table: transactions of this kind, on asynchronous chips.
    std::optional<AsyncReferenceChip::Operation> transaction;
    std::optional<std::uint32_t> failNext;
    std::optional<bool> forceFull;
    // Transactions only: each fails with this probability from now on.
    std::optional<double> probability;
  };

  struct Event {
    Vex::Seconds at = 0;
    EventKind kind = EventKind::restart;
    std::string path;  // "events[3]"
    // addRoutes / removeRoutes
    std::size_t set = 0;
    std::optional<std::size_t> count;
    // addRoute
    MrouteLib::DesiredRoute route;
    // removeRoute
    L3::VrfName vrf;
    Routing::Multicast::Fib::IpGenRouteKey key;
    // interfaceDown / interfaceUp
    Netcore::IntfId intf;
    Traffic traffic;
    Config config;
    Fault fault;
  };

  std::string name;
  std::string description;
  Chips chips;
  std::vector<Netcore::IntfId> ethernet;
  std::vector<VlanIntf> vlans;
  std::vector<Vrf> vrfs;
  bool zombiesEnabled = true;
  Vex::Seconds zombieLifetime = 4.0;
  std::uint8_t activityPollingInterval = 10;
  bool allCounter = false;
  Routing::Multicast::Fib::CounterMode counterMode = Routing::Multicast::Fib::CounterMode::packets;
  std::vector<RouteSet> routeSets;
  std::vector<Event> events;
  // The run goes on to this time after the last event.
  Vex::Seconds end = 0;
  // Between samples of the run's figures; chosen from the run's length when absent.
  std::optional<Vex::Seconds> sampleInterval;

  // The VRF's id; nullopt when the scenario does not declare it.
  std::optional<Fal::VrfId> vrfId(L3::VrfName const& name) const {
    for (auto const& v : vrfs) {
      if (v.name == name) return v.id;
    }
    return std::nullopt;
  }
};

char const* eventKindName(Scenario::EventKind kind);

}  // namespace FalSim
